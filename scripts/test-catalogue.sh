#!/usr/bin/env bash
# End-to-end suite of the catalogue tool on what the indexer really writes:
# runs NorvaGuestIndexer (-opt yes; the volume's shadow is a plain folder, so
# the directory walk indexes it) over a copy of samples/volume-c with
# unicode names, an empty folder and links added, then checks ngi-catalogue's
# check, summary, export, find, ls and tree against the tree itself.
# Uses the programs of build/ (or $NGI_BUILD_DIR) as the test command built
# them; skips when they are not there.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${NGI_BUILD_DIR:-build}
indexer=$build/src/app/NorvaGuestIndexer
tool=$build/tools/catalogue/ngi-catalogue
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
echo "test-catalogue: passed ($(wc -l < "$work/tree-files") files, $(wc -l < "$work/tree-dirs") folders)"
