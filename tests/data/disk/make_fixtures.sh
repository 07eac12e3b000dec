#!/bin/bash
# Makes the disk-image fixtures with the real partitioning and formatting tools, into the folder given.
#   make_fixtures.sh <outdir>
# Images are sparse and small; GUIDs, serials, labels and time stamps are fixed so that the images are the
# same on every run. A stamp holding this script's checksum makes a second run into the same folder a no-op.
# Exit code 77 means a tool is missing (tests skip on it).
set -euo pipefail

out=${1:?usage: make_fixtures.sh <outdir>}
mkdir -p "$out"
stamp="$out/.stamp"
sum=$(sha256sum "$0" | cut -d' ' -f1)
if [[ -f $stamp && $(cat "$stamp") == "$sum" ]]; then exit 0; fi
# Test processes may start this at the same time: one makes the images, the others wait and find the stamp.
exec 9>"$out/.lock"
flock 9
if [[ -f $stamp && $(cat "$stamp") == "$sum" ]]; then exit 0; fi

export PATH="$PATH:/usr/sbin:/sbin"
for tool in flock sfdisk fdisk sgdisk mkfs.vfat fsck.fat mkntfs ntfslabel ntfsinfo mkfs.ext4 dumpe2fs mkfs.exfat exfatlabel \
  dump.exfat mkswap blkid dd truncate od mmd mcopy mdir mshowfat ntfscp fls; do
  if ! command -v "$tool" >/dev/null; then
    echo "make_fixtures.sh: missing tool $tool" >&2
    exit 77
  fi
done

# The tools' own reports, kept beside the images so that tests (also those run under Wine) compare against them.
reports="$out/reports"
mkdir -p "$reports"
report() {  # <name> <command...>: saves the command's output (a tool that complains still leaves its text)
  local name=$1
  shift
  "$@" >"$reports/$name" 2>&1 || true
}

# Every time stamp mkfs.ext4 writes comes from this clock.
export E2FSPROGS_FAKE_TIME=1600000000
# Made beside the images, so that moving them in is a rename: a reader never sees half an image.
work=$(mktemp -d "$out/.work.XXXXXX")
trap 'rm -rf "$work"' EXIT

# place <image> <start sector> <sector size> <file system image>: copies a file system into a partition.
place() {
  dd if="$4" of="$1" bs="$3" seek="$2" conv=notrunc,sparse status=none
}

# poke <file> <byte offset> <hex bytes...>: overwrites bytes in place.
poke() {
  local file=$1 offset=$2
  shift 2
  local bytes=""
  for b in "$@"; do bytes+="\\x$b"; done
  printf "$bytes" | dd of="$file" bs=1 seek="$offset" conv=notrunc status=none
}

u32() { od -An -t u4 -j "$2" -N 4 "$1" | tr -d ' '; }

fat16() {  # <file> <MiB> <hidden sectors> <label>
  truncate -s "$2M" "$1"
  mkfs.vfat -F 16 -n "$4" -h "$3" -i 1234ABCD --invariant "$1" >/dev/null
}
fat32() {
  truncate -s "$2M" "$1"
  mkfs.vfat -F 32 -s 1 -n "$4" -h "$3" -i 1234ABCD --invariant "$1" >/dev/null
}
ntfs() {  # <file> <MiB> <hidden sectors> <label> <serial>
  truncate -s "$2M" "$1"
  mkntfs -F -Q -q -s 512 -p "$3" -H 255 -S 63 -L "$4" "$1" >/dev/null 2>&1
  ntfslabel --new-serial="$5" "$1" >/dev/null 2>&1
}
ext4() {  # <file> <MiB> <label> [block size]
  truncate -s "$2M" "$1"
  mkfs.ext4 -q -F -L "$3" -b "${4:-1024}" -U 11111111-2222-3333-4444-555555555555 \
    -E hash_seed=66666666-7777-8888-9999-000000000000 "$1" >/dev/null 2>&1
}
exfat() {  # <file> <MiB> <label>
  truncate -s "$2M" "$1"
  mkfs.exfat -L "$3" "$1" >/dev/null
  exfatlabel -i "$1" 0x5EED0E0F >/dev/null
}

# MBR disk: FAT16 (active), NTFS, and an extended partition holding ext4 and exFAT logical partitions.
img="$work/mbr.img"
truncate -s 64M "$img"
sfdisk -q "$img" >/dev/null <<'EOF'
label: dos
label-id: 0x5eed0001
start=2048, size=32768, type=6, bootable
start=34816, size=24576, type=7
start=59392, size=57344, type=5
start=61440, size=24576, type=83
start=88064, size=16384, type=7
EOF
fat16 "$work/p1" 16 2048 MBRFAT16
ntfs "$work/p2" 12 34816 MbrNtfs 0123456789ABCDEF
ext4 "$work/p5" 12 mbrext4
exfat "$work/p6" 8 MbrExfat
place "$img" 2048 512 "$work/p1"
place "$img" 34816 512 "$work/p2"
place "$img" 61440 512 "$work/p5"
place "$img" 88064 512 "$work/p6"
report mbr.sfdisk.json sfdisk --json "$img"
report mbr.p1.fsck.txt fsck.fat -vn "$work/p1"
report mbr.p2.ntfsinfo.txt ntfsinfo -m "$work/p2"
report mbr.p5.dumpe2fs.txt dumpe2fs -h "$work/p5"
report mbr.p6.dumpexfat.txt dump.exfat "$work/p6"

# GPT disk: EFI system partition (FAT32), Microsoft reserved partition, basic data partition (NTFS).
img="$work/gpt.img"
truncate -s 64M "$img"
sgdisk -o -U 5EED0002-0000-4000-8000-000000000000 \
  -n 1:2048:+40M -t 1:EF00 -u 1:5EED0002-0001-4000-8000-000000000000 -c 1:"EFI system partition" \
  -n 2:0:+4M -t 2:0C01 -u 2:5EED0002-0002-4000-8000-000000000000 -c 2:"Microsoft reserved partition" \
  -n 3:0:+16M -t 3:0700 -u 3:5EED0002-0003-4000-8000-000000000000 -c 3:"Basic data partition" \
  "$img" >/dev/null
fat32 "$work/esp" 40 2048 ESP
ntfs "$work/data" 16 92160 GptData FEDCBA9876543210
place "$img" 2048 512 "$work/esp"
place "$img" 92160 512 "$work/data"
report gpt.sfdisk.json sfdisk --json "$img"
report gpt.p1.fsck.txt fsck.fat -vn "$work/esp"
report gpt.p3.ntfsinfo.txt ntfsinfo -m "$work/data"

# A whole-disk FAT12 file system (a superfloppy): no partition table at all.
img="$work/floppy.img"
truncate -s 1440K "$img"
mkfs.vfat -F 12 -n FLOPPY -i 1234ABCD --invariant "$img" >/dev/null
report floppy.fsck.txt fsck.fat -vn "$img"

# Linux swap over a whole disk (a format known by its signature).
img="$work/swap.img"
truncate -s 4M "$img"
mkswap -L SwapVol -U 5EED0009-0000-4000-8000-000000000000 "$img" >/dev/null 2>&1
report swap.blkid.txt blkid -p -o export "$img"

# A disk of 4096-byte sectors (fdisk, as sfdisk here cannot be told the sector size): ext4 and FAT.
img="$work/gpt4k.img"
truncate -s 16M "$img"
printf 'g\nn\n1\n\n+4M\nn\n2\n\n+4M\nt\n2\n11\nx\ni\n5EED0004-0000-4000-8000-000000000000\nu\n1\n5EED0004-0001-4000-8000-000000000000\nu\n2\n5EED0004-0002-4000-8000-000000000000\nr\nw\n' |
  fdisk -b 4096 "$img" >/dev/null 2>&1
ext4 "$work/k1" 4 ext4k 4096
truncate -s 4M "$work/k2"
mkfs.vfat -S 4096 -n FAT4K -h 1280 -i 1234ABCD --invariant "$work/k2" >/dev/null
place "$img" 256 4096 "$work/k1"
place "$img" 1280 4096 "$work/k2"
report gpt4k.fdisk.txt fdisk -b 4096 -l "$img"
report gpt4k.p1.dumpe2fs.txt dumpe2fs -h "$work/k1"
report gpt4k.p2.fsck.txt fsck.fat -vn "$work/k2"

# The same two file systems on an MBR disk of 4096-byte sectors: only the partitions tell the sector size.
img="$work/mbr4k.img"
truncate -s 16M "$img"
printf 'o\nx\ni\n0x5eed000c\nr\nn\np\n1\n256\n+4M\nt\n83\nn\np\n2\n\n+4M\nt\n2\n1\nw\n' |
  fdisk -b 4096 "$img" >/dev/null 2>&1
place "$img" 256 4096 "$work/k1"
place "$img" 1280 4096 "$work/k2"
report mbr4k.fdisk.txt fdisk -b 4096 -l "$img"

# A hybrid MBR (sgdisk -h): besides the protective entry, the MBR describes the first GPT partition.
img="$work/hybrid.img"
truncate -s 8M "$img"
sgdisk -o -U 5EED000A-0000-4000-8000-000000000000 -n 1:2048:+2M -t 1:0700 -u 1:5EED000A-0001-4000-8000-000000000000 \
  -n 2:0:+2M -t 2:8300 -u 2:5EED000A-0002-4000-8000-000000000000 "$img" >/dev/null
sgdisk -h 1:EE "$img" >/dev/null

# A legacy MBR written over a GPT disk without wiping it: both GPT headers stay behind the new MBR.
img="$work/mbr-over-gpt.img"
truncate -s 8M "$img"
sgdisk -o -U 5EED000B-0000-4000-8000-000000000000 -n 1:2048:+2M -t 1:0700 -u 1:5EED000B-0001-4000-8000-000000000000 \
  "$img" >/dev/null
sfdisk -q --wipe never "$img" >/dev/null <<'EOF'
label: dos
label-id: 0x5eed000b
start=4096, size=4096, type=83
EOF

# Damaged: a GPT whose primary header CRC is wrong (one byte of its disk GUID changed); the backup is sound.
img="$work/gpt-badcrc.img"
truncate -s 8M "$img"
sgdisk -o -U 5EED0005-0000-4000-8000-000000000000 -n 1:2048:+4M -t 1:0700 \
  -u 1:5EED0005-0001-4000-8000-000000000000 "$img" >/dev/null
report gpt-badcrc.sfdisk.json sfdisk --json "$img"
poke "$img" $((512 + 56)) FF

# Damaged: an EBR chain that loops (the second EBR's link points back to the first).
img="$work/ebr-loop.img"
truncate -s 16M "$img"
sfdisk -q "$img" >/dev/null <<'EOF'
label: dos
label-id: 0x5eed0006
start=2048, size=30720, type=5
start=4096, size=4096, type=83
start=10240, size=4096, type=83
EOF
second=$((2048 + $(u32 "$img" $((2048 * 512 + 446 + 16 + 8)))))
poke "$img" $((second * 512 + 446 + 16)) 00 00 00 00 05 00 00 00 00 00 00 00 01 00 00 00

# Damaged: partitions that run past the end of the disk (the image was cut short after partitioning).
img="$work/past-end.img"
truncate -s 16M "$img"
sfdisk -q "$img" >/dev/null <<'EOF'
label: dos
label-id: 0x5eed0007
start=2048, size=24576, type=83
start=26624, size=4096, type=83
EOF
report past-end.sfdisk.json sfdisk --json "$img"
truncate -s 8M "$img"

# Damaged: a FAT32 partition whose boot sector says 0 sectors per cluster.
img="$work/fat32-spc0.img"
truncate -s 48M "$img"
sfdisk -q "$img" >/dev/null <<'EOF'
label: dos
label-id: 0x5eed0008
start=2048, size=81920, type=c
EOF
fat32 "$work/f" 40 2048 ZEROSPC
poke "$work/f" 13 00
place "$img" 2048 512 "$work/f"

# Damaged: a zero-length image.
: >"$work/empty.img"

# Files for the mounted-volume readers, put in by mtools and ntfscp; the same content in every image.
export MTOOLS_SKIP_CHECK=1
src="$work/src"
mkdir -p "$src"
printf '[boot loader]\r\ntimeout=30\r\n' >"$src/boot.ini"
: >"$src/empty"
for i in $(seq 1 700); do printf 'line %04d of a file that spans several clusters\n' "$i"; done >"$src/bootmgr"
cp "$src/boot.ini" "$out/files.boot.ini"
cp "$src/bootmgr" "$out/files.bootmgr"
fill_fat() {  # <image@@offset>: nested folders, a long file name, an empty file
  mmd -i "$1" ::/EFI ::/EFI/Microsoft ::/EFI/Microsoft/Boot ::/ZORBELT
  mcopy -i "$1" "$src/bootmgr" ::/bootmgr
  mcopy -i "$1" "$src/bootmgr" ::/EFI/Microsoft/Boot/BCD
  mcopy -i "$1" "$src/boot.ini" "::/ZORBELT/A long file name.txt"
  mcopy -i "$1" "$src/empty" ::/boot.ini
}
img="$work/fat12-files.img"
truncate -s 1440K "$img"
mkfs.vfat -F 12 -n FILES12 -i 1234ABCD --invariant "$img" >/dev/null
fill_fat "$img"
report fat12-files.mdir.txt mdir -/ -b -i "$img" ::/
report fat12-files.fls.txt fls -r -p "$img"

# An MBR disk with a FAT16 partition filled at its byte offset and an NTFS partition.
img="$work/files.img"
truncate -s 48M "$img"
sfdisk -q "$img" >/dev/null <<'EOF2'
label: dos
label-id: 0x5eed000a
start=2048, size=40960, type=6
start=43008, size=49152, type=7
EOF2
fat16 "$work/f16" 20 2048 FILES16
ntfs "$work/n" 24 43008 FilesNtfs 0123456789ABCDEF
ntfscp -f "$work/n" "$src/bootmgr" bootmgr >/dev/null 2>&1
ntfscp -f "$work/n" "$src/boot.ini" "Long NTFS file name.ini" >/dev/null 2>&1
place "$img" 2048 512 "$work/f16"
place "$img" 43008 512 "$work/n"
fill_fat "$img@@$((2048 * 512))"
report files.p1.mdir.txt mdir -/ -b -i "$img@@$((2048 * 512))" ::/
report files.p1.fls.txt fls -r -p -o 2048 "$img"
report files.p2.fls.txt fls -r -p -o 43008 "$img"

# FAT faults that fsck.fat -n finds: a circular chain (the last cluster of bootmgr links back to its first)
# and a lost cluster (an end mark in an entry no file reaches), each written into both FAT copies.
u16() { od -An -t u2 -j "$2" -N 2 "$1" | tr -d ' '; }
fat16 "$work/c" 20 0 CIRCULAR
fill_fat "$work/c"
cp "$work/c" "$work/l"
chain=$(mshowfat -i "$work/c" ::/bootmgr | sed -n 's/.*<\([0-9]*\)-\([0-9]*\)>.*/\1 \2/p')
first=${chain% *}
last=${chain#* }
fat=$(($(u16 "$work/c" 14) * 512))
fatbytes=$(($(u16 "$work/c" 22) * 512))
for copy in 0 1; do
  poke "$work/c" $((fat + copy * fatbytes + last * 2)) $(printf '%02x %02x' $((first & 255)) $((first >> 8)))
  poke "$work/l" $((fat + copy * fatbytes + 4000 * 2)) ff ff
done
mv "$work/c" "$work/fat16-circular.img"
mv "$work/l" "$work/fat16-lost.img"
report fat16-circular.fsck.txt fsck.fat -n "$work/fat16-circular.img"
report fat16-lost.fsck.txt fsck.fat -n "$work/fat16-lost.img"

# FAT32 with fewer than 65,525 clusters: a 100 MiB EFI system partition in 4096-byte sectors.
img="$work/fat32-4k.img"
truncate -s 100M "$img"
mkfs.vfat -F 32 -S 4096 -n ESP4K -i 1234ABCD --invariant "$img" >/dev/null 2>&1
report fat32-4k.fsck.txt fsck.fat -vn "$img"

# A FAT32 volume whose FAT spans several megabytes, for counting how often the FAT is read.
img="$work/fat32-big.img"
truncate -s 600M "$img"
mkfs.vfat -F 32 -s 1 -n BIGFAT -i 1234ABCD --invariant "$img" >/dev/null
report fat32-big.fsck.txt fsck.fat -vn "$img"

for image in "$work"/*.img; do mv -f "$image" "$out/"; done
echo "$sum" >"$stamp"
