#!/usr/bin/env bash
# End-to-end suite of the catalogue tool on what the indexer really writes:
# runs NorvaGuestIndexer (-opt yes; the volume's shadow is a plain folder, so
# the directory walk indexes it) over a copy of samples/volume-c with
# unicode names, an empty folder and links added, then checks ngi-catalogue's
# check, summary, export, find, ls and tree against the tree itself; then
# the NTFS pipeline's index of the legacy fixture image against fls.
# Uses the programs of build/ (or $NGI_BUILD_DIR) as the test command built
# them; skips when they are not there.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD_DIR:-build}
indexer=$build/src/app/NorvaGuestIndexer
tool=$build/catalogue/ngi-catalogue
if [ ! -x "$indexer" ] || [ ! -x "$tool" ]; then
  echo "test-catalogue: skipped ($indexer or $tool not built)"
  exit 0
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-cat-e2e.XXXXXX")
trap 'rm -rf "$work"' EXIT
instance=$work/instance
mkdir -p "$instance"
cp "$indexer" "$instance/"
cp -a samples/volume-c "$work/c"
mkdir -p "$work/c/Users/bob/Empty folder" "$work/c/Users/Zoë/Документы"
printf 'привет\n' > "$work/c/Users/Zoë/Документы/отчёт.TXT"
printf 'x' > "$work/c/Users/Zoë/comma, and 'quote'.txt"
ln -s "$work/c/Users/alice" "$work/c/Users/alice-link"
cp -a "$work/c" "$work/shadow-c"

cat > "$work/registry.reg" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]
"MountPoints"="C:"
"VolumeName"="{5a4d1e2c-0000-4c00-8000-00000000000c}"
"Folder"="$work/c"
REG
filter() {  # file lines...: UTF-16LE with its mark, CR LF
  local file=$1
  shift
  { printf '\xff\xfe'; printf '%s\r\n' "$@" | iconv -f UTF-8 -t UTF-16LE; } > "$file"
}
filter "$instance/NorvaGuestIndexer.inc.filter" 'C:\'
filter "$instance/NorvaGuestIndexer.exc.filter"
cat > "$instance/NorvaGuestIndexer.SnapshotMapping.xml" <<XML
<?xml version="1.0"?>
<ShadowsList>
  <Shadow>
    <OriginalVolumeGuidName>\\\\?\\Volume{5a4d1e2c-0000-4c00-8000-00000000000c}\\</OriginalVolumeGuidName>
    <ShadowMountPointName>$work/shadow-c</ShadowMountPointName>
    <IsClustered>false</IsClustered>
    <VolumeId>{0f6c1d3e-1111-4222-8333-944455556666}</VolumeId>
  </Shadow>
</ShadowsList>
XML
NGI_REGISTRY_FILE="$work/registry.reg" NGI_LOCK_DIR="$work" \
  "$instance/NorvaGuestIndexer" -opt yes "$work/out" >"$work/run.txt" 2>&1 || {
  echo "test-catalogue: the indexer failed"; cat "$work/run.txt"; exit 1; }

fail() { echo "test-catalogue: FAILED: $*"; exit 1; }
ifd=$(ls "$work"/out/volume.*.ifd)
[ "$(echo "$ifd" | wc -l)" = 1 ] || fail "expected one index file, got: $ifd"

"$tool" check "$ifd" > "$work/check.txt" || fail "check refused the indexer's file: $(cat "$work/check.txt")"
"$tool" summary "$work/out" > "$work/summary.txt" || fail "summary failed"
grep -qi "^volume C: $(basename "$ifd")" "$work/summary.txt" || fail "summary does not list C: $(cat "$work/summary.txt")"

# export against the tree: every file with its size, every folder.
"$tool" export "$ifd" --format csv > "$work/export.csv"
# A link to a file is listed as the walk sees it: a file of size 0.
(cd "$work/shadow-c" && find . -mindepth 1 \( -type f -printf '%P\t%s\n' \) -o \( -type l -xtype f -printf '%P\t0\n' \)) | sed 's|/|\\|g; s|^|\\|' | sort > "$work/tree-files"
# A link to a folder is a folder row too (and a reparse row), not followed.
(cd "$work/shadow-c" && find . -mindepth 1 \( -type d -o -type l -xtype d \) -printf '%P\n') | sed 's|/|\\|g; s|^|\\|' | sort > "$work/tree-dirs"
python3 - "$work/export.csv" > "$work/index-files" 3> "$work/index-dirs" <<'PY'
import csv, os, sys
dirs = os.fdopen(3, "w")
for row in csv.DictReader(open(sys.argv[1], newline="", encoding="utf-8")):
    if row["type"] == "file":
        print(f'{row["path"]}\t{row["size"]}')
    elif row["type"] == "dir" and row["path"] != "\\":
        print(row["path"], file=dirs)
PY
sort -o "$work/index-files" "$work/index-files"
sort -o "$work/index-dirs" "$work/index-dirs"
diff "$work/tree-files" "$work/index-files" || fail "export's files differ from the tree"
diff "$work/tree-dirs" "$work/index-dirs" || fail "export's folders differ from the tree"
"$tool" export "$ifd" --format jsonl | python3 -c 'import json, sys; [json.loads(l) for l in sys.stdin]' \
  || fail "export --format jsonl is not JSON lines"

# find without case, against find -iname.
want=$(cd "$work/shadow-c" && find . -type f -iname '*.txt' | wc -l)
got=$("$tool" find "$ifd" '*.TXT' --type f | wc -l)
[ "$want" = "$got" ] || fail "find '*.TXT' gave $got names, the tree has $want"
"$tool" find "$ifd" 'ОТЧЁТ.*' | grep -qx '\\Users\\Zoë\\Документы\\отчёт.TXT' || fail "find of a Cyrillic name"
"$tool" find "$ifd" 'alice-link' --type l | grep -q ' -> ' || fail "the link is not found as a link"

# ls and tree of a folder against its entries.
want=$(ls -A "$work/shadow-c/Users" | wc -l)
got=$("$tool" ls "$ifd" '\users' | wc -l)
[ "$want" = "$got" ] || fail "ls \\Users gave $got entries, the folder has $want"
want=$(cd "$work/shadow-c/Users" && find . -mindepth 1 | wc -l)
got=$("$tool" tree "$ifd" users | tail -n +2 | wc -l)
[ "$want" = "$got" ] || fail "tree Users gave $got entries, the tree has $want"
"$tool" ls "$ifd" 'Users\nobody' 2>/dev/null && fail "ls of a missing folder succeeded"
walked="$(wc -l < "$work/tree-files") files, $(wc -l < "$work/tree-dirs") folders"

# The run in a catalogue: every file of the tree found by search, in one
# restore point; the mixed folder of a second, failed run refused.
db=$work/catalogue.sqlite
"$tool" ingest "$work/out" --machine e2e --db "$db" >/dev/null || fail "ingest of the run failed"
want=$(wc -l < "$work/tree-files")
got=$("$tool" search '*' --type f --json --db "$db" | grep -c '"points":\[1\]')
[ "$want" = "$got" ] || fail "search '*' gave $got files of restore point 1, the tree has $want"
"$tool" versions 'C:\Users\Zoë\Документы\ОТЧЁТ.txt' --db "$db" | grep -q 'points 1$' ||
  fail "versions of a unicode name in another case found nothing"
cp -a "$work/out" "$work/mixed"
cp "$ifd" "$work/mixed/volume.d_.ifd"
"$tool" ingest "$work/mixed" --machine e2e --taken 2030-01-01 --db "$db" 2>"$work/err" && fail "a folder of two runs was ingested"
grep -q 'volume.d_.ifd is not named by' "$work/err" || fail "the refusal does not name the file: $(cat "$work/err")"

# Output that cannot be written is an error, in both programs.
"$tool" export "$ifd" --format csv >/dev/full 2>"$work/err" && fail "export to a full disk exited 0"
grep -q 'No space left on device' "$work/err" || fail "export to a full disk: $(cat "$work/err")"
"$build/tools/index_dump/NorvaIndexDump" "$ifd" >/dev/full 2>"$work/err" && fail "the index dump to a full disk exited 0"
grep -q 'No space left on device' "$work/err" || fail "the index dump to a full disk: $(cat "$work/err")"
# The manual page renders without warnings.
if command -v man >/dev/null; then
  warnings=$(MANWIDTH=80 man --warnings -l catalogue/man/ngi-catalogue.1 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "the manual page: $warnings"
fi

# The NTFS pipeline's index: the legacy fixture image as C:'s shadow, its
# export checked against the Sleuth Kit's listing of the image (paths,
# sizes, last-write times to the second). The pipeline leaves the volume's
# own files out, $Extend included; fls's stream and $FILE_NAME lines are
# not entries.
if command -v fls >/dev/null; then
  gzip -dc fixtures/ntfs/ntfs-legacy.img.gz > "$work/ntfs.img"
  mkdir -p "$work/empty"
  cat > "$work/registry.reg" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]
"MountPoints"="C:"
"VolumeName"="{5a4d1e2c-0000-4c00-8000-00000000000c}"
"Folder"="$work/empty"

[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Shadows\\S0]
"Name"="/dev/mapper/ngi-test-catalogue"
"Device"="$work/ntfs.img"
REG
  sed -i "s|<ShadowMountPointName>.*</ShadowMountPointName>|<ShadowMountPointName>/dev/mapper/ngi-test-catalogue</ShadowMountPointName>|" \
    "$instance/NorvaGuestIndexer.SnapshotMapping.xml"
  NGI_REGISTRY_FILE="$work/registry.reg" NGI_LOCK_DIR="$work" \
    "$instance/NorvaGuestIndexer" -opt yes "$work/ntfs-out" >"$work/run.txt" 2>&1 || {
    echo "test-catalogue: the indexer failed on the image"; cat "$work/run.txt"; exit 1; }
  nifd=$work/ntfs-out/volume.c_.ifd
  "$tool" check "$nifd" > "$work/check.txt" || fail "check refused the pipeline's file: $(cat "$work/check.txt")"
  "$tool" export "$nifd" --format csv | python3 -c '
import csv, sys
for r in csv.DictReader(sys.stdin):
    if r["type"] == "file":
        print("F", r["path"], r["size"], r["mtime"][:19])
    elif r["type"] == "dir" and r["path"] != "\\":
        print("D", r["path"])' | sort > "$work/ntfs-index"
  fls -r -p -m / "$work/ntfs.img" | python3 -c '
import datetime, sys
meta = {"$MFT", "$MFTMirr", "$LogFile", "$Volume", "$AttrDef", "$Bitmap", "$Boot", "$BadClus", "$Secure",
        "$UpCase", "$Extend", "$OrphanFiles"}
for line in sys.stdin:
    f = line.rstrip("\n").split("|")
    name, mode, size, mtime = f[1], f[3], f[6], int(f[8])
    if name.endswith(" ($FILE_NAME)") or ":" in name.split("/")[-1] or "(deleted" in name:
        continue
    path = name.replace("/", "\\")
    if path == "\\." or path.split("\\")[1] in meta:
        continue
    if mode.startswith("d/d"):
        print("D", path)
    else:
        print("F", path, size, datetime.datetime.utcfromtimestamp(mtime).strftime("%Y-%m-%dT%H:%M:%S"))' \
    | sort > "$work/ntfs-fls"
  diff "$work/ntfs-fls" "$work/ntfs-index" || fail "the pipeline's export differs from fls's listing of the image"
  want=$(grep -ci '^F .*\.txt ' "$work/ntfs-fls")
  got=$("$tool" find "$nifd" '*.TXT' --type f | wc -l)
  [ "$want" = "$got" ] || fail "find '*.TXT' on the pipeline's index gave $got names, fls has $want"
  "$tool" find "$nifd" 'jlink' --type l | grep -q ' -> ' || fail "the junction is not found as a link"
  want=$(grep -c '^[DF] \\[^\\]*\( [0-9]\|$\)' "$work/ntfs-fls" || true)
  got=$("$tool" ls "$nifd" | wc -l)
  [ "$want" = "$got" ] || fail "ls of the pipeline's root gave $got entries, fls has $want"
  echo "test-catalogue: the pipeline's index of the legacy fixture matches fls ($(wc -l < "$work/ntfs-fls") entries)"
else
  echo "test-catalogue: no fls, the pipeline's index not compared"
fi
echo "test-catalogue: passed ($walked)"
