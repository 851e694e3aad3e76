#!/usr/bin/env bash
# Heavier checks of the optimized run with the directory walk, through the
# built program (budget: about two minutes):
#   1. a run killed at random moments never leaves a partial index under
#      the final name: volume.c_.ifd is absent or whole, and the next run
#      finishes beside the temporary files the killed one left, writing
#      the same bytes as an uninterrupted run; summary.txt is absent or
#      whole after every kill;
#   2. a tree 1,000 folders deep (paths far beyond PATH_MAX) is walked whole;
#   3. one folder of 100,000 entries (NGI_WIDE_ENTRIES; the benchmark
#      script bench-walk.sh has the million) is indexed whole.
# Uses the program of $NGI_BUILD_DIR (default build), building it if needed.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD_DIR:-build}
if [ ! -x "$build/src/app/NorvaGuestIndexer" ] || [ ! -x "$build/tools/index_dump/NorvaIndexDump" ] ||
   [ ! -x "$build/catalogue/ngi-catalogue" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j"${NGI_JOBS:-$(nproc)}" --target NorvaGuestIndexer NorvaIndexDump ngi-catalogue >/dev/null
fi
program=$PWD/$build/src/app/NorvaGuestIndexer
dump=$PWD/$build/tools/index_dump/NorvaIndexDump
catalogue=$PWD/$build/catalogue/ngi-catalogue

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-test-walk.XXXXXX")
trap 'rm -rf "$work"' EXIT

source scripts/instance-files.sh
instance() {  # folder tree
  instance_files "$1" "$program"
  printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]\r\n"MountPoints"="C:"\r\n"Folder"="%s"\r\n' \
    "$2" > "$1/registry.reg"
}

# A run that succeeds must leave only indexes that the catalogue tool's check
# accepts.
run() {  # folder out
  NGI_REGISTRY_FILE="$1/registry.reg" NGI_LOCK_DIR="$1" "$1/NorvaGuestIndexer" -opt yes -log "$1/logs" "$2" || return
  local index
  for index in "$2"/volume.*.ifd; do
    [ -e "$index" ] || continue
    "$catalogue" check "$index" >/dev/null || { echo "FAIL: exit 0 left $index, which check refuses" >&2; exit 1; }
  done
}

# Directory and file counts of an index ("<dirs> <files>").
counts() {
  "$dump" "$1" | sed -nE '1s/.*: ([0-9]+) directories, ([0-9]+) files.*/\1 \2/p'
}

echo "--- killed runs"
tree=$work/tree
for ((t = 0; t < 10; t++)); do
  mkdir -p "$tree/d$t/"s{0..49}
  (cd "$tree/d$t" && for s in s*; do (cd "$s" && touch f{00..99}); done)
done
instance "$work/kill" "$tree"
start=$(date +%s%N)
run "$work/kill" "$work/full" >/dev/null
took=$(( ($(date +%s%N) - start) / 1000000 ))
whole=$(counts "$work/full/volume.c_.ifd")
echo "whole index: $whole (directories, files) in $took ms"
[ "$whole" = "511 50000" ] || { echo "FAIL: unexpected counts"; exit 1; }
# Kills spread over the run, from its start to just past its end.
for percent in 2 10 25 40 55 70 85 100 120; do
  delay=$(awk -v ms="$took" -v p="$percent" 'BEGIN { printf "%.3f", ms * p / 100000 }')
  out=$work/out-$percent
  # exec: the background job is the program itself, so the kill reaches it.
  (NGI_REGISTRY_FILE="$work/kill/registry.reg" NGI_LOCK_DIR="$work/kill" \
     exec "$work/kill/NorvaGuestIndexer" -opt yes -log "$work/kill/logs" "$out" >/dev/null 2>&1) &
  pid=$!
  sleep "$delay"
  kill -9 "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  # summary.txt marks a complete run: absent, or the whole summary.
  if [ -e "$out/summary.txt" ] && ! cmp -s "$out/summary.txt" "$work/full/summary.txt"; then
    echo "FAIL: killed after $delay s, summary.txt is partial"; exit 1
  fi
  if [ -e "$out/volume.c_.ifd" ]; then
    got=$(counts "$out/volume.c_.ifd") || { echo "FAIL: killed after $delay s, the final file is damaged"; exit 1; }
    [ "$got" = "$whole" ] || { echo "FAIL: killed after $delay s, the final file is partial ($got)"; exit 1; }
    echo "killed after $delay s: the run had finished"
  else
    left=$(ls "$out" 2>/dev/null | grep -c '^Index.*\.tmp$' || true)
    echo "killed after $delay s: no final file, $left temporary files left"
    # The next run finishes, and leaves the killed run's files in place.
    run "$work/kill" "$out" >/dev/null
    cmp -s "$out/volume.c_.ifd" "$work/full/volume.c_.ifd" || { echo "FAIL: the run after a kill differs"; exit 1; }
    cmp -s "$out/summary.txt" "$work/full/summary.txt" || { echo "FAIL: summary.txt after a kill differs"; exit 1; }
    now=$(ls "$out" | grep -c '^Index.*\.tmp$' || true)
    [ "$now" = "$left" ] || { echo "FAIL: temporary files of the killed run: $left before, $now after"; exit 1; }
  fi
done

echo "--- a tree 1,000 folders deep"
deep=$work/deep
mkdir -p "$deep"
(
  cd "$deep"
  for ((i = 0; i < 1000; i++)); do mkdir n && cd n; done
  touch bottom
)
instance "$work/deep-run" "$deep"
run "$work/deep-run" "$work/deep-out" >/dev/null
got=$(counts "$work/deep-out/volume.c_.ifd")
[ "$got" = "1001 1" ] || { echo "FAIL: deep tree gives $got"; exit 1; }
echo "deep tree: $got (directories, files)"
echo "--- one folder of ${NGI_WIDE_ENTRIES:=100000} entries"
# The million-entry folder of the benchmark, smaller: every entry indexed.
wide=$work/wide
mkdir -p "$wide/all"
(cd "$wide/all" && seq -f "entry-%07g" 1 "$NGI_WIDE_ENTRIES" | xargs touch)
instance "$work/wide-run" "$wide"
start=$(date +%s%N)
run "$work/wide-run" "$work/wide-out" >/dev/null
took=$(( ($(date +%s%N) - start) / 1000000 ))
got=$(counts "$work/wide-out/volume.c_.ifd")
[ "$got" = "2 $NGI_WIDE_ENTRIES" ] || { echo "FAIL: wide folder gives $got"; exit 1; }
echo "wide folder: $got (directories, files) in $took ms"
echo "test-walk: passed"
