#!/usr/bin/env bash
# Benchmark of reading a volume as Windows reads a shadow copy: unbuffered,
# nothing in any cache. Not a test: it prints figures and ratios.
#
# Builds once, under $NGI_BENCH_DIR (default /tmp/ngi-bench-io), two NTFS
# images through ntfs-3g with "-o permissions" and 36 owners (so that every
# record has the 72-byte $STANDARD_INFORMATION with a security id, as
# Windows writes it; scripts/bench-io-images.sh): NGI_BENCH_FILES files
# (default 1,000,000) in folders of 20, and a copy from which 900 of every
# 1,000 were deleted. Each is attached as a loop device with
# "losetup --direct-io=on", so that reads reach this machine's disk, and the
# page cache is dropped before every cold run. Then, in one run:
#
#   prog     NorvaGuestIndexer -opt yes over the volume as a shadow device,
#            end to end, cold (O_DIRECT: the device is a block device)
#   prog-0   the same with IndexerReadAheadDepth 0: block by block, as before
#   prog-n   the same as prog at normal priority (NorvaGuestIndexerPriority
#            NORMAL): what the default background mode (nice 19, idle I/O
#            class) costs on this machine; loop device only
#   dd       dd iflag=direct bs=256K over exactly the $MFT's runs: one
#            request at a time
#   fio      fio direct, queue depth 8, 1 MiB blocks, over the same runs:
#            the device's bandwidth, the floor
#   icat     icat <device> 0, cold
#   and the pipeline alone (fast_bench) with each way of reading ahead:
#   io_uring at several depths and request sizes, the synchronous queue,
#   block by block (NGI_BENCH_MECHANISMS, "depth:KiB:async" items)
#
# then the same over storage with latency: nbdkit's delay filter serving the
# image through nbdfuse (a FUSE file; every read waits NGI_BENCH_DELAYS
# milliseconds, default "0 1 2", several reads at once), the program reading
# that file unbuffered (IndexerDirectIoImages); the warm-cache run of the
# program against icat on the image file; and on the deleted image the
# bytes the program read from the device (the loop device's counter) and
# its time against icat. Prints `uptime` first: on a busy machine the
# figures are noisy.
#
# Needs root (losetup, drop_caches), mkntfs, ntfs-3g, FUSE, fio, icat,
# nbdkit and nbdfuse; skips cleanly (exit 0) without them. NGI_BUILD_DIR
# (default build) names the build folder; NGI_BENCH_DEPTH and NGI_BENCH_KIB
# set the program's read-ahead (IndexerReadAheadDepth, IndexerReadAheadKiB;
# default 8 and 1024); NGI_BENCH_PARTS picks parts (default "loop delay
# warm deleted").
set -euo pipefail
cd "$(dirname "$0")/.."
export PATH=$PATH:/usr/sbin:/sbin
files=${NGI_BENCH_FILES:-1000000}
bench=${NGI_BENCH_DIR:-/tmp/ngi-bench-io}
delays=${NGI_BENCH_DELAYS:-0 1 2}
image=$bench/ntfs-$files.img
deleted=$bench/ntfs-$files-deleted.img
# Debian's packages: ntfs-3g, sleuthkit, fio, nbdkit, libnbd-bin.
for tool in mkntfs ntfs-3g python3 icat fio losetup nbdkit nbdfuse; do
  command -v "$tool" >/dev/null ||
    { echo "bench-io: $tool missing (apt-get install ntfs-3g sleuthkit fio nbdkit libnbd-bin), skipped"; exit 0; }
done
[ "$(id -u)" = 0 ] || { echo "bench-io: needs root (loop devices), skipped"; exit 0; }
[ -c /dev/fuse ] || { echo "bench-io: no /dev/fuse, skipped"; exit 0; }

build=${NGI_BUILD_DIR:-build}
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target NorvaGuestIndexer fast_bench >/dev/null

source scripts/bench-io-images.sh
mkdir -p "$bench"
make_windows_like_image "$image" "$files"
make_deleted_image "$image" "$deleted"

work=$(mktemp -d "$bench/run.XXXXXX")
loops=()
fuse_mnt=""
cleanup() {
  [ -n "$fuse_mnt" ] && { fusermount3 -u "$fuse_mnt" 2>/dev/null || umount "$fuse_mnt" 2>/dev/null || true; }
  for l in "${loops[@]}"; do losetup -d "$l" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

cold=yes
(echo 3 > /proc/sys/vm/drop_caches) 2>/dev/null || cold="no (drop_caches refused: runs after the first are warm)"
drop_caches() {
  sync
  (echo 3 > /proc/sys/vm/drop_caches) 2>/dev/null || true
}

# mft_extents IMAGE: "offset length" in bytes of each run of the $MFT's
# $DATA, cut at the stream's size, read from the boot sector and record 0.
mft_extents() {
  python3 - "$1" <<'PY'
import struct, sys
with open(sys.argv[1], "rb") as f:
    boot = f.read(512)
    sector, spc = struct.unpack_from("<HB", boot, 0x0B)
    cluster = sector * (spc if spc < 0x80 else 1 << (256 - spc))
    mft = struct.unpack_from("<Q", boot, 0x30)[0] * cluster
    c = struct.unpack_from("<b", boot, 0x40)[0]
    size = c * cluster if c > 0 else 1 << -c
    f.seek(mft)
    rec = bytearray(f.read(size))
usa, count = struct.unpack_from("<HH", rec, 4)
for i in range(1, count):
    rec[i * 512 - 2:i * 512] = rec[usa + 2 * i:usa + 2 * i + 2]
at = struct.unpack_from("<H", rec, 0x14)[0]
while True:
    kind, length = struct.unpack_from("<II", rec, at)
    if kind == 0xFFFFFFFF:
        sys.exit("no $DATA in record 0")
    if kind == 0x80 and rec[at + 8]:
        break
    at += length
left = struct.unpack_from("<Q", rec, at + 0x30)[0]
p = at + struct.unpack_from("<H", rec, at + 0x20)[0]
lcn = 0
while rec[p] and left > 0:
    ls, os_ = rec[p] & 0xF, rec[p] >> 4
    n = int.from_bytes(rec[p + 1:p + 1 + ls], "little")
    lcn += int.from_bytes(rec[p + 1 + ls:p + 1 + ls + os_], "little", signed=True)
    p += 1 + ls + os_
    take = min(n * cluster, left)
    print(lcn * cluster, take)
    left -= take
PY
}

# timed NAME COMMAND: runs a shell command, prints "seconds peak_kib".
timed() {
  python3 - "$1" <<'PY'
import os, subprocess, sys, time
t = time.monotonic()
p = subprocess.Popen(sys.argv[1], shell=True)
_, status, usage = os.wait4(p.pid, 0)
t = time.monotonic() - t
if os.waitstatus_to_exitcode(status) != 0:
    sys.exit("bench-io: failed: " + sys.argv[1])
print("%.3f %d" % (t, usage.ru_maxrss))
PY
}

# An instance of the program whose volume E: has the shadow DEVICE.
instance=$work/instance
mkdir -p "$instance" "$work/e"
cp "$build/src/app/NorvaGuestIndexer" "$instance/"
# The filters, UTF-16LE with its mark: include E:\ (the whole volume), exclude nothing.
printf '\xff\xfeE\0:\0\\\0\r\0\n\0' > "$instance/NorvaGuestIndexer.inc.filter"
printf '\xff\xfe' > "$instance/NorvaGuestIndexer.exc.filter"
# program DEVICE DEPTH DIRECT_IMAGES [PRIORITY]: one run, "seconds peak_kib".
program() {
  local priority=()
  [ -n "${4:-}" ] && priority=("\"NorvaGuestIndexerPriority\"=\"$4\"")
  printf '%s\r\n' 'Windows Registry Editor Version 5.00' '' \
    '[HKEY_LOCAL_MACHINE\SYSTEM\VolumeTable\Volumes\E]' '"MountPoints"="E:"' \
    '"VolumeName"="{5a4d1e2c-0000-4c00-8000-00000000000e}"' "\"Folder\"=\"$work/e\"" "\"Device\"=\"$1\"" '' \
    '[HKEY_LOCAL_MACHINE\SOFTWARE\NorvA\Norva Archive and Mirror]' \
    "\"IndexerReadAheadDepth\"=dword:$(printf %08x "$2")" "\"IndexerDirectIoImages\"=dword:$(printf %08x "$3")" \
    "\"IndexerReadAheadKiB\"=dword:$(printf %08x "${NGI_BENCH_KIB:-1024}")" "${priority[@]}" > "$work/registry.reg"
  cat > "$instance/NorvaGuestIndexer.SnapshotMapping.xml" <<EOF
<?xml version="1.0"?>
<ShadowsList>
  <Shadow>
    <OriginalVolumeGuidName>\\\\?\\Volume{5a4d1e2c-0000-4c00-8000-00000000000e}\\</OriginalVolumeGuidName>
    <ShadowMountPointName>$1</ShadowMountPointName>
    <IsClustered>false</IsClustered>
    <VolumeId>{0f6c1d3e-1111-4222-8333-94445555777e}</VolumeId>
  </Shadow>
</ShadowsList>
EOF
  rm -rf "$work/out" "$work/logs"
  timed "NGI_REGISTRY_FILE='$work/registry.reg' NGI_LOCK_DIR='$work' '$instance/NorvaGuestIndexer' -opt yes -log '$work/logs' '$work/out' >/dev/null 2>&1"
  # The index must be the pipeline's: the log says so.
  iconv -f UTF-16 -t UTF-8 "$work"/logs/*.log | grep -q "Main circle. Ok." ||
    { echo "bench-io: the pipeline did not index $1; log kept in $work/logs" >&2; trap - EXIT; exit 1; }
}
# dd_runs DEVICE EXTENTS: dd iflag=direct bs=256K over each extent.
dd_runs() {
  local cmd=":"
  while read -r off len; do
    cmd+="; dd if='$1' of=/dev/null bs=256K iflag=direct,skip_bytes,count_bytes skip=$off count=$len status=none"
  done < "$2"
  echo "$cmd"
}
# fio_runs DEVICE EXTENTS: fio replaying, as fast as it can, 1 MiB reads
# over the extents in order (a version 2 I/O log), 8 in flight.
fio_runs() {
  python3 - "$1" "$2" > "$work/fio.iolog" <<'PY'
import sys
dev = sys.argv[1]
print("fio version 2 iolog")
print(dev, "add")
print(dev, "open")
for line in open(sys.argv[2]):
    off, n = map(int, line.split())
    end = off + n
    while off < end:
        print(dev, "read", off, min(1 << 20, end - off))
        off += 1 << 20
print(dev, "close")
PY
  echo "fio --name=mft --read_iolog='$work/fio.iolog' --replay_no_stall=1 --direct=1 --iodepth=8 --ioengine=io_uring --output=/dev/null"
}
# cold_run COMMAND: "seconds peak_kib", the best of NGI_BENCH_RUNS (default
# 3) runs, each after dropping the page cache: the machine is shared, and
# other programs' reads of the same disk only ever make a run slower.
runs=${NGI_BENCH_RUNS:-3}
best_of() { sort -n | head -1; }
cold_run() { for _ in $(seq "$runs"); do drop_caches; timed "$1"; done | best_of; }
cold_program() { for _ in $(seq "$runs"); do drop_caches; program "$@"; done | best_of; }
read_sectors() { awk '{ print $3 }' "/sys/block/$(basename "$1")/stat"; }

echo "bench-io: machine: $(nproc) processors; $(uptime); best of $runs cold runs each"
mft_extents "$image" > "$work/extents"
mft_bytes=$(awk '{ s += $2 } END { print s }' "$work/extents")
echo "bench-io: $files files, \$MFT $(awk -v b="$mft_bytes" 'BEGIN { printf "%.1f MiB", b / 1048576 }') in $(wc -l < "$work/extents") runs"

dev=$(losetup --find --show --direct-io=on --read-only "$image"); loops+=("$dev")
results=$work/results
: > "$results"
# measure LABEL STORAGE DEVICE PROGRAM_DIRECT_IMAGES
measure() {
  local label=$1 device=$2 directImages=$3
  read -r t_prog peak <<<"$(cold_program "$device" "${NGI_BENCH_DEPTH:-8}" "$directImages")"
  read -r t_prog0 _ <<<"$(cold_program "$device" 0 "$directImages")"
  read -r t_dd _ <<<"$(cold_run "$(dd_runs "$device" "$work/extents")")"
  read -r t_fio _ <<<"$(cold_run "$(fio_runs "$device" "$work/extents")")"
  read -r t_icat _ <<<"$(cold_run "icat '$device' 0 > /dev/null")"
  local t_progn=0
  [ "$device" = "$dev" ] && read -r t_progn _ <<<"$(cold_program "$device" "${NGI_BENCH_DEPTH:-8}" "$directImages" NORMAL)"
  echo "$label $t_prog $peak $t_prog0 $t_dd $t_fio $t_icat $t_progn" >> "$results"
  python3 - "$label" "$t_prog" "$peak" "$t_prog0" "$t_dd" "$t_fio" "$t_icat" "$t_progn" <<'PY'
import sys
label = sys.argv[1]
prog, peak, prog0, dd, fio, icat, progn = float(sys.argv[2]), int(sys.argv[3]), *map(float, sys.argv[4:])
print("%s" % label)
print("  prog    %7.3f s  peak %.1f MiB (target < 64)  prog / fio %.2f  prog / dd %.2f  prog / icat %.2f" %
      (prog, peak / 1024, prog / fio, prog / dd, prog / icat))
if progn > 0:
    print("  prog-n  %7.3f s  (normal priority)  prog-n / fio %.2f  prog / prog-n %.2f" % (progn, progn / fio, prog / progn))
print("  prog-0  %7.3f s  (no read-ahead)  prog-0 / prog %.2f" % (prog0, prog0 / prog))
print("  dd      %7.3f s  dd / prog %.2f" % (dd, dd / prog))
print("  fio     %7.3f s" % fio)
print("  icat    %7.3f s" % icat)
PY
}

# mechanisms DEVICE: the pipeline alone (fast_bench), unbuffered and cold,
# with each way of reading ahead: "depth:KiB:async" (async 0: the
# synchronous queue, one request at a time), 0 for block by block.
mechanisms() {
  local cfg
  for cfg in ${NGI_BENCH_MECHANISMS:-0:1024:1 8:1024:0 4:1024:1 8:1024:1 16:1024:1 8:256:1 4:4096:1}; do
    read -r t peak <<<"$(cold_run "rm -rf '$work/fb'; mkdir -p '$work/fb'; NGI_BENCH_DIRECT=1 NGI_BENCH_READ=$cfg '$build/src/fast/fast_bench' '$1' '$work/fb' 2>/dev/null >/dev/null")"
    printf '  pipeline, read-ahead %-10s %7.3f s  peak %.1f MiB\n' "$cfg" "$t" "$(awk -v k="$peak" 'BEGIN { print k / 1024 }')"
  done
}

parts=${NGI_BENCH_PARTS:-loop delay warm deleted}
want() { [[ " $parts " == *" $1 "* ]]; }

if want loop; then
  measure "loop device, direct I/O, cold:" "$dev" 0
  echo "loop device, the ways of reading ahead (depth:KiB:async), cold:"
  mechanisms "$dev"
fi

# Storage with latency: nbdkit serves the image, each read delayed.
want delay || delays=""
for ms in $delays; do
  fuse_mnt=$work/fuse
  mkdir -p "$fuse_mnt"
  nbdfuse -r "$fuse_mnt" --command nbdkit -s --exit-with-parent --filter=delay file "$image" rdelay="${ms}ms" &
  for _ in $(seq 100); do [ -e "$fuse_mnt/nbd" ] && break; sleep 0.1; done
  [ -e "$fuse_mnt/nbd" ] || { echo "bench-io: nbdfuse did not start"; exit 1; }
  measure "nbdkit delay ${ms} ms a read, through FUSE, direct I/O, cold:" "$fuse_mnt/nbd" 1
  if [ "$ms" = "${delays##* }" ]; then
    echo "nbdkit delay ${ms} ms, the ways of reading ahead (depth:KiB:async), cold:"
    mechanisms "$fuse_mnt/nbd"
  fi
  fusermount3 -u "$fuse_mnt" 2>/dev/null || umount "$fuse_mnt"
  wait || true
  fuse_mnt=""
done

if want warm; then
# Warm: the image file in the page cache, read through it.
cat "$image" > /dev/null
program "$image" "${NGI_BENCH_DEPTH:-8}" 0 > /dev/null
t_warm=$(for _ in 1 2 3; do program "$image" "${NGI_BENCH_DEPTH:-8}" 0 | cut -d' ' -f1; done | best_of)
t_warm0=$(for _ in 1 2 3; do program "$image" 0 0 | cut -d' ' -f1; done | best_of)
t_icat_warm=$(for _ in 1 2 3; do timed "icat '$image' 0 > /dev/null" | cut -d' ' -f1; done | best_of)
python3 - "$t_warm" "$t_warm0" "$t_icat_warm" <<'PY'
import sys
warm, warm0, icat = map(float, sys.argv[1:])
print("warm page cache, image file, best of three:")
print("  prog %.3f s  prog-0 %.3f s  icat %.3f s  prog / icat %.2f (target <= 1.35)  prog-0 / icat %.2f" %
      (warm, warm0, icat, warm / icat, warm0 / icat))
PY
fi

if want deleted; then
# The deleted image: what the program reads of the device, and how fast.
mft_extents "$deleted" > "$work/extents-deleted"
del_mft=$(awk '{ s += $2 } END { print s }' "$work/extents-deleted")
ddev=$(losetup --find --show --direct-io=on --read-only "$deleted"); loops+=("$ddev")
before=$(read_sectors "$ddev")
drop_caches
program "$ddev" "${NGI_BENCH_DEPTH:-8}" 0 > /dev/null
after=$(read_sectors "$ddev")
read -r t_del _ <<<"$(cold_program "$ddev" "${NGI_BENCH_DEPTH:-8}" 0)"
read -r t_del_icat _ <<<"$(cold_run "icat '$ddev' 0 > /dev/null")"
python3 - "$(( (after - before) * 512 ))" "$del_mft" "$t_del" "$t_del_icat" <<'PY'
import sys
read, mft, prog, icat = int(sys.argv[1]), int(sys.argv[2]), float(sys.argv[3]), float(sys.argv[4])
print("deleted image (900 of every 1000 files gone), cold:")
print("  prog read %.1f MiB of the device, $MFT %.1f MiB: %.1f %% (target <= 20 %%)" %
      (read / 1048576, mft / 1048576, 100.0 * read / mft))
print("  prog %.3f s  icat %.3f s  icat / prog %.2f (target >= 3)" % (prog, icat, icat / prog))
PY
fi
echo "bench-io: cold runs: $cold; $(uptime)"
