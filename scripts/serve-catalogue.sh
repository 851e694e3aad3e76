# Sourced by scripts/test-web.sh and scripts/bench-web.sh: starts
# `ngi-catalogue serve` on a free loopback port and waits until it answers.
#
#   serve_catalogue TOOL DB WORKDIR NAME
#
# Sets `server` (its process id; the caller's EXIT trap kills it) and `url`
# ("http://127.0.0.1:PORT/"). The server prints its address once it listens;
# cpp-httplib 0.11 has no readiness call, so this polls for that line and
# then for an answer. Exits with "NAME: FAILED: ..." when it does not come.
serve_catalogue() {
  local tool=$1 db=$2 work=$3 name=$4
  : >"$work/serve.txt"
  "$tool" serve --db "$db" --listen 127.0.0.1:0 >"$work/serve.txt" 2>&1 &
  server=$!
  url=
  for _ in $(seq 100); do
    url=$(sed -n 's/^ngi-catalogue: serving .* on \(http[^ ]*\)$/\1/p' "$work/serve.txt")
    [ -n "$url" ] && /usr/bin/python3 -c 'import sys, urllib.request; urllib.request.urlopen(sys.argv[1], timeout=1)' \
      "${url}api/machines" 2>/dev/null && return 0
    kill -0 "$server" 2>/dev/null || { echo "$name: FAILED: the server ended: $(cat "$work/serve.txt")"; exit 1; }
    sleep 0.1
  done
  echo "$name: FAILED: the server did not answer: $(cat "$work/serve.txt")"
  exit 1
}
