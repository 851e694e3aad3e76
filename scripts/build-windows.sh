#!/usr/bin/env bash
# Cross-builds the Windows programs with MinGW-w64 (cmake/toolchain-mingw64.cmake).
#
#   scripts/build-windows.sh [build-dir [target...]]
#
# The build folder defaults to build-windows/; without targets everything is
# built. NGI_JOBS sets the parallel jobs (default 2).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
dir=${1:-$root/build-windows}
(($#)) && shift
jobs=${NGI_JOBS:-2}

cmake -S "$root" -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" \
  -DCMAKE_BUILD_TYPE=Release >/dev/null
if (($#)); then
  cmake --build "$dir" -j"$jobs" --target "$@"
else
  cmake --build "$dir" -j"$jobs"
fi
