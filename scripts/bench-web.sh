#!/usr/bin/env bash
# The web server's load check (not a timed test; not part of the test
# command):
#
#   scripts/bench-web.sh [DB] [REQUESTS] [CLIENTS]
#
# Starts `ngi-catalogue serve` on 127.0.0.1 over DB (default: the
# 30-restore-point database of scripts/bench-catalogue-db.sh,
# $NGI_BENCH_DIR/synthetic.sqlite, made by that script), sends 200 searches
# to warm it, then REQUESTS (10,000) searches from CLIENTS (8) concurrent
# clients (catalogue/bench/load_web.cpp), and prints the median and 99th
# percentile latency (targets: under 20 ms and 200 ms) and the server's
# memory through the run. `uptime` is printed before and after: figures
# taken on a busy machine say so.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD_DIR:-build}
db=${1:-${NGI_BENCH_DIR:-/tmp/ngi-bench-catdb}/synthetic.sqlite}
requests=${2:-10000}
clients=${3:-8}
if [ ! -f "$db" ] && [[ "$db" != postgres* ]]; then
  echo "bench-web: no database $db; make it with scripts/bench-catalogue-db.sh, or give one"
  exit 1
fi
cmake --build "$build" -j"${NGI_JOBS:-2}" --target ngi-catalogue catalogue_load_web >/dev/null
work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-bench-web.XXXXXX")
server=
stop() {
  [ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null
  rm -rf "$work"
}
trap stop EXIT
cp "$build/catalogue/ngi-catalogue" "$build/catalogue/catalogue_load_web" "$work/"

source scripts/serve-catalogue.sh
serve_catalogue "$work/ngi-catalogue" "$db" "$work" bench-web
port=${url#http://127.0.0.1:}
port=${port%/}

echo "database: $db ($("$work/ngi-catalogue" points --db "$db" | wc -l) restore points)"
echo "before: $(uptime)"
"$work/catalogue_load_web" 127.0.0.1 "$port" "$server" 200 "$clients" >/dev/null
"$work/catalogue_load_web" 127.0.0.1 "$port" "$server" "$requests" "$clients"
echo "after:  $(uptime)"
