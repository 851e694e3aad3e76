#!/usr/bin/env bash
# Browser test of the catalogue's web page: builds the web tests' catalogue
# (two machines, budget-2026.xlsx in three versions), starts
# `ngi-catalogue serve` on a free loopback port, and drives the page in
# headless Chromium through chromium-driver and Selenium
# (scripts/web_browser_check.py): it searches, reads the results table,
# opens a file's versions and checks them. The screenshot is kept as
# $NGI_BUILD_DIR/test-web/page.png (build/test-web/page.png by default).
# The server is stopped on every exit. Skips, saying so, where Chromium or
# its driver cannot be installed or the programs are not built.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD_DIR:-build}
tool=$build/catalogue/ngi-catalogue
fixture=$build/catalogue/catalogue_web_fixture
if [ ! -x "$tool" ] || [ ! -x "$fixture" ]; then
  echo "test-web: skipped ($tool or $fixture not built)"
  exit 0
fi
# Debian's Python, which python3-selenium is installed for (not another on PATH).
py=/usr/bin/python3
if ! bash scripts/install-deps.sh browser >/dev/null 2>&1 ||
   ! command -v chromium >/dev/null || ! command -v chromedriver >/dev/null ||
   ! $py -c 'import selenium' 2>/dev/null; then
  echo "test-web: skipped (chromium, chromium-driver or python3-selenium cannot be installed here)"
  exit 0
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-web.XXXXXX")
artefacts=$build/test-web
mkdir -p "$artefacts"
server=
stop() {
  [ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null
  rm -rf "$work"
}
trap stop EXIT

"$fixture" "$work/runs" "$work/web.sqlite"
: >"$work/serve.txt"
"$tool" serve --db "$work/web.sqlite" --listen 127.0.0.1:0 >"$work/serve.txt" 2>&1 &
server=$!
# The server prints its address once it listens; cpp-httplib 0.11 has no
# readiness call, so poll for the line and then for the port.
url=
for _ in $(seq 100); do
  url=$(sed -n 's/^ngi-catalogue: serving .* on \(http[^ ]*\)$/\1/p' "$work/serve.txt")
  [ -n "$url" ] && $py - "$url" <<'PY' && break
import sys, urllib.request
urllib.request.urlopen(sys.argv[1] + "api/machines", timeout=1)
PY
  kill -0 "$server" 2>/dev/null || { echo "test-web: FAILED: the server ended: $(cat "$work/serve.txt")"; exit 1; }
  sleep 0.1
done
[ -n "$url" ] || { echo "test-web: FAILED: the server did not listen: $(cat "$work/serve.txt")"; exit 1; }

$py scripts/web_browser_check.py "$url" "$artefacts/page.png" "$work/chromium-profile"
echo "test-web: passed (screenshot: $artefacts/page.png)"
