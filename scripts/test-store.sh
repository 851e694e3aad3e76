#!/usr/bin/env bash
# Smoke run of the index writer benchmark (a hundred thousand rows, one
# round), so that the benchmark keeps building and running; the real run is
# bench-store.sh.
# Uses the plain build folder of the test command. Budget: a few seconds.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD:-build}
if [ ! -f "$build/CMakeCache.txt" ]; then
  echo "test-store: skipped: no build folder $build"
  exit 0
fi
cmake --build "$build" -j"$(nproc)" --target store_bench >/dev/null
out=$(mktemp -d "${TMPDIR:-/tmp}/ngi-bench-XXXXXX")
trap 'rm -rf "$out"' EXIT
"$build/src/store/store_bench" "$out" 100000 1 | grep -q '^ratio'
echo "test-store: benchmark smoke run passed"
