#!/usr/bin/env bash
# Builds the NTFS fixture volumes of the raw reader's tests.
#
# Every image is made by mkntfs into a sparse file and filled through an
# ntfs-3g mount, so the on-disk structures come from an NTFS implementation
# that nobody on this team wrote. The small images are gzip-compressed into
# fixtures/ntfs/ and committed; the large one (a folder of 100,000 entries)
# is only built on demand, into a cache folder, because it compresses to
# several MiB.
#
# Usage:
#   make-ntfs-fixtures.sh              rebuild the committed images in fixtures/ntfs/
#   make-ntfs-fixtures.sh --out DIR    the same images, into DIR
#   make-ntfs-fixtures.sh --large DIR  build DIR/ntfs-100k.img (not compressed)
#   make-ntfs-fixtures.sh --only NAME  rebuild only the committed image NAME
#                                      (ntfs-4k.img, ..., ntfs-legacy.img)
#
# Needs root (or FUSE rights), mkntfs, ntfs-3g, setfattr and python3. Exits 0
# with a message and builds nothing when FUSE mounting is impossible.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
out=$root/fixtures/ntfs
large=""
only=""
while (($#)); do
  case $1 in
    --out) out=$2; shift 2 ;;
    --large) large=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    *) echo "usage: $0 [--out DIR] [--large DIR] [--only NAME]" >&2; exit 2 ;;
  esac
done

for tool in mkntfs ntfs-3g setfattr python3 fusermount3; do
  command -v "$tool" >/dev/null || [ -x "/usr/sbin/$tool" ] || {
    echo "make-ntfs-fixtures: $tool missing, nothing built"; exit 0; }
done
[ -c /dev/fuse ] || { echo "make-ntfs-fixtures: no /dev/fuse, nothing built"; exit 0; }
export PATH=$PATH:/usr/sbin

work=$(mktemp -d "${TMPDIR:-/tmp}/ngi-ntfs-fix.XXXXXX")
mnt=$work/mnt
mkdir -p "$mnt"
cleanup() {
  mountpoint -q "$mnt" 2>/dev/null && umount "$mnt" || true
  rm -rf "$work"
}
trap cleanup EXIT

# Byte strings that ntfs-3g takes through extended attributes, as hex.
#   sd OWNER-SID                 self-relative security descriptor, owner and group
#                                OWNER-SID, a DACL granting Everyone full access
#   reparse TAG SUBST PRINT [F]  reparse buffer; mount-point layout for tag
#                                0xA0000003, symbolic-link layout (flags F) for
#                                0xA000000C, any other tag carries SUBST as UTF-8
blob() {
  python3 - "$@" <<'EOF'
import struct, sys
def sid(text):
    parts = text.split('-')
    rev, auth, subs = int(parts[1]), int(parts[2]), [int(x) for x in parts[3:]]
    return struct.pack('<BB', rev, len(subs)) + auth.to_bytes(6, 'big') + \
        b''.join(struct.pack('<I', s) for s in subs)
kind = sys.argv[1]
if kind == 'sd':
    owner = sid(sys.argv[2])
    everyone = sid('S-1-1-0')
    ace = struct.pack('<BBHI', 0, 0, 8 + len(everyone), 0x1F01FF) + everyone
    acl = struct.pack('<BBHHH', 2, 0, 8 + len(ace), 1, 0) + ace
    off_owner = 20
    off_group = off_owner + len(owner)
    off_dacl = off_group + len(owner)
    data = struct.pack('<BBHIIII', 1, 0, 0x8004, off_owner, off_group, 0, off_dacl) + owner + owner + acl
elif kind == 'reparse':
    tag = int(sys.argv[2], 16)
    subst = sys.argv[3].encode('utf-16-le')
    printn = sys.argv[4].encode('utf-16-le')
    if tag == 0xA0000003:
        body = struct.pack('<HHHH', 0, len(subst), len(subst) + 2, len(printn)) + subst + b'\0\0' + printn + b'\0\0'
    elif tag == 0xA000000C:
        flags = int(sys.argv[5]) if len(sys.argv) > 5 else 0
        body = struct.pack('<HHHHI', 0, len(subst), len(subst), len(printn), flags) + subst + printn
    else:
        body = sys.argv[3].encode('utf-8')
    data = struct.pack('<IHH', tag, len(body), 0) + body
print('0x' + data.hex())
EOF
}

mount_img() {  # image [options]
  ntfs-3g -o "permissions${2:+,$2}" "$1" "$mnt"
}
unmount_img() {
  sync
  umount "$mnt"
}

# mkimage NAME SIZE MKNTFS-ARGS...: a fresh, empty volume in the work folder.
mkimage() {
  local name=$1 size=$2
  shift 2
  rm -f "$work/$name"
  truncate -s "$size" "$work/$name"
  mkntfs -F -q -Q -L "$name" "$@" "$work/$name" >/dev/null 2>&1
}

# The content every image gets: nested and unicode folders, long names, data
# of every size class, hard links, streams, owners and reparse points, and a
# folder big enough to need index blocks.
fill_common() {
  local m=$mnt
  mkdir -p "$m/deep/l1/l2/l3/l4/l5/l6/l7/l8"
  echo "bottom" >"$m/deep/l1/l2/l3/l4/l5/l6/l7/l8/bottom.txt"
  mkdir -p "$m/Ünïcødé dïr/日本語フォルダ"
  echo "u" >"$m/Ünïcødé dïr/日本語フォルダ/файл.txt"
  echo "emoji" >"$m/Ünïcødé dïr/smile😀.txt"
  local long
  long=$(printf 'L%.0s' $(seq 1 250))
  echo "long" >"$m/deep/${long}.txt"
  echo "case" >"$m/deep/MixedCase.TXT"
  : >"$m/empty.bin"
  head -c 700 /dev/urandom >"$m/resident.bin"
  python3 -c 'print("".join("%06d" % i for i in range(25000)), end="")' >"$m/nonresident.bin"
  # Hard links in several folders.
  mkdir -p "$m/links/a" "$m/links/b"
  echo "linked" >"$m/links/target.txt"
  ln "$m/links/target.txt" "$m/links/a/second.txt"
  ln "$m/links/target.txt" "$m/links/b/third name.txt"
  # Alternate data streams, one resident, one not.
  echo "main" >"$m/streams.txt"
  setfattr -n user.small -v "stream data" "$m/streams.txt"
  setfattr -n user.big -v "0x$(head -c 3000 /dev/urandom | od -An -tx1 | tr -d ' \n')" "$m/streams.txt"
  # Owners: one descriptor per owner, so $Secure holds several ids.
  mkdir -p "$m/owners"
  local o
  for o in S-1-5-18 S-1-5-32-544 S-1-5-21-1111-2222-3333-1001 S-1-5-21-1111-2222-3333-1002 S-1-1-0; do
    echo "$o" >"$m/owners/$o.txt"
    setfattr -n system.ntfs_acl -v "$(blob sd "$o")" "$m/owners/$o.txt"
  done
  mkdir -p "$m/owners/dir-owned"
  setfattr -n system.ntfs_acl -v "$(blob sd S-1-5-21-1111-2222-3333-1002)" "$m/owners/dir-owned"
  # Reparse points of several kinds.
  mkdir -p "$m/reparse/target"
  local d
  for d in j_abs j_guid j_rel s_rel s_abs s_unc; do mkdir -p "$m/reparse/$d"; done
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A0000003 '\??\C:\reparse\target' 'C:\reparse\target')" "$m/reparse/j_abs"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A0000003 '\??\Volume{01234567-89ab-cdef-0123-456789abcdef}\data' '')" "$m/reparse/j_guid"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A0000003 '\??\..\target' '..\target')" "$m/reparse/j_rel"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A000000C '..\target' '..\target' 1)" "$m/reparse/s_rel"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A000000C '\??\C:\reparse\target' 'C:\reparse\target' 0)" "$m/reparse/s_abs"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A000000C '\??\UNC\server\share\dir' '\\server\share\dir' 0)" "$m/reparse/s_unc"
  echo "f" >"$m/reparse/file_link"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A000000C 'target\x.txt' 'target\x.txt' 1)" "$m/reparse/file_link"
  local t
  for t in 80000013 8000001B 80000017 9000001A; do
    echo "t" >"$m/reparse/tag_$t"
    setfattr -n system.ntfs_reparse_data -v "$(blob reparse "$t" "payload-$t" '')" "$m/reparse/tag_$t"
  done
  # A folder of 600 entries: its index needs allocation blocks.
  mkdir -p "$m/many"
  local i
  for i in $(seq -w 1 600); do : >"$m/many/entry_$i.dat"; done
  # A sparse file: a hole, a written middle, a hole.
  truncate -s 8M "$m/sparse.bin"
  echo "in the middle" | dd of="$m/sparse.bin" bs=1 seek=4194304 conv=notrunc status=none
}

# Only on volumes whose clusters allow it (4 KiB at most): compressed files,
# a file name with enough hard links for an attribute list, and a fragmented
# $MFT made by interleaving record creation with cluster allocation.
fill_rich() {
  local m=$mnt
  mkdir -p "$m/compressed"
  setfattr -n system.ntfs_attrib_be -v 0x00000810 "$m/compressed"
  python3 -c 'print("compressible line of text\n" * 12000, end="")' >"$m/compressed/text.txt"
  head -c 5000 /dev/zero >"$m/compressed/zeros.bin"
  mkdir -p "$m/manylinks"
  echo "many" >"$m/manylinks/base.txt"
  local i
  for i in $(seq 1 120); do
    ln "$m/manylinks/base.txt" "$m/manylinks/link_with_a_rather_long_name_to_fill_records_$(printf %04d "$i").txt"
  done
  # Fill the volume with small files, free every other one, then add records:
  # the table grows into the scattered holes.
  mkdir -p "$m/churn"
  python3 - "$m/churn" <<'PY'
import os, sys
d = sys.argv[1]
i = 0
while True:
    st = os.statvfs(d)
    if st.f_bavail * st.f_frsize < 1 << 20:
        break
    i += 1
    try:
        with open(os.path.join(d, "filler_%05d.bin" % i), "w") as f:
            f.write(("filler %d " % i) * 3000)
    except OSError:
        break
for j in range(1, i + 1, 2):
    os.remove(os.path.join(d, "filler_%05d.bin" % j))
for j in range(1, 2501):
    with open(os.path.join(d, "refill_%d.txt" % j), "w") as f:
        f.write("re %d\n" % j)
PY
}

# The legacy run's volume: junction and directory symbolic link targets with
# files below them (one link's data long enough to be non-resident), a
# prefix pair of folders, a dot-folder, hard links, owners, a file whose
# names need an attribute list, and a folder with nothing that a filter
# lets through.
fill_legacy() {
  local m=$mnt
  mkdir -p "$m/data" "$m/database" "$m/.hidden" "$m/links/a" "$m/jtarget/sub" "$m/skipped/deeper"
  echo "a" >"$m/data/a.txt"
  echo "bb" >"$m/database/b.txt"
  echo "hidden" >"$m/.hidden/h.txt"
  echo "linked" >"$m/links/target.txt"
  ln "$m/links/target.txt" "$m/links/a/second.txt"
  echo "inner" >"$m/jtarget/inner.txt"
  echo "deeper file" >"$m/jtarget/sub/deeper.txt"
  echo "s" >"$m/skipped/deeper/s.txt"
  python3 -c 'print("x" * 70000, end="")' >"$m/data/big.bin"
  local l240 m200
  l240=$(printf 'L%.0s' $(seq 1 240))
  m200=$(printf 'M%.0s' $(seq 1 200))
  mkdir -p "$m/jtarget/$l240/$m200"
  echo "far" >"$m/jtarget/$l240/$m200/far.txt"
  mkdir -p "$m/jlink" "$m/slink" "$m/jlong"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A0000003 '\??\C:\jtarget' 'C:\jtarget')" "$m/jlink"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A000000C '\??\C:\jtarget\sub' 'C:\jtarget\sub' 0)" "$m/slink"
  setfattr -n system.ntfs_reparse_data -v "$(blob reparse A0000003 "\\??\\C:\\jtarget\\$l240\\$m200" "C:\\jtarget\\$l240\\$m200")" "$m/jlong"
  mkdir -p "$m/owners"
  echo "system" >"$m/owners/system.txt"
  setfattr -n system.ntfs_acl -v "$(blob sd S-1-5-18)" "$m/owners/system.txt"
  echo "admins" >"$m/owners/admins.txt"
  setfattr -n system.ntfs_acl -v "$(blob sd S-1-5-32-544)" "$m/owners/admins.txt"
  mkdir -p "$m/manylinks"
  echo "many" >"$m/manylinks/base.txt"
  local i
  for i in $(seq 1 60); do
    ln "$m/manylinks/base.txt" "$m/manylinks/link_with_a_rather_long_name_to_fill_records_$(printf %04d "$i").txt"
  done
}

# wanted NAME: whether this run builds the committed image NAME.
wanted() { [ -z "$only" ] || [ "$only" = "$1" ]; }

# finish NAME: unmount and compress into the output folder.
finish() {
  unmount_img
  mkdir -p "$out"
  gzip -9 -n -c "$work/$1" >"$out/$1.gz"
  echo "make-ntfs-fixtures: $out/$1.gz ($(stat -c %s "$out/$1.gz") bytes)"
}

if [ -n "$large" ]; then
  mkdir -p "$large"
  mkimage ntfs-100k.img 512M -c 4096
  mount_img "$work/ntfs-100k.img" "big_writes"
  mkdir "$mnt/big"
  # Names in a stable order with mixed case, so the walk's collation shows.
  (cd "$mnt/big" && python3 -c '
import os
for i in range(100000):
    open(("File_%06d.dat" if i % 2 else "file_%06d.DAT") % i, "w").close()
')
  unmount_img
  cp --sparse=always "$work/ntfs-100k.img" "$large/ntfs-100k.img"
  echo "make-ntfs-fixtures: $large/ntfs-100k.img"
  exit 0
fi

# 4 KiB clusters, 1 KiB records: the richest image.
if wanted ntfs-4k.img; then
  mkimage ntfs-4k.img 48M -c 4096
  mount_img "$work/ntfs-4k.img"
  fill_common
  fill_rich
  finish ntfs-4k.img
fi

# 512-byte clusters: index blocks span eight clusters.
if wanted ntfs-512.img; then
  mkimage ntfs-512.img 24M -c 512
  mount_img "$work/ntfs-512.img"
  fill_common
  fill_rich
  finish ntfs-512.img
fi

# 64 KiB clusters: records and index blocks smaller than a cluster.
if wanted ntfs-64k.img; then
  mkimage ntfs-64k.img 64M -c 65536
  mount_img "$work/ntfs-64k.img"
  fill_common
  finish ntfs-64k.img
fi

# 4096-byte sectors, hence 4096-byte file records with eight fix-up places.
if wanted ntfs-rec4k.img; then
  mkimage ntfs-rec4k.img 48M -s 4096 -c 4096
  mount_img "$work/ntfs-rec4k.img"
  fill_common
  fill_rich
  finish ntfs-rec4k.img
fi

# The legacy run's volume: small, 4 KiB clusters.
if wanted ntfs-legacy.img; then
  mkimage ntfs-legacy.img 8M -c 4096
  mount_img "$work/ntfs-legacy.img"
  fill_legacy
  finish ntfs-legacy.img
fi
