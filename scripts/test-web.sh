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
source scripts/serve-catalogue.sh
serve_catalogue "$tool" "$work/web.sqlite" "$work" test-web

$py scripts/web_browser_check.py "$url" "$artefacts/page.png" "$work/chromium-profile"
echo "test-web: passed (screenshot: $artefacts/page.png)"
