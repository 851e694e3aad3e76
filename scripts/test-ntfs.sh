#!/usr/bin/env bash
# The NTFS tests that need a volume too large to commit: builds (once, into a
# cache folder) the image with a folder of 100,000 entries through an ntfs-3g
# mount, then runs the large-folder test of the plain build against it.
# Skips cleanly where FUSE is missing or the plain build has not been made.
set -euo pipefail
cd "$(dirname "$0")/.."
cache=${NGI_NTFS_CACHE:-${TMPDIR:-/tmp}/ngi-ntfs-cache}
tests=${NGI_BUILD_DIR:-build}/src/ntfs/ntfs_tests
[ -x "$tests" ] || { echo "test-ntfs: $tests not built, skipped"; exit 0; }
if [ ! -f "$cache/ntfs-100k.img" ]; then
  bash scripts/make-ntfs-fixtures.sh --large "$cache"
fi
[ -f "$cache/ntfs-100k.img" ] || { echo "test-ntfs: no large image (no FUSE?), skipped"; exit 0; }
NGI_NTFS_LARGE="$cache/ntfs-100k.img" NGI_SOURCE_DIR=$PWD timeout 600 "$tests" --gtest_filter='NtfsLarge.*'
