#!/usr/bin/env python3
"""Copies an NTFS image whose file records carry the early 48-byte
$STANDARD_INFORMATION (as ntfs-3g writes it) into one where every record with
room for it carries the 72-byte form that Windows writes (security id 0x100,
owner, quota and journal fields 0); nothing else changes. A record too full
for the 24 more bytes keeps the short form.

Usage: ntfs-long-standard-info.py SOURCE DESTINATION   (prints the counts)
"""
import shutil
import struct
import sys

RECORD = 1024
SHORT, LONG = 48, 72


def unprotect(rec):
    """Puts the update sequence array's words back at the sector ends."""
    usa, count = struct.unpack_from("<HH", rec, 4)
    for i in range(1, count):
        rec[i * 512 - 2:i * 512] = rec[usa + 2 * i:usa + 2 * i + 2]


def protect(rec):
    """Moves the sector ends into the array and writes the check word there."""
    usa, count = struct.unpack_from("<HH", rec, 4)
    check = rec[usa:usa + 2]
    for i in range(1, count):
        rec[usa + 2 * i:usa + 2 * i + 2] = rec[i * 512 - 2:i * 512]
        rec[i * 512 - 2:i * 512] = check


def mft_runs(f):
    """(byte offset, byte length) runs of the $MFT and its record count."""
    boot = f.read(512)
    cluster = struct.unpack_from("<H", boot, 0x0B)[0] * boot[0x0D]
    f.seek(struct.unpack_from("<Q", boot, 0x30)[0] * cluster)
    rec = bytearray(f.read(RECORD))
    unprotect(rec)
    at = struct.unpack_from("<H", rec, 0x14)[0]
    while True:
        kind, length = struct.unpack_from("<II", rec, at)
        if kind == 0x80 and rec[at + 8]:
            size = struct.unpack_from("<Q", rec, at + 0x30)[0]
            pos, lcn, runs = at + struct.unpack_from("<H", rec, at + 0x20)[0], 0, []
            while rec[pos]:
                nlen, olen = rec[pos] & 15, rec[pos] >> 4
                count = int.from_bytes(rec[pos + 1:pos + 1 + nlen], "little")
                lcn += int.from_bytes(rec[pos + 1 + nlen:pos + 1 + nlen + olen], "little", signed=True)
                runs.append((lcn * cluster, count * cluster))
                pos += 1 + nlen + olen
            return runs, size // RECORD
        at += length


def lengthen(rec):
    """Grows a short $STANDARD_INFORMATION in place; False when there is none or no room."""
    at = struct.unpack_from("<H", rec, 0x14)[0]
    in_use, allocated = struct.unpack_from("<II", rec, 0x18)
    if struct.unpack_from("<IIB", rec, at) != (0x10, 0x18 + SHORT, 0) or \
            struct.unpack_from("<I", rec, at + 0x10)[0] != SHORT or in_use + LONG - SHORT > allocated:
        return False
    rec[at + 0x18 + SHORT:at + 0x18 + SHORT] = bytes(LONG - SHORT)
    del rec[RECORD:]
    struct.pack_into("<I", rec, at + 4, 0x18 + LONG)
    struct.pack_into("<I", rec, at + 0x10, LONG)
    struct.pack_into("<I", rec, at + 0x18 + 0x34, 0x100)
    struct.pack_into("<I", rec, 0x18, in_use + LONG - SHORT)
    return True


def main():
    source, destination = sys.argv[1:3]
    shutil.copyfile(source, destination)
    with open(destination, "r+b") as f:
        runs, count = mft_runs(f)
        seen = grown = 0
        for offset, length in runs:
            for base in range(offset, offset + length, 64 << 20):
                n = min(64 << 20, offset + length - base)
                f.seek(base)
                chunk = bytearray(f.read(n))
                for r in range(0, n, RECORD):
                    if seen >= count:
                        break
                    seen += 1
                    rec = chunk[r:r + RECORD]
                    if rec[:4] != b"FILE" or not rec[0x16] & 1:
                        continue
                    unprotect(rec)
                    if lengthen(rec):
                        protect(rec)
                        chunk[r:r + RECORD] = rec
                        grown += 1
                f.seek(base)
                f.write(chunk)
    print("records %d, lengthened %d" % (seen, grown))


if __name__ == "__main__":
    main()
