#!/usr/bin/env python3
"""Wraps a raw volume into a compressed disk image: disk_image.py VOLUME IMAGE COMPRESSION [DAMAGE].

A data fork of runs of 256 KiB, a property list with a table of the runs, and a trailer of 512 bytes.
Runs that are all zero are left out of the fork. COMPRESSION: zlib, bzip2, xz, raw or lzvn (literals
only). DAMAGE: checksum (the one of the volume is wrong).
"""
import bz2, lzma, plistlib, struct, sys, zlib

RUN = 1 << 18


def lzvn(data):
    body = b""
    for at in range(0, len(data), 271):
        part = data[at : at + 271]
        body += bytes([0xE0, len(part) - 16] if len(part) > 15 else [0xE0 | len(part)]) + part
    body += b"\x06" + bytes(7)
    return b"bvxn" + struct.pack("<II", len(data), len(body)) + body + b"bvx$"


PACK = {
    "raw": (1, bytes),
    "zlib": (0x80000005, zlib.compress),
    "bzip2": (0x80000006, bz2.compress),
    "lzvn": (0x80000007, lzvn),
    "xz": (0x80000008, lzma.compress),
}


def checksum(crc):
    return struct.pack(">III", 2, 32, crc) + bytes(124)


def image(volume, compression, damage=""):
    volume += bytes(-len(volume) % 512)
    sectors = len(volume) // 512
    kind, pack = PACK[compression]
    fork, runs = b"", b""
    for at in range(0, len(volume), RUN):
        part = volume[at : at + RUN]
        packed = pack(part) if part.strip(b"\0") else b""
        runs += struct.pack(">IIQQQQ", kind if packed else 0, 0, at // 512, len(part) // 512,
                            len(fork), len(packed))
        fork += packed
    runs += struct.pack(">IIQQQQ", 0xFFFFFFFF, 0, sectors, 0, len(fork), 0)
    crc = zlib.crc32(volume) ^ (damage == "checksum")
    table = (struct.pack(">4sIQQQII24x", b"mish", 1, 0, sectors, 0, RUN // 512 + 8, 0)
             + checksum(crc) + struct.pack(">I", len(runs) // 40) + runs)
    block = {"Attributes": "0x0050", "CFName": "volume", "Data": table, "ID": "0", "Name": "volume"}
    plist = plistlib.dumps({"resource-fork": {"blkx": [block]}})
    trailer = struct.pack(">4sIIIQQQQQIII16s", b"koly", 4, 512, 1, 0, 0, len(fork), 0, 0, 1, 1, 0,
                          bytes(16))
    trailer = (trailer[:64] + bytes(16) + checksum(zlib.crc32(fork))
               + struct.pack(">QQ120x", len(fork), len(plist))
               + checksum(zlib.crc32(struct.pack(">I", crc))) + struct.pack(">IQ12x", 1, sectors))
    return fork + plist + trailer


if __name__ == "__main__":
    with open(sys.argv[1], "rb") as volume, open(sys.argv[2], "wb") as output:
        output.write(image(volume.read(), *sys.argv[3:]))
