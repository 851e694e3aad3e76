#!/usr/bin/env bash
# Cross-builds the Windows programs with MinGW-w64 (cmake/toolchain-mingw64.cmake).
#
#   scripts/build-windows.sh [build-dir [target...]]
#
# The build folder defaults to build-windows/; without targets everything is
# built. NGI_JOBS sets the parallel jobs (default 2). Compiles go through
# ccache when it is installed.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
dir=${1:-$root/build-windows}
(($#)) && shift
jobs=${NGI_JOBS:-2}

launcher=()
command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" \
  -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" >/dev/null
if (($#)); then
  cmake --build "$dir" -j"$jobs" --target "$@"
else
  cmake --build "$dir" -j"$jobs"
fi
