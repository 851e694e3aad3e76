#!/usr/bin/env bash
# Benchmark of the index writer (not part of the test command): builds
# store_bench in build-bench/ and writes ten million file rows (or $1) through
# CIndexBase in a temporary folder, comparing with one large write call, in
# five rounds (or $2) of alternating order; prints each round and the medians.
set -euo pipefail
cd "$(dirname "$0")/.."
rows=${1:-10000000}
rounds=${2:-5}
build=${NGI_BENCH_BUILD:-build-bench}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DNGI_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target store_bench >/dev/null
out=$(mktemp -d "${TMPDIR:-/tmp}/ngi-bench-XXXXXX")
trap 'rm -rf "$out"' EXIT
"$build/src/store/store_bench" "$out" "$rows" "$rounds"
