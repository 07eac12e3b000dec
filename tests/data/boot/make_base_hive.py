#!/usr/bin/env python3
"""Writes an empty registry hive: the 4 KiB base block and one 4 KiB bin holding the root key and its security
record. hivexregedit cannot start from nothing, so the boot fixtures grow their stores from this.
    make_base_hive.py <file> <root key name>
Layout (regf base block, hbin, nk and sk cells) as hivex's lib/hivex-internal.h reads it."""
import struct
import sys

path, root_name = sys.argv[1], sys.argv[2].encode("ascii")
BIN = 0x1000

# A self-relative security descriptor with no owner, group or DACL (DACL present and NULL: everyone).
descriptor = struct.pack("<BBHIIII", 1, 0, 0x8004, 0, 0, 0, 0)

def cell(payload):
    size = (4 + len(payload) + 7) & ~7
    return struct.pack("<i", -size) + payload + b"\0" * (size - 4 - len(payload))

root_offset = 0x20
nk_length = 4 + 0x4C + len(root_name)
sk_offset = root_offset + ((nk_length + 7) & ~7)
nk = struct.pack("<2sHQIIIIIIIIIIIIIIIHH", b"nk", 0x2C, 0, 0, 0, 0, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0, 0xFFFFFFFF,
                 sk_offset, 0xFFFFFFFF, 0, 0, 0, 0, 0, len(root_name), 0) + root_name
sk = struct.pack("<2sHIIII", b"sk", 0, sk_offset, sk_offset, 1, len(descriptor)) + descriptor
cells = cell(nk) + cell(sk)
free = BIN - 0x20 - len(cells)
hbin = struct.pack("<4sIIQQI", b"hbin", 0, BIN, 0, 0, 0) + cells + struct.pack("<i", free) + b"\0" * (free - 4)

base = bytearray(BIN)
struct.pack_into("<4sIIQIIIIIII", base, 0, b"regf", 1, 1, 0, 1, 3, 0, 1, root_offset, BIN, 1)
checksum = 0
for (word,) in struct.iter_unpack("<I", bytes(base[:0x1FC])):
    checksum ^= word
struct.pack_into("<I", base, 0x1FC, checksum)

with open(path, "wb") as out:
    out.write(bytes(base) + hbin)
