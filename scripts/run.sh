#!/usr/bin/env bash
# The main job: builds the indexer and runs it as the backup system would,
# over the sample volume in samples/, then shows what it produced.
#
# It lays out, in a temporary folder:
#   instance/   the program with its two filter files and snapshot mapping
#   c/, d/      the live volumes C: and D: (C: a copy of samples/volume-c)
#   shadow-c/   C:'s shadow copy, a copy of c/ taken before C: changes
#   e.img       an NTFS volume image (fixtures/ntfs/ntfs-4k), the shadow of E:,
#               which the fast NTFS pipeline reads raw
#   registry.reg  the volume table that maps C:, D:, E: to those folders
# and runs: NorvaGuestIndexer -opt yes -log <work>/logs <work>/out
# then records the run in a catalogue (<work>/catalogue.sqlite), changes a
# few files of C:, runs the indexer again as the next backup would, records
# that run too, and asks the catalogue: search, versions, changes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
build=${NGI_BUILD_DIR:-build}  # another build folder, and fewer jobs, on a shared machine
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"${NGI_JOBS:-$(nproc)}" --target NorvaGuestIndexer NorvaIndexDump ngi-catalogue

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-run.XXXXXX")
instance=$work/instance
mkdir -p "$instance" "$work/d/Archive"
cp "$build/src/app/NorvaGuestIndexer" "$instance/"

# The volumes. Git carries no empty folders and no absolute links: add them.
cp -a samples/volume-c "$work/c"
mkdir -p "$work/c/Users/bob/Empty folder"
ln -s "$work/c/Users/alice/Documents/Projects" "$work/c/Users/alice/Desktop-Projects"
ln -s "$work/d/Archive" "$work/c/Users/bob/Archive on D"
printf 'old mail\n' > "$work/d/Archive/mail.txt"
cp -a "$work/c" "$work/shadow-c"
# E: is an NTFS volume whose shadow is an image file: read raw, never mounted.
mkdir -p "$work/e"
gzip -dc fixtures/ntfs/ntfs-4k.img.gz | cp --sparse=always /dev/stdin "$work/e.img"
# Written after the shadow was taken: the index does not see it.
printf 'too late\n' > "$work/c/Users/alice/Documents/after-the-snapshot.txt"

cat > "$work/registry.reg" <<EOF
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]
"MountPoints"="C:"
"VolumeName"="{5a4d1e2c-0000-4c00-8000-00000000000c}"
"Folder"="$work/c"

[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\D]
"MountPoints"="D:"
"VolumeName"="{5a4d1e2c-0000-4c00-8000-00000000000d}"
"Folder"="$work/d"

[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\E]
"MountPoints"="E:"
"VolumeName"="{5a4d1e2c-0000-4c00-8000-00000000000e}"
"Folder"="$work/e"
"Device"="$work/e.img"
EOF

# Filter files: UTF-16LE with its mark, lines ended by CR LF.
filter() {  # file lines...
  local file=$1
  shift
  { printf '\xff\xfe'; printf '%s\r\n' "$@" | iconv -f UTF-8 -t UTF-16LE; } > "$file"
}
filter "$instance/NorvaGuestIndexer.inc.filter" 'C:\Users' 'C:\Program Files' \
  'E:\deep' 'E:\owners' 'E:\reparse' 'E:\compressed'
filter "$instance/NorvaGuestIndexer.exc.filter" 'C:\Users\alice\AppData' 'E:\deep\l1\l2\l3'

cat > "$instance/NorvaGuestIndexer.SnapshotMapping.xml" <<EOF
<?xml version="1.0"?>
<ShadowsList>
  <Shadow>
    <OriginalVolumeGuidName>\\\\?\\Volume{5a4d1e2c-0000-4c00-8000-00000000000c}\\</OriginalVolumeGuidName>
    <ShadowMountPointName>$work/shadow-c</ShadowMountPointName>
    <IsClustered>false</IsClustered>
    <VolumeId>{0f6c1d3e-1111-4222-8333-944455556666}</VolumeId>
  </Shadow>
  <Shadow>
    <OriginalVolumeGuidName>\\\\?\\Volume{5a4d1e2c-0000-4c00-8000-00000000000e}\\</OriginalVolumeGuidName>
    <ShadowMountPointName>$work/e.img</ShadowMountPointName>
    <IsClustered>false</IsClustered>
    <VolumeId>{0f6c1d3e-1111-4222-8333-94445555777e}</VolumeId>
  </Shadow>
</ShadowsList>
EOF

echo "=== instance folder $instance"
ls -l "$instance"
echo
echo "=== NorvaGuestIndexer -opt yes -log $work/logs $work/out"
set +e
NGI_REGISTRY_FILE="$work/registry.reg" NGI_LOCK_DIR="$work" \
  "$instance/NorvaGuestIndexer" -opt yes -log "$work/logs" "$work/out"
code=$?
set -e
echo "(exit code $code)"
echo
echo "=== $work/out"
ls -l "$work/out"
if [ -f "$work/out/summary.txt" ]; then
  echo
  echo "=== summary.txt"
  iconv -f UTF-16 -t UTF-8 "$work/out/summary.txt" | tr -d '\r'
fi
for index in "$work"/out/volume.*.ifd; do
  [ -e "$index" ] || continue
  echo
  echo "=== $(basename "$index"), decoded"
  "$build/tools/index_dump/NorvaIndexDump" "$index"
done
echo
for log in "$work"/logs/*.log; do
  echo "=== the log, $log (UTF-16 on disk)"
  iconv -f UTF-16 -t UTF-8 "$log" | tr -d '\r'
done

# The catalogue: every backup's run recorded as a restore point of the
# machine, then asked across them.
cat=("$build/catalogue/ngi-catalogue")
db=$work/catalogue.sqlite
run_indexer() {
  NGI_REGISTRY_FILE="$work/registry.reg" NGI_LOCK_DIR="$work" \
    "$instance/NorvaGuestIndexer" -opt yes -log "$work/logs" "$work/out" >/dev/null
}
if [ "$code" -eq 0 ]; then
  echo "=== ngi-catalogue ingest $work/out --machine guest-01 --db $db"
  "${cat[@]}" ingest "$work/out" --machine guest-01 --db "$db"

  # The next backup: a document grows, one is deleted, one is new. The
  # shadow copy is what the indexer reads for C:, so it changes with C:.
  for root in "$work/c" "$work/shadow-c"; do
    printf 'second quarter\n' >> "$root/Users/alice/Documents/report.txt"
    rm -f "$root/Users/bob/Music/song.txt"
    printf 'budget figures\n' > "$root/Users/alice/Documents/budget-2026.xlsx"
  done
  sleep 1  # a restore point is known by its time: the second run is a second later
  echo
  echo "=== the indexer again, then ngi-catalogue ingest $work/out --machine guest-01 --db $db"
  run_indexer
  "${cat[@]}" ingest "$work/out" --machine guest-01 --db "$db"
  echo
  echo "=== ngi-catalogue points --db $db"
  "${cat[@]}" points --db "$db"
  echo
  echo "=== ngi-catalogue search report --db $db"
  "${cat[@]}" search report --db "$db" || true
  echo
  echo "=== ngi-catalogue versions 'C:\Users\alice\Documents\report.txt' --db $db"
  "${cat[@]}" versions 'C:\Users\alice\Documents\report.txt' --db "$db" || true
  echo
  echo "=== ngi-catalogue changes --from 1 --to 2 --db $db"
  "${cat[@]}" changes --from 1 --to 2 --db "$db"
  echo
  echo "=== ngi-catalogue search '*.txt' --machine guest-01 --json --db $db | head -2"
  "${cat[@]}" search '*.txt' --machine guest-01 --json --db "$db" | head -2
  echo
fi
echo "Everything is in $work; remove it when done."
exit "$code"
