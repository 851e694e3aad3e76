#!/usr/bin/env bash
# The catalogue database benchmark (docs/catalogue-db.md, "Measured").
#
#   scripts/bench-catalogue-db.sh [FILES] [POINTS]
#
# Two volumes: FILES synthetic file names that never repeat (default
# 1,000,000, the index of scripts/bench-catalogue.sh), and the paths of this
# machine's own tree (find / -xdev, without /proc, /sys, /tmp, /work), whose
# names repeat as real names do, and that tree with two of its folders
# copied (real30, where they repeat more). For each: POINTS restore points (default
# 30), each with about 1% of the files changed, gone or new
# (catalogue/bench/bench_index.cpp). Prints, for SQLite and PostgreSQL:
# the first ingest in rows a second, database bytes a file row, the size
# after all points against the size after the first, and a name search over
# all points (best of five, warm) against the baseline: every point's CSV
# export loaded with sqlite3 .import and a LIKE query.
#
# Not part of the test command. Indexes are kept in $NGI_BENCH_DIR
# (default /tmp/ngi-bench-catdb) between runs; NGI_BENCH_REAL=0 leaves the
# machine's own tree out.
set -euo pipefail
cd "$(dirname "$0")/.."
files=${1:-1000000}
points=${2:-30}
build=${NGI_BUILD_DIR:-build}
work=${NGI_BENCH_DIR:-/tmp/ngi-bench-catdb}
cmake --build "$build" -j"${NGI_JOBS:-2}" --target ngi-catalogue catalogue_bench_index >/dev/null
command -v /usr/bin/time >/dev/null || { echo "bench-catalogue-db: needs /usr/bin/time (package time)"; exit 1; }
mkdir -p "$work/bin"
# Copies: a build during the run does not change the program measured.
cp "$build/catalogue/ngi-catalogue" "$build/catalogue/catalogue_bench_index" "$work/bin/"
tool=$work/bin/ngi-catalogue
maker=$work/bin/catalogue_bench_index

ms() { echo $(( ($(date +%s%N) - $1) / 1000000 )); }
# best of five wall-clock milliseconds of a command, after one warm-up run
best_ms() {
  "$@" >/dev/null 2>&1 || true
  local best=999999999 t0 t
  for _ in 1 2 3 4 5; do
    t0=$(date +%s%N); "$@" >/dev/null 2>&1 || true; t=$(ms "$t0")
    ((t < best)) && best=$t
  done
  echo "$best"
}

# A PostgreSQL server of Debian's package in a temporary folder, on a socket.
pg_bin=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -1 || true)
pg_dir=
pg_stop() {
  [ -n "$pg_dir" ] || return 0
  runuser -u postgres -- "$pg_bin/pg_ctl" -D "$pg_dir/data" -m fast -w stop >/dev/null 2>&1 || true
  rm -rf "$pg_dir"
}
trap pg_stop EXIT
if [ -n "$pg_bin" ] && id -u postgres >/dev/null 2>&1; then
  pg_dir=$(mktemp -d /tmp/ngi-bench-pg.XXXXXX)
  chown postgres "$pg_dir"
  runuser -u postgres -- "$pg_bin/initdb" -D "$pg_dir/data" -A trust -U postgres -E UTF8 --no-locale >/dev/null
  runuser -u postgres -- "$pg_bin/pg_ctl" -D "$pg_dir/data" -l "$pg_dir/server.log" -w \
    -o "-k $pg_dir -c listen_addresses=''" start >/dev/null
else
  echo "PostgreSQL figures skipped: package postgresql not installed or no user postgres"
fi
pg_db() {  # NAME: a fresh database, its conninfo
  "$pg_bin/psql" -q -h "$pg_dir" -U postgres -d postgres -c "DROP DATABASE IF EXISTS $1" -c "CREATE DATABASE $1" \
    >/dev/null 2>&1
  echo "postgresql:///$1?host=$pg_dir&user=postgres"
}

# The indexes of one volume, generation 0 to POINTS-1 (kept).
make_points() {  # SET ARGS...
  local set=$1; shift
  for ((g = 0; g < points; g++)); do
    local dir=$work/$set/g$g
    [ -f "$dir/summary.txt" ] && continue
    mkdir -p "$dir"
    "$maker" "$dir" "$g" "$@" >/dev/null
  done
}

run_set() {  # SET PATTERN
  local set=$1 pattern=$2
  local rows
  rows=$("$tool" check "$work/$set/g0/volume.B_.ifd" | awk '/files/ {f=$2} /directories/ {d=$2} END {print f + d}')
  local filerows
  filerows=$("$tool" check "$work/$set/g0/volume.B_.ifd" | awk '/^  files/ {print $2}')
  echo
  echo "== $set: $filerows files, $rows entries a point, $points points; search '$pattern'"
  for backend in sqlite postgresql; do
    local db
    if [ $backend = sqlite ]; then
      db=$work/$set.sqlite
      rm -f "$db"
    else
      [ -n "$pg_dir" ] || continue
      db=$(pg_db "bench_$set")
    fi
    local t0 t first total size1 size cpu
    t0=$(date +%s%N)
    # The program's own processor time too: on a shared machine the wall
    # clock also counts the waits for a processor (PostgreSQL's server is
    # another process, not counted).
    cpu=$(/usr/bin/time -f '%U %S' "$tool" ingest "$work/$set/g0" --machine bench --taken 2026-01-01 --db "$db" \
      2>&1 >/dev/null | awk 'END {printf "%d", ($1 + $2) * 1000}')
    first=$(ms "$t0")
    size1=$(db_size "$db")
    t0=$(date +%s%N)
    for ((g = 1; g < points; g++)); do
      "$tool" ingest "$work/$set/g$g" --machine bench --taken "2026-01-01T$(printf %02d $((g / 60))):$(printf %02d $((g % 60)))" \
        --db "$db" >/dev/null
    done
    total=$(ms "$t0")
    size=$(db_size "$db")
    local hits search
    hits=$("$tool" search "$pattern" --db "$db" --json | wc -l)
    search=$(best_ms "$tool" search "$pattern" --db "$db")
    printf '%-10s first ingest %6d ms = %8d rows/s (processor %d ms = %d rows/s), %5.1f bytes a file row;\n' \
      "$backend" "$first" $((rows * 1000 / (first > 0 ? first : 1))) "$cpu" $((rows * 1000 / (cpu > 0 ? cpu : 1))) \
      "$(echo "$size1 / $filerows" | bc -l)"
    printf '%-10s %d more points %6d ms (%d ms each);\n' "" \
      $((points - 1)) "$total" $((total / (points > 1 ? points - 1 : 1)))
    printf '%-10s size %d -> %d bytes (%.2fx); search: %d versions in %d ms\n' "" "$size1" "$size" \
      "$(echo "$size / $size1" | bc -l)" "$hits" "$search"
    [ $backend = sqlite ] && sqlite_search=$search
  done
  # The baseline: every point's CSV export in one table, a LIKE query.
  local base=$work/$set-baseline.sqlite
  if [ ! -f "$base" ]; then
    for ((g = 0; g < points; g++)); do
      "$tool" export "$work/$set/g$g/volume.B_.ifd" --format csv | tail -n +2
    done > "$work/$set-all.csv"
    sqlite3 "$base" "CREATE TABLE rows(type, path, size, mtime, owner_sid, owner_account, target);" \
      ".mode csv" ".import $work/$set-all.csv rows"
    rm -f "$work/$set-all.csv"
  fi
  local like
  like=$(best_ms sqlite3 "$base" "SELECT count(*) FROM rows WHERE path LIKE '%$pattern%'")
  local s=${sqlite_search:-1}
  ((s > 0)) || s=1
  printf '%-10s %d rows as seen, %d bytes; LIKE query %d ms: the catalogue is %.1fx faster\n' "baseline" \
    "$(sqlite3 "$base" 'SELECT count(*) FROM rows')" "$(stat -c %s "$base")" "$like" "$(echo "$like / $s" | bc -l)"
}

db_size() {  # the database's bytes (PostgreSQL: beyond those of an empty database)
  case $1 in
    postgresql://*) "$pg_bin/psql" -At "$1" \
                      -c "SELECT pg_database_size(current_database()) - pg_database_size('template0')" ;;
    *) stat -c %s "$1" ;;
  esac
}

echo "machine: $(nproc) processors, load $(cut -d' ' -f1-3 /proc/loadavg), build $build"
make_points synthetic --synthetic "$files" $((files / 100))
run_set synthetic "file_4242"

[ "${NGI_BENCH_REAL:-1}" = 1 ] || exit 0  # NGI_BENCH_REAL=0: the synthetic volume only
list=$work/real-names.txt
if [ ! -f "$list" ]; then
  find / -xdev \( -path /proc -o -path /sys -o -path /tmp -o -path /work \) -prune -o \
    \( -type d -printf '%P/\n' -o -printf '%P\n' \) 2>/dev/null | grep -v '^/$' > "$list" || true
fi
make_points real --list "$list"
# A part of a name that about 100 distinct names hold.
pattern=$(awk -F/ '{print tolower($NF)}' "$list" | sort -u > "$work/real-distinct.txt"
  for w in config socket crypt parse locale python index error font test; do
    echo "$(grep -c -- "$w" "$work/real-distinct.txt") $w"
  done | awk '{d = $1 - 100; if (d < 0) d = -d; print d, $2}' | sort -n | head -1 | cut -d' ' -f2)
run_set real "$pattern"

# The same tree with its two largest second-level folders copied once more
# under old/, as a volume that holds an older copy of its system or of a
# user's profile does: names repeat more (about 30% distinct here).
list30=$work/real30-names.txt
if [ ! -f "$list30" ]; then
  top=$(awk -F/ 'NF > 1 && $2 != "" {print $1 "/" $2}' "$list" | sort | uniq -c | sort -rn | head -2 | awk '{print $2}')
  { cat "$list"
    for folder in $top; do grep -F -e "$folder/" "$list" | awk -v f="$folder/" 'index($0, f) == 1' | sed 's|^|old/|'; done
  } > "$list30"
fi
make_points real30 --list "$list30"
run_set real30 "$pattern"
