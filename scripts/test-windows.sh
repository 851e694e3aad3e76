#!/usr/bin/env bash
# The Windows suite: installs MinGW-w64 and Wine if missing, cross-builds in
# build-windows/, runs the unit test programs of the layers that are complete
# for Windows under Wine, checks the indexer's answer to an empty command
# line, and indexes a small folder with it by the directory walk. Skips (exit 0, with a message) where the tools cannot be installed or
# Wine cannot start here. Budget: about 8 minutes, installs included.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${NGI_WINDOWS_BUILD:-$root/build-windows}

# The test programs that run under Wine: their layers build for Windows and
# their tests hold there. Add a layer's program when its layer is complete.
tests=(base_tests platform_tests)

skip() {
  echo "test-windows: skipped: $*"
  exit 0
}

timeout 300 bash scripts/install-deps.sh windows || skip "MinGW-w64 or Wine could not be installed"

wine=""
for candidate in /usr/bin/wine /usr/lib/wine/wine64; do
  if [ -x "$candidate" ]; then wine=$candidate; break; fi
done
[ -n "$wine" ] || skip "no Wine loader found"
wineserver=/usr/lib/wine/wineserver
[ -x /usr/bin/wineserver ] && wineserver=/usr/bin/wineserver

# A prefix of our own, set up headless: no display is needed for console
# programs; the Mono and Gecko installers are switched off.
export WINEPREFIX=$build/wineprefix
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
mkdir -p "$build"
if ! timeout 180 "$wine" wineboot -i >"$build/wineboot.log" 2>&1; then
  skip "Wine cannot start here (see $build/wineboot.log)"
fi
trap '"$wineserver" -k >/dev/null 2>&1 || true' EXIT

echo "=== windows build"
bash scripts/build-windows.sh "$build" "${tests[@]}" NorvaGuestIndexer

echo "=== windows tests under wine"
pattern="^($(IFS='|'; echo "${tests[*]}"))\$"
(cd "$build" && ctest --timeout 300 --output-on-failure -R "$pattern")

echo "=== NorvaGuestIndexer.exe without arguments"
exe=$build/src/app/NorvaGuestIndexer.exe
set +e
"$wine" "$exe" >"$build/noargs.out" 2>"$build/noargs.err"
rc=$?
set -e
# Redirected console output has Windows line ends.
out=$(tr -d '\r' <"$build/noargs.out")
err=$(tr -d '\r' <"$build/noargs.err")
if [ "$rc" -ne 1 ]; then
  echo "test-windows: NorvaGuestIndexer.exe without arguments exited $rc, not 1"
  exit 1
fi
if ! grep -q "^Usage:" <<<"$out" || ! grep -q "NorvaGuestIndexer.exe \[-log" <<<"$out" ||
  ! grep -qx "Error: Parameters not found." <<<"$err"; then
  echo "test-windows: NorvaGuestIndexer.exe without arguments did not print the usage:"
  echo "--- stdout"; echo "$out"; echo "--- stderr"; echo "$err"
  exit 1
fi
echo "=== NorvaGuestIndexer.exe indexes a folder by the directory walk"
# The program reads its filters beside itself; Wine shows / as drive Z:.
e2e=$build/e2e
rm -rf "$e2e"
mkdir -p "$e2e/bin" "$e2e/data/sub" "$e2e/out" "$e2e/log"
cp "$exe" "$e2e/bin/"
printf 'hello\n' >"$e2e/data/a.txt"
printf 'x\n' >"$e2e/data/sub/b.bin"
winpath() { echo "Z:$1" | tr '/' '\\'; }
# UTF-16LE with a byte order mark, CR LF line ends.
printf '%s\r\n' "$(winpath "$e2e/data")" | iconv -f UTF-8 -t UTF-16LE |
  { printf '\xff\xfe'; cat; } >"$e2e/bin/NorvaGuestIndexer.inc.filter"
printf '\xff\xfe' >"$e2e/bin/NorvaGuestIndexer.exc.filter"
set +e
"$wine" "$e2e/bin/NorvaGuestIndexer.exe" -log "$(winpath "$e2e/log")" -opt yes -parse_fs no \
  "$(winpath "$e2e/out")" >"$e2e/stdout" 2>"$e2e/stderr"
rc=$?
set -e
log=$(cat "$e2e"/log/*.log 2>/dev/null | iconv -f UTF-16LE -t UTF-8 | tr -d '\r' || true)
# Directories: the root, each folder on the way to data, data itself and sub.
dirs=$(($(tr -cd / <<<"$e2e/data" | wc -c) + 2))
if [ "$rc" -ne 0 ] || [ ! -s "$e2e/out/summary.txt" ] || [ ! -s "$e2e/out/volume.z_.ifd" ] ||
  ! grep -q "files 2$" <<<"$log" || ! grep -q "directories $dirs$" <<<"$log"; then
  echo "test-windows: the run under Wine failed (exit $rc):"
  cat "$e2e/stderr"; ls -l "$e2e/out"; echo "$log" | tail -40
  exit 1
fi
echo "=== windows suite passed"
