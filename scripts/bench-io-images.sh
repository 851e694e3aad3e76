# Sourced by scripts/bench-io.sh: builds its NTFS images through ntfs-3g.
#
# make_windows_like_image IMAGE FILES: FILES files in folders of 20 (a
# thousand folders to a parent folder), built once through an ntfs-3g mount
# with "-o permissions" and a user mapping, so that every record carries the
# 72-byte $STANDARD_INFORMATION with a security id, as Windows writes it; the
# files belong to 36 owners in turn.
#
# make_deleted_image FULL IMAGE: a copy of FULL from which 900 of every 1000
# files were deleted: of each run of 1,000 folders (20,000 files) the last
# 900 folders go, so the $MFT keeps stretches of about 2 MiB in use between
# stretches of about 18 MiB free, as after deleting large trees.

owners=36

_mount_rw() { ntfs-3g -o permissions,big_writes "$1" "$2"; }

make_windows_like_image() {
  local img=$1 nfiles=$2 mnt
  [ -f "$img.done" ] && return 0
  echo "bench-io: building $img ($nfiles files, $owners owners)..."
  mnt=$(mktemp -d "$(dirname "$img")/mnt.XXXXXX")
  rm -f "$img"
  # About 4 KiB a file: its record, its index entry and, for one in five,
  # a cluster of data, with room to spare. The file is sparse.
  truncate -s $(( (nfiles * 4 + 65536) * 1024 )) "$img"
  mkntfs -F -q -Q -c 4096 "$img" >/dev/null 2>&1
  _mount_rw "$img" "$mnt"
  mkdir -p "$mnt/.NTFS-3G"
  python3 - "$mnt/.NTFS-3G/UserMapping" "$owners" <<'PY'
import sys
path, owners = sys.argv[1], int(sys.argv[2])
with open(path, "w") as out:
    for i in range(owners):
        out.write("%d::S-1-5-21-3623811015-3361044348-30300820-%d\n" % (1000 + i, 1000 + i))
    # ntfs-3g wants a group mapping too: this implicit pattern gives one.
    out.write("::S-1-5-21-3623811015-3361044348-30300820-10000\n")
PY
  umount "$mnt"
  _mount_rw "$img" "$mnt"
  python3 - "$mnt" "$nfiles" "$owners" <<'PY'
import os, sys
root, files, owners = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
per = 20
for d in range((files + per - 1) // per):
    path = os.path.join(root, "d%03d" % (d // 1000), "f%05d" % d)
    os.makedirs(path)
    os.chown(path, 1000 + d % owners, -1)
    for f in range(min(per, files - d * per)):
        fd = os.open(os.path.join(path, "file_%02d.dat" % f), os.O_WRONLY | os.O_CREAT, 0o644)
        os.write(fd, b"x" * (f % 20 * 37))
        os.fchown(fd, 1000 + (d * per + f) % owners, -1)
        os.close(fd)
PY
  sync
  umount "$mnt"
  rmdir "$mnt"
  touch "$img.done"
}

make_deleted_image() {
  local full=$1 img=$2 mnt
  [ -f "$img.done" ] && return 0
  echo "bench-io: building $img (900 of every 1000 files of $full deleted)..."
  rm -f "$img"
  cp --sparse=always "$full" "$img"
  mnt=$(mktemp -d "$(dirname "$img")/mnt.XXXXXX")
  _mount_rw "$img" "$mnt"
  python3 - "$mnt" <<'PY'
import os, shutil, sys
root = sys.argv[1]
for top in sorted(os.listdir(root)):
    if not top.startswith("d"):
        continue
    for sub in sorted(os.listdir(os.path.join(root, top))):
        if int(sub[1:]) % 1000 >= 100:
            shutil.rmtree(os.path.join(root, top, sub))
PY
  sync
  umount "$mnt"
  rmdir "$mnt"
  touch "$img.done"
}
