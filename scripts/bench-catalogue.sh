#!/usr/bin/env bash
# Benchmark of the catalogue tool (not part of the test command). Builds
# ngi-catalogue and the index maker in build-bench-cat/, writes an index of
# ten million files (or $1) over 100,000 folders (or $2) through CIndexBase,
# and one of a tenth of the files over the same folders; then, on each,
# measures in the same run:
#   - reading the file once: cat FILE > /dev/null (after one warming read);
#   - find with a pattern that matches a handful of names;
#   - export to /dev/null;
# each the best of five wall-clock and processor times, and the peak memory
# of find and export (/usr/bin/time -v). Streaming means: the peak memory is about the
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

# Best of five runs of a command (output discarded): "wall cpu" in seconds,
# cpu being user + system time. On a busy machine the processor time is
# the steadier measure; both are printed.
best_of_five() {
  local best_wall="" best_cpu="" line wall cpu
  for _ in 1 2 3 4 5; do
    /usr/bin/time -o "$out/time.txt" -f '%e %U %S' "$@" >/dev/null 2>&1 || true
    line=$(tail -1 "$out/time.txt")
    wall=$(echo "$line" | awk '{print $1}')
    cpu=$(echo "$line" | awk '{print $2 + $3}')
    if [ -z "$best_wall" ] || awk -v t="$wall" -v b="$best_wall" 'BEGIN {exit !(t < b)}'; then best_wall=$wall; fi
    if [ -z "$best_cpu" ] || awk -v t="$cpu" -v b="$best_cpu" 'BEGIN {exit !(t < b)}'; then best_cpu=$cpu; fi
  done
  echo "$best_wall $best_cpu"
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN {if (b > 0) printf "%.2f", a / b; else print "-"}'; }

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
  local cat find export m_find m_export
  cat=($(best_of_five cat "$ifd"))
  find=($(best_of_five "$tool" find "$ifd" '*_99999?.log'))
  export=($(best_of_five "$tool" export "$ifd" --format csv))
  m_find=$(peak_kib "$tool" find "$ifd" '*_99999?.log')
  m_export=$(peak_kib "$tool" export "$ifd" --format csv)
  echo "$label: $count files, $dirs folders, $((size / 1048576)) MiB (wall s / cpu s, best of five)"
  echo "  cat     ${cat[0]} / ${cat[1]}"
  echo "  find    ${find[0]} / ${find[1]}  ($(ratio "${find[0]}" "${cat[0]}") / $(ratio "${find[1]}" "${cat[1]}") x cat)  peak ${m_find} KiB"
  echo "  export  ${export[0]} / ${export[1]}  peak ${m_export} KiB"
  rm -f "$ifd"
}

measure small $((files / 10))
measure large "$files"
