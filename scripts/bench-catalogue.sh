#!/usr/bin/env bash
# Benchmark of the catalogue tool (not part of the test command). Builds
# ngi-catalogue and the index maker in build-bench-cat/, writes an index of
# ten million files (or $1) over 100,000 folders (or $2) through CIndexBase,
# and one of a tenth of the files over the same folders; then, on each,
# measures in the same run:
#   - reading the file once: cat FILE > /dev/null (after one warming read);
#   - find with a pattern that matches a handful of names;
#   - export to /dev/null;
# each the best of three wall-clock times, and the peak memory of find and
# export (/usr/bin/time -v). Streaming means: the peak memory is about the
# same for both indexes (it grows with folders, not files), and find takes
# at most twice the time of cat.
set -euo pipefail
cd "$(dirname "$0")/.."
files=${1:-10000000}
dirs=${2:-100000}
build=${NGI_BENCH_BUILD:-build-bench-cat}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DNGI_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target ngi-catalogue catalogue_make_index >/dev/null
tool=$build/tools/catalogue/ngi-catalogue
out=$(mktemp -d "${TMPDIR:-/tmp}/ngi-bench-cat-XXXXXX")
trap 'rm -rf "$out"' EXIT

# Best wall-clock seconds of three runs of a command (output discarded).
best_of_three() {
  local best="" t0 t1 t
  for _ in 1 2 3; do
    t0=$(date +%s.%N)
    "$@" >/dev/null || [ $? -eq 1 ]
    t1=$(date +%s.%N)
    t=$(awk -v a="$t0" -v b="$t1" 'BEGIN {print b - a}')
    if [ -z "$best" ] || awk -v t="$t" -v b="$best" 'BEGIN {exit !(t < b)}'; then best=$t; fi
  done
  printf '%.3f' "$best"
}

# Peak resident memory in KiB of one run.
peak_kib() {
  /usr/bin/time -v "$@" 2>&1 >/dev/null | awk -F': ' '/Maximum resident set size/ {print $2}'
}

measure() {  # label file-count
  local label=$1 count=$2 dir="$out/$1"
  mkdir -p "$dir"
  "$build/tools/catalogue/catalogue_make_index" "$dir" "$count" "$dirs"
  local ifd="$dir/volume.B_.ifd"
  local size
  size=$(stat -c %s "$ifd")
  cat "$ifd" >/dev/null
  local t_cat t_find t_export m_find m_export
  t_cat=$(best_of_three cat "$ifd")
  t_find=$(best_of_three "$tool" find "$ifd" '*_99999?.log')
  t_export=$(best_of_three "$tool" export "$ifd" --format csv)
  m_find=$(peak_kib "$tool" find "$ifd" '*_99999?.log')
  m_export=$(peak_kib "$tool" export "$ifd" --format csv)
  echo "$label: $count files, $dirs folders, $((size / 1048576)) MiB"
  echo "  cat     ${t_cat} s"
  echo "  find    ${t_find} s  ($(awk -v f="$t_find" -v c="$t_cat" 'BEGIN {printf "%.2f", f / c}') x cat)  peak ${m_find} KiB"
  echo "  export  ${t_export} s  peak ${m_export} KiB"
  rm -f "$ifd"
}

measure small $((files / 10))
measure large "$files"
