#!/usr/bin/env bash
# The main job: builds the indexer and runs it as a new user would.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target NorvaGuestIndexer
echo "=== build/src/app/NorvaGuestIndexer (no arguments: the usage)"
build/src/app/NorvaGuestIndexer || echo "(exit code $?)"
