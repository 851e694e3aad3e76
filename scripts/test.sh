#!/usr/bin/env bash
# The test command: installs what is missing, then builds and runs every test
# twice, plainly and under AddressSanitizer + UndefinedBehaviorSanitizer.
# Each suite has a time budget (ctest --timeout); heavy runs (benchmarks,
# long fuzzing, huge trees) live in scripts/bench-* and are not run here.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
jobs=$(nproc)

bash scripts/install-deps.sh

run_suite() {  # name build-dir cmake-args...
  local name=$1 dir=$2
  shift 2
  echo "=== $name build"
  cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
  echo "=== $name tests"
  (cd "$dir" && ctest -j"$jobs" --timeout 600 --output-on-failure)
}

run_suite plain build
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suite sanitizers build-asan -DNGI_SANITIZE=ON

for extra in scripts/test-*.sh; do
  [ -e "$extra" ] || continue
  echo "=== $extra"
  bash "$extra"
done
echo "=== all suites passed"
