#!/usr/bin/env bash
# Damaged NTFS volumes through the whole program (budget: one to five
# minutes): seeded mutations of every committed fixture image, aimed at the
# boot sector, $MFT records, attribute headers, run lists, index blocks,
# $Secure and $Reparse (scripts/damage-volumes.py). Every run must end with
# exit 0 or 1 in time, a failed NTFS attempt must be retried by the walk and
# logged with the record or offset that was wrong, and what a run leaves must
# be a valid index with its summary or no summary at all.
# NGI_DAMAGED_RUNS mutations an image with the plain build (default 300),
# NGI_DAMAGED_ASAN_RUNS with the sanitizer build when it has been made
# (default 50).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD_DIR:-build}
asan=${NGI_ASAN_BUILD_DIR:-build-asan}
if [ ! -x "$build/src/app/NorvaGuestIndexer" ] || [ ! -x "$build/catalogue/ngi-catalogue" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j"${NGI_JOBS:-$(nproc)}" --target NorvaGuestIndexer ngi-catalogue >/dev/null
fi
work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-test-damaged.XXXXXX")
trap 'rc=$?; if (( rc == 0 )); then rm -rf "$work"; else echo "test-damaged: images of failed runs kept in $work" >&2; fi' EXIT

echo "--- plain build"
mkdir -p "$work/plain"
python3 scripts/damage-volumes.py --program "$build/src/app/NorvaGuestIndexer" \
  --catalogue "$build/catalogue/ngi-catalogue" --runs "${NGI_DAMAGED_RUNS:-300}" \
  --work "$work/plain" fixtures/ntfs/*.img.gz
if [ -x "$asan/src/app/NorvaGuestIndexer" ]; then
  echo "--- sanitizer build"
  mkdir -p "$work/asan"
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
  python3 scripts/damage-volumes.py --program "$asan/src/app/NorvaGuestIndexer" \
    --catalogue "$build/catalogue/ngi-catalogue" --runs "${NGI_DAMAGED_ASAN_RUNS:-50}" \
    --seed 7 --work "$work/asan" fixtures/ntfs/*.img.gz
fi
echo "test-damaged: passed"
