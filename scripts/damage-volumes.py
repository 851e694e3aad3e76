#!/usr/bin/env python3
"""Damaged NTFS volumes through the whole program.

For each image, seeded mutations (bit flips, zeroed sectors, truncation) are
aimed at one structure at a time: the boot sector, $MFT records, attribute
headers, run lists, directory index blocks, $Secure and $Reparse. Each
mutated image is the shadow of volume C: (with a small folder beside it, so
that the directory walk can stand in), and the program indexes it. A run must
end within the time bound with exit 0 or 1; a failed NTFS attempt must be
followed by the walk, and its log line must name the record or offset that
was wrong; an exit 0 must leave an index that the catalogue tool accepts and
a summary.txt, an exit 1 no summary.txt.

Prints one line a run that broke a rule, then a table row an image; exits 1
when any rule was broken.
"""
import argparse
import gzip
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import time
from collections import Counter

GUID = "0000000c-0000-0000-0000-00000000000c"
SHADOW = "/dev/mapper/ngi-damaged-c"
# A failure that names where it went wrong: a record number, an offset, a
# sector, or a hexadecimal or decimal position.
NAMES_PLACE = re.compile(r"(FRN|FileRecord|[Rr]ecord|offset|sector|#\d|0x[0-9A-Fa-f]+|\b\d{2,}\b|\$[A-Z][A-Za-z]+)")
ERROR_LINE = re.compile(r"^\S+ \S+\s+ERR\s")


def u16(b, o): return struct.unpack_from("<H", b, o)[0]
def u32(b, o): return struct.unpack_from("<I", b, o)[0]
def u64(b, o): return struct.unpack_from("<Q", b, o)[0]


def size_from_byte(value, cluster):
    """Record and index block sizes: clusters, or 2^-n bytes when negative."""
    if value >= 0x80:
        return 1 << (256 - value)
    return value * cluster


def decode_runs(data, at, end, cluster):
    """Byte ranges (offset, length) of a run list; sparse runs left out."""
    runs, lcn = [], 0
    while at < end and data[at] != 0:
        header = data[at]
        nlen, olen = header & 0x0F, header >> 4
        if nlen == 0 or at + 1 + nlen + olen > end:
            break
        length = int.from_bytes(data[at + 1:at + 1 + nlen], "little")
        if olen:
            lcn += int.from_bytes(data[at + 1 + nlen:at + 1 + nlen + olen], "little", signed=True)
            runs.append((lcn * cluster, length * cluster))
        at += 1 + nlen + olen
    return runs


class Volume:
    """The structures of a sound image, as byte ranges to aim at."""

    def __init__(self, img):
        self.img = img
        sector = u16(img, 0x0B)
        spc = img[0x0D]
        self.cluster = sector * (1 << (256 - spc) if spc > 0x80 else spc)
        self.record_size = size_from_byte(img[0x40], self.cluster)
        self.block_size = size_from_byte(img[0x44], self.cluster)
        mft = u64(img, 0x30) * self.cluster
        self.targets = {k: [] for k in ("boot", "mft_record", "attr_header", "run_list",
                                        "index_block", "secure", "reparse")}
        self.targets["boot"].append((0, 512))
        record0 = self._fixed(mft)
        mft_runs = []
        # Byte ranges of the $MFT bitmap, and where each record lies.
        self.bitmap_runs, self.offsets = [], []
        # (record, where its directory name's length byte lies on disk)
        self.directory_names = []
        # Records of plain files (no extension, list or reparse point).
        self.plain = set()
        for attr in self._attributes(record0):
            if attr["type"] == 0x80 and attr["nonresident"] and not attr["name"]:
                mft_runs = attr["runs"]
            if attr["type"] == 0xB0 and attr["nonresident"]:
                self.bitmap_runs = attr["runs"]
        number = 0
        for offset, length in mft_runs:
            for at in range(offset, offset + length, self.record_size):
                self.offsets.append(at)
                self._record(number, at)
                number += 1

    def _fixed(self, at):
        rec = bytearray(self.img[at:at + self.record_size])
        if rec[:4] != b"FILE":
            return None
        usa, count = u16(rec, 4), u16(rec, 6)
        for i in range(1, count):
            end = i * 512 - 2
            if usa + 2 * i + 2 > len(rec) or end + 2 > len(rec):
                return None
            rec[end:end + 2] = rec[usa + 2 * i:usa + 2 * i + 2]
        return rec

    def _on_disk(self, at, pos):
        """Where byte `pos` of the record at `at` lies on disk: the last two
        bytes of each sector are kept in the update sequence array."""
        if pos % 512 < 510:
            return at + pos
        usa = u16(self.img, at + 4)
        return at + usa + 2 * (pos // 512 + 1) + pos % 512 - 510

    def bitmap_byte(self, number):
        """Where the $MFT bitmap byte of record `number` lies on disk."""
        index = number // 8
        for offset, length in self.bitmap_runs:
            if index < length:
                return offset + index
            index -= length
        return None

    def _attributes(self, rec):
        if rec is None:
            return []
        out, at = [], u16(rec, 0x14)
        while at + 16 <= len(rec) and u32(rec, at) != 0xFFFFFFFF:
            kind, length = u32(rec, at), u32(rec, at + 4)
            if length < 16 or at + length > len(rec):
                break
            nonresident = rec[at + 8] != 0
            name_len, name_off = rec[at + 9], u16(rec, at + 10)
            name = rec[at + name_off:at + name_off + 2 * name_len].decode("utf-16-le", "replace")
            attr = {"type": kind, "at": at, "length": length, "nonresident": nonresident,
                    "name": name, "runs": [], "value": None}
            if nonresident:
                pairs = at + u16(rec, at + 0x20)
                attr["pairs"] = (pairs, at + length)
                attr["runs"] = decode_runs(rec, pairs, at + length, self.cluster)
            else:
                vo, vl = u16(rec, at + 0x14), u32(rec, at + 0x10)
                attr["value"] = bytes(rec[at + vo:at + vo + vl])
            out.append(attr)
            at += length
        return out

    def _record(self, number, at):
        rec = self._fixed(at)
        if rec is None or not (u16(rec, 0x16) & 1):
            return
        self.targets["mft_record"].append((at, self.record_size))
        attrs = self._attributes(rec)
        name = ""
        for attr in attrs:
            if attr["type"] == 0x30 and attr["value"] and len(attr["value"]) > 0x42:
                v = attr["value"]
                name = v[0x42:0x42 + 2 * v[0x40]].decode("utf-16-le", "replace")
                if number >= 16 and u16(rec, 0x16) & 2 and v[0x41] != 2:
                    self.directory_names.append((number, self._on_disk(at, attr["at"] + u16(rec, attr["at"] + 0x14) + 0x40)))
        if number >= 16 and u16(rec, 0x16) == 1 and u64(rec, 0x20) == 0 and \
                not any(a["type"] in (0x20, 0xC0) for a in attrs):
            self.plain.add(number)
        for attr in attrs:
            header = 0x40 if attr["nonresident"] else 0x18
            self.targets["attr_header"].append((at + attr["at"], header))
            if attr["nonresident"]:
                first, last = attr["pairs"]
                self.targets["run_list"].append((at + first, max(1, last - first)))
            if attr["type"] == 0xA0:
                for offset, length in attr["runs"]:
                    for block in range(offset, offset + length, self.block_size):
                        self.targets["index_block"].append((block, self.block_size))
        place = "secure" if number == 9 else "reparse" if name == "$Reparse" else None
        if place:
            self.targets[place].append((at, self.record_size))
            for attr in attrs:
                for offset, length in attr["runs"]:
                    self.targets[place].append((offset, min(length, 1 << 20)))


def mutate(img, volume, rng, place):
    """The change (patches of (offset, bytes), or the length to cut the image
    to) and a description of it."""
    offset, length = rng.choice(volume.targets[place])
    kind = rng.choice(("flip", "flip", "zero", "truncate") if place not in ("attr_header", "run_list")
                      else ("flip", "flip", "flip", "zero"))
    if kind == "flip":
        patches = []
        for _ in range(rng.randint(1, 4)):
            at = offset + rng.randrange(length)
            patches.append((at, bytes([img[at] ^ (1 << rng.randrange(8))])))
        return patches, None, "%s flip %s" % (place, ",".join(hex(at) for at, _ in patches))
    if kind == "zero":
        at = offset + rng.randrange(length) // 512 * 512
        return [(at, bytes(min(512, len(img) - at)))], None, "%s zero sector at %s" % (place, hex(at))
    at = offset + rng.randrange(length)
    return [], at, "%s truncate at %s" % (place, hex(at))


SKIP_OWNERS_AND_REPARSE = '"IndexerSkipOwnersParsing"=dword:00000001\r\n"IndexerSkipReparsePoints"=dword:00000001\r\n'
PARSE_FAILURE = "Can`t parse file record #"


def named_cases(img, volume):
    """The damages that once left an index no reader accepts, or a silently
    empty one: (name, patches, settings, check), where check(code, log,
    failure) gives the rules the run broke beyond the common ones."""
    cases = []
    if volume.directory_names:
        number, at = volume.directory_names[len(volume.directory_names) // 2]
        frn = "FRN=0x%016x" % number

        def empty_name(code, log, failure):
            if failure is None:
                return ["the NTFS attempt did not fail on the nameless directory"]
            return [] if frn in log[log.find(failure) - 2000:] else ["the failure does not name " + frn]
        cases.append(("empty directory name, record %d" % number, [(at, b"\0")], "", empty_name))
    # One bad record behind 300 freed ones (plain files, so that nothing
    # else refers to them).
    run = 301
    start = next((n for n in sorted(volume.plain) if all(n + i in volume.plain for i in range(run))), None)
    if start is not None:
        bad = start + run - 1
        patched = {}
        for n in range(start, bad):
            at = volume.bitmap_byte(n)
            patched[at] = patched.get(at, img[at]) & ~(1 << (n % 8))
        patches = [(at, bytes([value])) for at, value in sorted(patched.items())]
        patches.append((volume.offsets[bad], b"X"))

        def bad_record(code, log, failure):
            lines = [line for line in log.splitlines() if PARSE_FAILURE in line]
            broken = [] if failure is None else ["the NTFS attempt failed"]
            if len(lines) != 1 or PARSE_FAILURE + "%d." % bad not in lines[0]:
                broken.append("%d lines \"%s\" (one, naming #%d, expected)" % (len(lines), PARSE_FAILURE, bad))
            return broken
        cases.append(("bad record %d after %d free ones" % (bad, run - 1), patches, "", bad_record))
    zeros = [(offset, bytes(length)) for offset, length in volume.bitmap_runs]

    def zero_bitmap(code, log, failure):
        if failure is None:
            return ["the NTFS attempt did not fail on the zeroed bitmap"]
        return [] if "$BITMAP" in log[log.find(failure) - 2000:] else ["the failure does not name the $BITMAP"]
    cases.append(("zeroed $MFT bitmap, owners and reparse points off", zeros, SKIP_OWNERS_AND_REPARSE, zero_bitmap))
    return cases


def change_image(path, img, patches, cut, undo):
    """Applies a change to the image file, or undoes it (rewriting the
    image's own bytes), so that the image is written whole only once."""
    with open(path, "r+b") as f:
        for at, new in patches:
            f.seek(at)
            f.write(img[at:at + len(new)] if undo else new)
        if cut is not None:
            if undo:
                f.seek(cut)
                f.write(img[cut:])
            else:
                f.truncate(cut)


def write_instance(folder, program, image, tree):
    os.makedirs(folder, exist_ok=True)
    shutil.copy(program, folder)
    with open(os.path.join(folder, "NorvaGuestIndexer.inc.filter"), "wb") as f:
        f.write(b"\xff\xfe" + "C:\\\r\n".encode("utf-16-le"))
    with open(os.path.join(folder, "NorvaGuestIndexer.exc.filter"), "wb") as f:
        f.write(b"\xff\xfe")
    write_registry(folder, image, tree)
    with open(os.path.join(folder, "NorvaGuestIndexer.SnapshotMapping.xml"), "w") as f:
        f.write('<?xml version="1.0"?>\n<ShadowsList>\n  <Shadow>\n'
                "    <OriginalVolumeGuidName>\\\\?\\Volume{%s}\\</OriginalVolumeGuidName>\n"
                "    <ShadowMountPointName>%s</ShadowMountPointName>\n  </Shadow>\n</ShadowsList>\n"
                % (GUID, SHADOW))


def write_registry(folder, image, tree, settings=""):
    """The registry file: volume C: with the image as its shadow, and the
    program's settings (`settings`: further value lines)."""
    reg = ("Windows Registry Editor Version 5.00\r\n\r\n"
           "[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Volumes\\C]\r\n"
           '"MountPoints"="C:"\r\n"VolumeName"="{%s}"\r\n"Folder"="%s"\r\n\r\n'
           "[HKEY_LOCAL_MACHINE\\SYSTEM\\VolumeTable\\Shadows\\S0]\r\n"
           '"Name"="%s"\r\n"Device"="%s"\r\n"Folder"="%s"\r\n\r\n'
           # The normal priority: in the background the runs crawl on a
           # machine busy with other tests.
           "[HKEY_LOCAL_MACHINE\\Software\\Norva\\Norva Archive And Mirror]\r\n"
           '"NorvaGuestIndexerPriority"="NORMAL"\r\n') % (GUID, tree, SHADOW, image, tree)
    with open(os.path.join(folder, "registry.reg"), "w") as f:
        f.write(reg + settings)


def run_once(folder, out, timeout):
    """Exit code (None on a hang), the log text and the seconds taken."""
    shutil.rmtree(out, ignore_errors=True)
    logs = os.path.join(folder, "logs")
    shutil.rmtree(logs, ignore_errors=True)
    env = dict(os.environ, NGI_REGISTRY_FILE=os.path.join(folder, "registry.reg"), NGI_LOCK_DIR=folder)
    start = time.monotonic()
    try:
        proc = subprocess.run([os.path.join(folder, "NorvaGuestIndexer"), "-opt", "yes", "-log", logs, out],
                              env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=timeout)
        code = proc.returncode
        stderr = proc.stderr.decode("utf-8", "replace")
    except subprocess.TimeoutExpired:
        code, stderr = None, ""
    took = time.monotonic() - start
    log = ""
    if os.path.isdir(logs):
        for name in os.listdir(logs):
            with open(os.path.join(logs, name), "rb") as f:
                log += f.read().decode("utf-16", "replace")
    return code, log, stderr, took


def check_run(code, log, stderr, out, catalogue):
    """The rules a run broke (empty when none), and the NTFS failure line."""
    broken = []
    failure = None
    # The error lines of the failed NTFS attempt, up to its failure line and
    # the cause lines that follow it.
    errors = []
    for line in log.splitlines():
        if failure is not None:
            if not ERROR_LINE.match(line):
                break
            errors.append(line)
        elif ERROR_LINE.match(line):
            errors.append(line)
            if "Indexing failed for volume [c:]" in line:
                failure = line
    if code is None:
        return ["hang"], failure
    if code not in (0, 1):
        return ["crash (exit %d) %s" % (code, stderr.strip()[-300:])], failure
    summary = os.path.exists(os.path.join(out, "summary.txt"))
    if failure is not None:
        tail = log[log.find(failure):]
        if "Execute FindFirst/FindNext algorithm!" not in tail:
            broken.append("no walk after the failed NTFS attempt")
        # The text of the lines, less their time stamp (its digits would
        # pass for a position) and the words of the failure line itself.
        said = " ".join(ERROR_LINE.sub("", e) for e in errors).replace("Indexing failed for volume [c:].", "")
        if not NAMES_PLACE.search(said):
            broken.append("the log names no record or offset: " + " / ".join(e.strip() for e in errors))
    if code == 0:
        index = os.path.join(out, "volume.c_.ifd")
        if not summary:
            broken.append("exit 0 without summary.txt")
        check = subprocess.run([catalogue, "check", index], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if check.returncode != 0:
            broken.append("exit 0 with an invalid index: " + check.stderr.decode("utf-8", "replace").strip())
    elif summary:
        broken.append("exit 1 with a summary.txt")
    return broken, failure


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    parser.add_argument("--catalogue", required=True)
    parser.add_argument("--runs", type=int, default=200, help="mutations of each image")
    parser.add_argument("--seed", type=int, default=20261123)
    parser.add_argument("--timeout", type=float, default=60)
    parser.add_argument("--work", required=True)
    parser.add_argument("images", nargs="+")
    args = parser.parse_args()

    tree = os.path.join(args.work, "tree")
    os.makedirs(os.path.join(tree, "sub"), exist_ok=True)
    with open(os.path.join(tree, "sub", "kept.txt"), "w") as f:
        f.write("kept\n")
    image = os.path.join(args.work, "shadow.img")
    folder = os.path.join(args.work, "instance")
    out = os.path.join(args.work, "out")
    write_instance(folder, args.program, image, tree)

    failures_total = 0
    named_rows = []
    print("| Image | Runs | Crashes | Hangs | Broken rules | NTFS failed, walked | Exit 0, index accepted | Slowest run | Time |")
    print("| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |")
    for path in args.images:
        opener = gzip.open if path.endswith(".gz") else open
        with opener(path, "rb") as f:
            img = f.read()
        volume = Volume(img)
        with open(image, "wb") as f:
            f.write(img)
        places = [p for p, spots in volume.targets.items() if spots]
        rng = random.Random("%d:%s" % (args.seed, os.path.basename(path)))
        counts, slowest, started = Counter(), 0.0, time.monotonic()
        for n in range(args.runs):
            place = places[n % len(places)]
            patches, cut, what = mutate(img, volume, rng, place)
            change_image(image, img, patches, cut, undo=False)
            code, log, stderr, took = run_once(folder, out, args.timeout)
            slowest = max(slowest, took)
            broken, failure = check_run(code, log, stderr, out, args.catalogue)
            if failure:
                counts["walked"] += 1
            if code == 0:
                counts["exit0"] += 1
                counts["accepted"] += not any(b.startswith("exit 0 with an invalid index") for b in broken)
            if code is None:
                counts["hangs"] += 1
            elif code not in (0, 1):
                counts["crashes"] += 1
            if broken:
                counts["broken"] += 1
                print("FAIL %s run %d (%s): %s" % (os.path.basename(path), n, what, "; ".join(broken)),
                      file=sys.stderr)
                keep = os.path.join(args.work, "failed-%s-%d.img" % (os.path.basename(path), n))
                shutil.copy(image, keep)
            change_image(image, img, patches, cut, undo=True)
        failures_total += counts["broken"]
        print("| %s | %d | %d | %d | %d | %d | %d of %d | %.2f s | %.0f s |" % (
            os.path.basename(path), args.runs, counts["crashes"], counts["hangs"], counts["broken"],
            counts["walked"], counts["accepted"], counts["exit0"], slowest, time.monotonic() - started))
        sys.stdout.flush()
        for name, patches, settings, check in named_cases(img, volume):
            write_registry(folder, image, tree, settings)
            change_image(image, img, patches, None, undo=False)
            code, log, stderr, took = run_once(folder, out, args.timeout)
            broken, failure = check_run(code, log, stderr, out, args.catalogue)
            if code in (0, 1):
                broken += check(code, log, failure)
            change_image(image, img, patches, None, undo=True)
            write_registry(folder, image, tree)
            if broken:
                failures_total += 1
                print("FAIL %s (%s): %s" % (os.path.basename(path), name, "; ".join(broken)), file=sys.stderr)
            named_rows.append("| %s | %s | %s | %s | %s |" % (
                os.path.basename(path), name, code, "failed, walked" if failure else "complete",
                "; ".join(broken) if broken else "kept"))
    print()
    print("| Image | Named case | Exit | NTFS attempt | Rules |")
    print("| --- | --- | ---: | --- | --- |")
    for row in named_rows:
        print(row)
    return 1 if failures_total else 0


if __name__ == "__main__":
    sys.exit(main())
