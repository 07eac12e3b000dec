#!/usr/bin/env python3
"""Makes the disk fuzzers' starting inputs from the disk fixtures (tests/data/disk/make_fixtures.sh <dir> first).

   make_corpus.py <fixtures dir> <corpus dir>

Each input is in the fuzzers' sparse format: u32 sector count, u8 sector-size shift, then records of
u32 sector number and one sector, for the sectors that are not all zero among those the decoders read.
"""
import os
import struct
import sys

MAX_SECTORS = 160


def corpus_input(image, sector_size, first, count, wanted):
    """The sparse form of `count` sectors from `first`, keeping the non-zero sectors that `wanted` picks."""
    out = struct.pack("<IB", count, 12 if sector_size == 4096 else 9)
    kept = 0
    with open(image, "rb") as f:
        for sector in wanted(count):
            if kept == MAX_SECTORS:
                break
            f.seek((first + sector) * sector_size)
            data = f.read(sector_size)
            if len(data) == sector_size and any(data):
                out += struct.pack("<I", sector) + data
                kept += 1
    return out


def tables(count):
    """Where partition tables live: the first sectors, the EBRs of the fixtures, the backup GPT."""
    return sorted(set(list(range(0, 34)) + [2048, 8192, 59392, 86016] + list(range(max(0, count - 33), count))))


def leading(count):
    return range(0, min(count, 4096))


def main():
    fixtures, corpus = sys.argv[1], sys.argv[2]
    layouts = os.path.join(corpus, "partition_table")
    readers = os.path.join(corpus, "fat_reader")
    os.makedirs(readers, exist_ok=True)
    volumes = os.path.join(corpus, "fs_probe")
    os.makedirs(layouts, exist_ok=True)
    os.makedirs(volumes, exist_ok=True)
    for name, sector_size in [("mbr", 512), ("gpt", 512), ("gpt4k", 4096), ("mbr4k", 4096), ("hybrid", 512),
                              ("mbr-over-gpt", 512), ("gpt-badcrc", 512), ("ebr-loop", 512), ("past-end", 512),
                              ("fat32-spc0", 512), ("floppy", 512)]:
        image = os.path.join(fixtures, name + ".img")
        count = os.path.getsize(image) // sector_size
        if name == "past-end":
            count = 16384  # the cut image keeps its table
        with open(os.path.join(layouts, name), "wb") as f:
            f.write(corpus_input(image, sector_size, 0, count, tables))
    for name, image, sector_size, first, count in [
        ("fat16", "mbr", 512, 2048, 32768), ("ntfs", "mbr", 512, 34816, 24576), ("ext4", "mbr", 512, 61440, 24576),
        ("exfat", "mbr", 512, 88064, 16384), ("fat32", "gpt", 512, 2048, 81920), ("fat12", "floppy", 512, 0, 2880),
        ("ext4-4k", "gpt4k", 4096, 256, 1024), ("fat32-spc0", "fat32-spc0", 512, 2048, 81920),
    ]:
        with open(os.path.join(volumes, name), "wb") as f:
            f.write(corpus_input(os.path.join(fixtures, image + ".img"), sector_size, first, count, leading))
    # Volumes with files in nested folders, a long name and an empty file, and one with a looping chain.
    for name, image, first, count in [("fat12-files", "fat12-files", 0, 2880), ("fat16-files", "files", 2048, 40960),
                                      ("fat16-circular", "fat16-circular", 0, 40960)]:
        with open(os.path.join(readers, name), "wb") as f:
            f.write(corpus_input(os.path.join(fixtures, image + ".img"), 512, first, count, leading))


if __name__ == "__main__":
    main()
