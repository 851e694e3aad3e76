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
# of find and export (/usr/bin/time -v); then cat and find again with the
# file's pages dropped from the page cache before each run (dd
# iflag=nocache). Streaming means: the peak memory is about the same for both
# indexes (it grows with folders, not files), and find takes at most twice
# the time of cat. find reads a long table on two threads (one reads ahead),
# so its processor time may exceed its wall time; cat uses one.
set -euo pipefail
cd "$(dirname "$0")/.."
files=${1:-10000000}
dirs=${2:-100000}
build=${NGI_BENCH_BUILD:-build-bench-cat}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DNGI_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target ngi-catalogue catalogue_make_index >/dev/null
tool=$build/catalogue/ngi-catalogue
out=$(mktemp -d "${TMPDIR:-/tmp}/ngi-bench-cat-XXXXXX")
trap 'rm -rf "$out"' EXIT

# Best of five runs of a command (output discarded): "wall cpu" in seconds,
# cpu being user + system time of the child. On a busy machine the
# processor time is the steadier measure; both are printed. With COLD set to
# a file, that file's pages are dropped from the page cache before each run.
best_of_five() {
  python3 - "$@" <<'PY'
import os, resource, subprocess, sys, time
cold = os.environ.get("COLD")
walls, cpus = [], []
for _ in range(5):
    if cold:
        subprocess.run(["dd", "if=" + cold, "iflag=nocache", "count=0", "status=none"], check=True)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    walls.append(time.perf_counter() - start)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpus.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
print(f"{min(walls):.3f} {min(cpus):.3f}")
PY
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN {if (b > 0) printf "%.2f", a / b; else print "-"}'; }

# Peak resident memory in KiB of one run.
peak_kib() {
  { /usr/bin/time -v "$@" 2>&1 >/dev/null || true; } | awk -F': ' '/Maximum resident set size/ {print $2}'
}

measure() {  # label file-count
  local label=$1 count=$2 dir="$out/$1"
  mkdir -p "$dir"
  "$build/catalogue/catalogue_make_index" "$dir" "$count" "$dirs"
  local ifd="$dir/volume.B_.ifd"
  local size
  size=$(stat -c %s "$ifd")
  # The index was just written: write it back now, or the system does so
  # during the timings. Then one read to have it in the page cache.
  sync "$ifd"
  cat "$ifd" >/dev/null
  local t_cat t_find t_export m_find m_export
  t_cat=($(best_of_five cat "$ifd"))
  t_find=($(best_of_five "$tool" find "$ifd" '*_99999?.log'))
  t_export=($(best_of_five "$tool" export "$ifd" --format csv))
  m_find=$(peak_kib "$tool" find "$ifd" '*_99999?.log')
  m_export=$(peak_kib "$tool" export "$ifd" --format csv)
  echo "$label: $count files, $dirs folders, $((size / 1048576)) MiB (wall s / cpu s, best of five)"
  echo "  cat     ${t_cat[0]} / ${t_cat[1]}"
  echo "  find    ${t_find[0]} / ${t_find[1]}  ($(ratio "${t_find[0]}" "${t_cat[0]}") / $(ratio "${t_find[1]}" "${t_cat[1]}") x cat)  peak ${m_find} KiB"
  echo "  export  ${t_export[0]} / ${t_export[1]}  peak ${m_export} KiB"
  t_cat=($(COLD=$ifd best_of_five cat "$ifd"))
  t_find=($(COLD=$ifd best_of_five "$tool" find "$ifd" '*_99999?.log'))
  echo "  cold (the file's pages dropped before each run):"
  echo "  cat     ${t_cat[0]} / ${t_cat[1]}"
  echo "  find    ${t_find[0]} / ${t_find[1]}  ($(ratio "${t_find[0]}" "${t_cat[0]}") / $(ratio "${t_find[1]}" "${t_cat[1]}") x cat)"
  rm -f "$ifd"
}

measure small $((files / 10))
measure large "$files"
