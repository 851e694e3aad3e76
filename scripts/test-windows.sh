#!/usr/bin/env bash
# The Windows suite: installs MinGW-w64 and Wine if missing, cross-builds in
# build-windows/, runs every layer's unit test program under Wine, checks the
# indexer's answer to an empty command line, indexes a small folder with it
# by the directory walk, indexes an NTFS fixture image as a shadow and
# compares the index file byte for byte with the Linux build's, and checks
# that a setting put in Wine's registry reaches the run. Skips (exit 0, with
# a message) where the tools cannot be installed or Wine cannot start here.
# Budget: about 10 minutes on two cores with a first build; see
# docs/platform.md ("Windows build") for what each step checks.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${NGI_WINDOWS_BUILD:-$root/build-windows}

# The test programs that run under Wine: every layer's. Tests that hold on
# Linux only are left out of the Windows build by their file names
# (*_posix_test.cpp, *_e2e_test.cpp: cmake/NgiLayer.cmake).
tests=(base_tests platform_tests diag_tests store_tests inputs_tests metafile_tests ntfs_tests walk_tests
  fast_tests legacy_tests app_tests)

# Single test cases of files that hold otherwise, left out under Wine; the
# reason for each is in docs/platform.md ("Test cases left out under Wine").
excluded=(
  # the test registry is the file NGI_REGISTRY_FILE names
  Settings.ValuesReadInAnyCase
  Settings.WrongTypesAndDamagedFilesGiveDefaults
  Settings.ReadAheadValuesOutOfRangeGiveDefaults
  CleanupOldLogs.CountFromTheRegistry
  CGuardFixture.NameFromTheRegistryInAnyCase
  # a file changed or removed under a handle that shares no writing
  WriteCollector.FullBlockIsFlushedOnlyByTheNextWrite
  TableStream.DamageIsReportedAtItsRow
  IndexBase.DestructorLogsAFailedClose
  # Wine: "?" before a dot, the XML object's DTD
  SeqTable.RemoveLostTempFilesDeletesOnlyItsNames
  SnapshotMappingTest.DamagedFilesEndTheRun
  # Linux only: symbolic links made by the test, a folder opened as a volume
  LegacyWalk.EveryDirectoryButDotFoldersAndOnlyFilteredFiles
  OpenVolume.ImagesReadTheirBytesAndFoldersReadZeros
)

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

# The registry value the settings check below sets, gone before the unit
# tests (the priority guard's read the machine's registry) and after.
settings_key='HKLM\Software\Norva\Norva Archive And Mirror'
clear_setting() { "$wine" reg delete "$settings_key" /v NorvaGuestIndexerPriority /f >/dev/null 2>&1 || true; }
clear_setting
trap 'clear_setting; "$wineserver" -k >/dev/null 2>&1 || true' EXIT

echo "=== windows build"
bash scripts/build-windows.sh "$build" "${tests[@]}" NorvaGuestIndexer

echo "=== windows tests under wine"
pattern="^($(IFS='|'; echo "${tests[*]}"))\$"
# GoogleTest reads its filter from the environment; Wine passes it on.
(cd "$build" && GTEST_FILTER="-$(IFS=:; echo "${excluded[*]}")" ctest --timeout 300 --output-on-failure -R "$pattern")

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

echo "=== NorvaGuestIndexer.exe indexes an NTFS image as a volume's shadow, as the Linux build does"
# Under Win32 the shadow name of the snapshot mapping is opened with
# CreateFileW, so an image file's name serves as one. Both builds index the
# same fixture image as the shadow of the same volume (Z:, with the name Wine
# makes up from its letter) with the same filters; their index files must be
# equal byte for byte.
linux=${NGI_LINUX_BUILD:-$root/build}
if [ ! -f "$linux/CMakeCache.txt" ]; then
  launcher=()
  command -v ccache >/dev/null 2>&1 && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S "$root" -B "$linux" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" >/dev/null
fi
cmake --build "$linux" -j"${NGI_JOBS:-2}" --target NorvaGuestIndexer NorvaIndexDump >/dev/null
cmake --build "$build" --target ngi_fixture_images >/dev/null
image=$build/fixtures/ntfs/ntfs-4k.img
volume_z='\\?\Volume{00000000-0000-0000-0000-00000000005a}\'
ntfs=$build/ntfs-run
rm -rf "$ntfs"
mkdir -p "$ntfs/win/bin" "$ntfs/win/out" "$ntfs/win/log" "$ntfs/linux/bin" "$ntfs/linux/out" "$ntfs/linux/log" \
  "$ntfs/linux/locks" "$ntfs/linux/z"
mapping() {  # shadow name
  printf '<?xml version="1.0"?>\n<ShadowsList>\n  <Shadow>\n    <OriginalVolumeGuidName>%s</OriginalVolumeGuidName>\n' "$volume_z"
  printf '    <ShadowMountPointName>%s</ShadowMountPointName>\n  </Shadow>\n</ShadowsList>\n' "$1"
}
for side in win linux; do
  printf 'Z:\\\r\n' | iconv -f UTF-8 -t UTF-16LE | { printf '\xff\xfe'; cat; } >"$ntfs/$side/bin/NorvaGuestIndexer.inc.filter"
  printf '\xff\xfe' >"$ntfs/$side/bin/NorvaGuestIndexer.exc.filter"
done
cp "$exe" "$ntfs/win/bin/"
mapping "$(winpath "$image")" >"$ntfs/win/bin/NorvaGuestIndexer.SnapshotMapping.xml"
cp "$linux/src/app/NorvaGuestIndexer" "$ntfs/linux/bin/"
mapping "$image" >"$ntfs/linux/bin/NorvaGuestIndexer.SnapshotMapping.xml"
# On Linux the volume table of the registry file names Z: (its live folder
# empty: the shadow is what is read).
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\Z]\r\n"MountPoints"="Z:"\r\n"VolumeName"="{00000000-0000-0000-0000-00000000005a}"\r\n"Folder"="%s"\r\n' \
  "$ntfs/linux/z" >"$ntfs/linux/registry.reg"
# Runs both builds on their mappings; their exit codes in rc_win, rc_linux.
run_both() {
  set +e
  "$wine" "$ntfs/win/bin/NorvaGuestIndexer.exe" -log "$(winpath "$ntfs/win/log")" -opt yes \
    "$(winpath "$ntfs/win/out")" >"$ntfs/win/stdout" 2>"$ntfs/win/stderr"
  rc_win=$?
  NGI_REGISTRY_FILE=$ntfs/linux/registry.reg NGI_LOCK_DIR=$ntfs/linux/locks "$ntfs/linux/bin/NorvaGuestIndexer" \
    -log "$ntfs/linux/log" -opt yes "$ntfs/linux/out" >"$ntfs/linux/stdout" 2>"$ntfs/linux/stderr"
  rc_linux=$?
  set -e
}
run_both
for side in win linux; do
  out=$ntfs/$side/out
  side_log=$(cat "$ntfs/$side"/log/*.log 2>/dev/null | iconv -f UTF-16LE -t UTF-8 | tr -d '\r' || true)
  # The NTFS reader, not the walk, must have made the index.
  if [ ! -s "$out/volume.z_.ifd" ] || [ ! -s "$out/summary.txt" ] ||
    ! grep -q "Execute NTFS parsing algorithm. Ok.$" <<<"$side_log"; then
    echo "test-windows: the NTFS image run of the $side build failed (exits: Windows $rc_win, Linux $rc_linux):"
    cat "$ntfs/$side/stderr"; ls -l "$out"; echo "$side_log" | tail -40
    exit 1
  fi
done
if [ "$rc_win" -ne 0 ] || [ "$rc_linux" -ne 0 ]; then
  echo "test-windows: the NTFS image runs exited $rc_win (Windows) and $rc_linux (Linux), not 0"
  exit 1
fi
if ! cmp "$ntfs/win/out/volume.z_.ifd" "$ntfs/linux/out/volume.z_.ifd"; then
  echo "test-windows: the Windows and Linux builds wrote different index files for the same image:"
  dump=$linux/tools/index_dump/NorvaIndexDump
  diff <("$dump" "$ntfs/win/out/volume.z_.ifd") <("$dump" "$ntfs/linux/out/volume.z_.ifd") | head -40
  exit 1
fi
if ! cmp "$ntfs/win/out/summary.txt" "$ntfs/linux/out/summary.txt"; then
  echo "test-windows: the Windows and Linux builds wrote different summaries for the same image"
  exit 1
fi

echo "=== NorvaGuestIndexer.exe reads a 4Kn block device through a shadow copy's name, as the Linux build does"
# The 4096-byte-sector fixture attached as a loop device of 4096-byte
# sectors; Wine opens \\.\HarddiskVolumeShadowCopy1 through a dosdevices
# link of that name. The Linux build reads the device itself (O_DIRECT);
# both indexes must be equal byte for byte. Needs root and losetup.
loop=""
if [ "$(id -u)" = 0 ] && command -v losetup >/dev/null; then
  loop=$(losetup --find --show --read-only --direct-io=on --sector-size 4096 "$build/fixtures/ntfs/ntfs-rec4k.img" 2>/dev/null || true)
fi
if [ -z "$loop" ]; then
  echo "test-windows: no 4Kn loop device (needs root and losetup), this check skipped"
else
  trap 'losetup -d "$loop" 2>/dev/null; clear_setting; "$wineserver" -k >/dev/null 2>&1 || true' EXIT
  ln -sfn "$loop" "$WINEPREFIX/dosdevices/harddiskvolumeshadowcopy1"
  for side in win linux; do
    rm -rf "$ntfs/$side/out" "$ntfs/$side/log"
    mkdir -p "$ntfs/$side/out" "$ntfs/$side/log"
  done
  mapping '\\.\HarddiskVolumeShadowCopy1' >"$ntfs/win/bin/NorvaGuestIndexer.SnapshotMapping.xml"
  mapping "$loop" >"$ntfs/linux/bin/NorvaGuestIndexer.SnapshotMapping.xml"
  run_both
  for side in win linux; do
    side_log=$(cat "$ntfs/$side"/log/*.log 2>/dev/null | iconv -f UTF-16LE -t UTF-8 | tr -d '\r' || true)
    if [ ! -s "$ntfs/$side/out/volume.z_.ifd" ] || ! grep -q "Execute NTFS parsing algorithm. Ok.$" <<<"$side_log"; then
      echo "test-windows: the 4Kn device run of the $side build failed (exits: Windows $rc_win, Linux $rc_linux):"
      cat "$ntfs/$side/stderr"; echo "$side_log" | tail -40
      exit 1
    fi
  done
  if ! cmp "$ntfs/win/out/volume.z_.ifd" "$ntfs/linux/out/volume.z_.ifd"; then
    echo "test-windows: the Windows and Linux builds indexed the 4Kn device differently:"
    dump=$linux/tools/index_dump/NorvaIndexDump
    diff <("$dump" "$ntfs/win/out/volume.z_.ifd") <("$dump" "$ntfs/linux/out/volume.z_.ifd") | head -40
    exit 1
  fi
  rm -f "$WINEPREFIX/dosdevices/harddiskvolumeshadowcopy1"
  losetup -d "$loop"
  trap 'clear_setting; "$wineserver" -k >/dev/null 2>&1 || true' EXIT
fi

echo "=== a setting in the registry (wine reg add) reaches NorvaGuestIndexer.exe"
# The priority name of the run, read from the machine's registry: a name not
# in the list is logged and changes nothing. The folder run above had no
# such value, so its log has no such line.
if grep -q "Invalid priority name" <<<"$log"; then
  echo "test-windows: the folder run logged an invalid priority name without the registry value"
  exit 1
fi
"$wine" reg add "$settings_key" /v NorvaGuestIndexerPriority /t REG_SZ /d FAST /f >/dev/null
rm -rf "$e2e/log" "$e2e/out"
set +e
"$wine" "$e2e/bin/NorvaGuestIndexer.exe" -log "$(winpath "$e2e/log")" -opt yes -parse_fs no \
  "$(winpath "$e2e/out")" >"$e2e/stdout" 2>"$e2e/stderr"
rc=$?
set -e
clear_setting
log=$(cat "$e2e"/log/*.log 2>/dev/null | iconv -f UTF-16LE -t UTF-8 | tr -d '\r' || true)
if [ "$rc" -ne 0 ] || ! grep -q "ERR     Invalid priority name \[FAST\]$" <<<"$log"; then
  echo "test-windows: the priority name FAST from the registry did not show in the log (exit $rc):"
  echo "$log" | head -20
  exit 1
fi

echo "=== windows suite passed"
