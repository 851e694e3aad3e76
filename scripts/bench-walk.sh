#!/usr/bin/env bash
# Benchmark of the directory-walk indexer against find(1).
#
# Builds (once, kept under $NGI_BENCH_DIR, default /tmp/ngi-bench-walk) a
# tree of 200,000 files in 10,000 folders, one of 50,000 files in 2,500
# folders and one folder of 1,000,000 files on the local file system, then times, in the same run and with a
# warm cache, the indexer's optimized run over the tree as volume C: (no
# shadow: the live walk) and
#   find <tree> -printf '%s %T@ %p\n' > /dev/null
# Each is run three times; the best time counts. Prints both, the ratio
# (target: at most 1.3) and the indexer's peak memory for both trees, which
# should not grow with the number of files.
#
# NGI_BUILD_DIR (default build) names the build folder; NGI_JOBS the build jobs.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
build=${NGI_BUILD_DIR:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"${NGI_JOBS:-$(nproc)}" --target NorvaGuestIndexer >/dev/null

bench=${NGI_BENCH_DIR:-/tmp/ngi-bench-walk}
mkdir -p "$bench"

make_tree() {  # folder top-level-count (each with 100 subfolders of 20 files)
  local tree=$1 tops=$2
  [ -f "$tree.done" ] && return
  echo "building $tree ($((tops * 100)) folders, $((tops * 2000)) files)..."
  rm -rf "$tree"
  mkdir -p "$tree"
  local t s
  for ((t = 0; t < tops; t++)); do
    mkdir -p "$tree/d$t/"s{0..99}
    (cd "$tree/d$t" && for s in s*; do (cd "$s" && touch file{00..19}.dat); done)
  done
  touch "$tree.done"
}

make_wide() {  # folder: one folder of a million empty files
  local tree=$1
  [ -f "$tree.done" ] && return
  echo "building $tree (1 folder, 1,000,000 files)..."
  rm -rf "$tree"
  mkdir -p "$tree/all"
  (cd "$tree/all" && seq -f "entry-%07g" 1 1000000 | xargs touch)
  touch "$tree.done"
}

# An instance folder for a tree: the program, filters taking the whole C:,
# a registry file with the volume table C: -> tree.
make_instance() {  # instance tree
  local instance=$1 tree=$2
  mkdir -p "$instance"
  cp "$build/src/app/NorvaGuestIndexer" "$instance/"
  { printf '\xff\xfe'; printf 'C:\\\r\n' | iconv -f UTF-8 -t UTF-16LE; } > "$instance/NorvaGuestIndexer.inc.filter"
  printf '\xff\xfe' > "$instance/NorvaGuestIndexer.exc.filter"
  printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]\r\n"MountPoints"="C:"\r\n"Folder"="%s"\r\n' \
    "$tree" > "$instance/registry.reg"
}

# Best of three: "<seconds> <max RSS in KiB>" of a command.
best_of_three() {
  local best="" line
  for _ in 1 2 3; do
    line=$(/usr/bin/time -f '%e %M' "$@" 2>&1 >/dev/null | tail -1)
    if [ -z "$best" ] || awk -v a="${line% *}" -v b="${best% *}" 'BEGIN { exit !(a < b) }'; then
      best=$line
    fi
  done
  echo "$best"
}

# The indexer's command line for an instance (a later run replaces the index).
indexer_command() {  # instance
  echo env NGI_REGISTRY_FILE="$1/registry.reg" NGI_LOCK_DIR="$1" "$1/NorvaGuestIndexer" -opt yes "$1/out"
}

report=()
for size in big small wide; do
  tree=$bench/tree-$size
  case $size in
    big) make_tree "$tree" 100; folders=10000; files=200000 ;;
    small) make_tree "$tree" 25; folders=2500; files=50000 ;;
    wide) make_wide "$tree"; folders=1; files=1000000 ;;
  esac
  make_instance "$bench/instance-$size" "$tree"
  # Warm the cache, and check that the run works at all.
  find "$tree" -printf '%s %T@ %p\n' >/dev/null
  read -r -a command <<<"$(indexer_command "$bench/instance-$size")"
  "${command[@]}" >/dev/null || { echo "the indexer failed"; exit 1; }
  indexer=$(best_of_three "${command[@]}")
  finder=$(best_of_three find "$tree" -printf '%s %T@ %p\n')
  report+=("$size $folders $files $indexer $finder")
done

echo
printf '%-6s %8s %8s %12s %10s %8s %14s\n' tree folders files "indexer s" "find s" ratio "indexer KiB"
for line in "${report[@]}"; do
  read -r size folders files isec ikib fsec _ <<<"$line"
  ratio=$(awk -v a="$isec" -v b="$fsec" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }')
  printf '%-6s %8d %8d %12s %10s %8s %14s\n' "$size" "$folders" "$files" "$isec" "$fsec" "$ratio" "$ikib"
done
echo "target: ratio at most 1.3; peak memory about equal for the big and small trees"
