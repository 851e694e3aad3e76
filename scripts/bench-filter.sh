#!/usr/bin/env bash
# Benchmark of large filters (not part of the test command).
#
#   scripts/bench-filter.sh [N...]      (default 10000 100000 1000000)
#
# 1. filter_bench: the filter tree of N exclude lines under one folder, built
#    and asked about every line by name (the walk) and by reference (the
#    NTFS pipeline).
# 2. The built program, as the backup software runs it (-opt yes -log), on a
#    folder volume C: with one folder "big" of 100 folders: the run with an
#    exclude filter of N lines "C:\big\FolderK" against the same run with an
#    empty one, best of three each; the difference is what the lines add.
#    A filter file must be smaller than 10 MiB, so lines beyond about
#    300,000 of this length are refused by the program ("too big"): those
#    runs are reported as such.
# Builds in build-bench/ (Release) unless NGI_BENCH_BUILD names a configured
# build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
counts=("$@")
((${#counts[@]})) || counts=(10000 100000 1000000)
build=${NGI_BENCH_BUILD:-build-bench}
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DNGI_BUILD_TESTS=OFF >/dev/null
fi
cmake --build "$build" -j2 --target filter_bench NorvaGuestIndexer >/dev/null

echo "== the filter tree alone (seconds)"
"$build/src/inputs/filter_bench" "${counts[@]}"

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-bench-filter-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin" "$work/c/big" "$work/locks"
for ((k = 0; k < 100; ++k)); do mkdir -p "$work/c/big/Folder$k/sub"; : >"$work/c/big/Folder$k/f"; done
cp "$build/src/app/NorvaGuestIndexer" "$work/bin/"
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]\r\n"MountPoints"="C:"\r\n"VolumeName"="{0000000c-0000-0000-0000-00000000000c}"\r\n"Folder"="%s"\r\n' \
  "$work/c" >"$work/registry.reg"

# A filter file: UTF-16LE with its mark, CR LF; $1 lines "C:\big\FolderK".
filter() {
  python3 - "$1" "$2" <<'PY'
import sys
n, path = int(sys.argv[1]), sys.argv[2]
text = "".join("C:\\big\\Folder%d\r\n" % k for k in range(n))
open(path, "wb").write(b"\xff\xfe" + text.encode("utf-16-le"))
PY
}

# Best of three runs, in seconds; "failed" when the program refuses.
run() {
  local best=""
  for _ in 1 2 3; do
    rm -rf "$work/out" "$work/logs"
    local start end
    start=$(date +%s.%N)
    if ! NGI_REGISTRY_FILE="$work/registry.reg" NGI_LOCK_DIR="$work/locks" \
      "$work/bin/NorvaGuestIndexer" -opt yes -log "$work/logs" "$work/out" >"$work/stderr" 2>&1; then
      echo "failed: $(head -c 200 "$work/stderr" | tr '\r\n' '  ')"
      return
    fi
    end=$(date +%s.%N)
    best=$(python3 -c "b='$best'; t=$end-$start; print(t if not b or t < float(b) else b)")
  done
  printf '%.3f\n' "$best"
}

echo "== the program, -opt yes -log, best of three (seconds)"
python3 -c "open('$work/bin/NorvaGuestIndexer.inc.filter','wb').write(b'\xff\xfe'+'C:\\\\\r\n'.encode('utf-16-le'))"
python3 -c "open('$work/bin/NorvaGuestIndexer.exc.filter','wb').write(b'\xff\xfe')"
base=$(run)
printf '%10s %10s %10s\n' lines run added
printf '%10s %10s %10s\n' 0 "$base" -
for n in "${counts[@]}"; do
  filter "$n" "$work/bin/NorvaGuestIndexer.exc.filter"
  t=$(run)
  case $t in
    failed*) printf '%10s %s\n' "$n" "$t" ;;
    *) printf '%10s %10s %10s\n' "$n" "$t" "$(python3 -c "print('%.3f' % ($t - $base))")" ;;
  esac
done
