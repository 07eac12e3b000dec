#!/bin/bash
# Makes the boot-configuration fixtures with the real tools, into the folder given:
#   make_boot_fixtures.sh <outdir>
# Outputs (names fixed, for every test that reuses them):
#   bcd.reg       the boot store as registry text (keys under HKEY_LOCAL_MACHINE\BCD00000000), also fit for
#                 "reg import" on Windows
#   bcd.hive      that store as a hive file (hivexregedit --merge into an empty hive), root key "ROOT"
#   gpt-esp.img   GPT disk: EFI system partition (FAT32, mkfs.vfat --offset, files by mtools) holding
#                 \EFI\Microsoft\Boot\BCD and bootmgfw.efi, a long-named file, an empty boot.ini, a binary
#                 zorbelt.ksx, a text zorbelt.cfg and a ZORBELT folder; then an ext4 partition
#   mbr-ntfs.img  MBR disk: NTFS partition (mkntfs, files through a read-write ntfs-3g mount in a private
#                 mount namespace) holding \Boot\BCD, bootmgr and boot.ini; then an ext4 partition
#   floppy.img    FAT12 floppy without a partition table, holding autoexec.bat and config.sys
#   bad-*.hive    damaged stores: bad-text (not a hive), bad-truncated (cut inside its bins), bad-huge (a
#                 256 KiB value), bad-deep (keys 40 levels deep), bad-loop (a sub-key list entry of the root
#                 pointing back at the root)
#   reports/      the tools' own listings of the images (mdir, hivexsh), for cross-checks
# Serials, GUIDs and time stamps are fixed. A stamp holding this script's checksum makes a second run into
# the same folder a no-op. Exit code 77 means a tool (or root, for the NTFS mount) is missing.
set -euo pipefail

out=${1:?usage: make_boot_fixtures.sh <outdir>}
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$out"
stamp="$out/.stamp"
sum=$(cat "$0" "$here/make_base_hive.py" | sha256sum | cut -d' ' -f1)
if [[ -f $stamp && $(cat "$stamp") == "$sum" ]]; then exit 0; fi
# Test processes may start this at the same time: one makes the images, the others wait and find the stamp.
exec 9>"$out/.lock"
flock 9
if [[ -f $stamp && $(cat "$stamp") == "$sum" ]]; then exit 0; fi

export PATH="$PATH:/usr/sbin:/sbin"
for tool in python3 iconv hivexregedit hivexsh sgdisk sfdisk mkfs.vfat mmd mcopy mdir mkntfs ntfs-3g unshare \
  mkfs.ext4 dd truncate; do
  if ! command -v "$tool" >/dev/null; then
    echo "make_boot_fixtures.sh: missing tool $tool" >&2
    exit 77
  fi
done
if [[ $(id -u) != 0 ]]; then
  echo "make_boot_fixtures.sh: the NTFS files are put through a mount, which needs root" >&2
  exit 77
fi

work=$(mktemp -d "$out/.work.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/reports"
export E2FSPROGS_FAKE_TIME=1600000000 MTOOLS_SKIP_CHECK=1 TZ=UTC

# utf16 <text>: the text as UTF-16LE with its terminating NUL, in .reg hex notation ("41,00,00,00").
utf16() { printf '%s\0' "$1" | iconv -f UTF-8 -t UTF-16LE | od -An -v -tx1 | tr -s ' \n' ',' | sed 's/^,//; s/,$//'; }

# The store: one boot manager object, each element type the dump shows by its own rule.
key='HKEY_LOCAL_MACHINE\BCD00000000'
object="$key\\Objects\\{9dea862c-5cdd-4e70-acc1-f32b344d4795}"
cat >"$work/bcd.reg" <<REG
Windows Registry Editor Version 5.00

[$key]

[$key\\Description]
"KeyName"="BCD00000000"
"System"=dword:00000001

[$key\\Objects]

[$object]

[$object\\Description]
"Type"=dword:10100002
"Path"=hex(2):$(utf16 '%SystemRoot%\Boot')

[$object\\Elements]

[$object\\Elements\\11000001]
"Element"=hex:00,00,00,00,00,00,00,00,00,00,00,00,00,00,00,00,06,00,00,00,00,00,00,00

[$object\\Elements\\12000004]
"Element"="Windows Boot Manager"

[$object\\Elements\\24000001]
"Element"=hex(7):$(utf16 '{a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba}'),$(utf16 '{b2721d73-1db4-4c62-bf78-c548a880142d}'),00,00

[$object\\Elements\\25000004]
"Element"=hex:1e,00,00,00,00,00,00,00

[$object\\Elements\\25000006]
"Element"=hex(b):00,10,00,00,01,00,00,00
REG
python3 "$here/make_base_hive.py" "$work/bcd.hive" ROOT
hivexregedit --merge --prefix "$key" "$work/bcd.hive" "$work/bcd.reg"
hivexsh -w "$work/bcd.hive" >"$work/reports/bcd.hivexsh.txt" 2>&1 <<'SH' || true
cd \Objects\{9dea862c-5cdd-4e70-acc1-f32b344d4795}\Elements\12000004
lsval
SH

# The tool's own view of every key's values, to cross-check the reader: "key <path>" then hivexsh's lsval.
grep -o '^\[[^]]*\]' "$work/bcd.reg" | sed "s/^\[//; s/\]$//; s/^HKEY_LOCAL_MACHINE\\\\BCD00000000//" |
  while IFS= read -r path; do
    echo "key ${path:-\\}"
    printf 'cd %s\nlsval\n' "${path:-\\}" | hivexsh "$work/bcd.hive"
  done >"$work/reports/bcd.lsval.txt"

# Damaged stores.
head -c 16384 /dev/urandom | base64 >"$work/bad-text.hive"
head -c 10000 "$work/bcd.hive" >"$work/bad-truncated.hive"
{
  printf 'Windows Registry Editor Version 5.00\n\n[%s\\Big]\n"Element"=hex:' "$key"
  head -c $((256 * 1024)) /dev/zero | od -An -v -tx1 | tr -s ' \n' ',' | sed 's/^,//; s/,$//'
  printf '\n'
} >"$work/big.reg"
python3 "$here/make_base_hive.py" "$work/bad-huge.hive" ROOT
hivexregedit --merge --prefix "$key" "$work/bad-huge.hive" "$work/big.reg"
{
  printf 'Windows Registry Editor Version 5.00\n'
  deep="$key"
  for level in $(seq 1 40); do
    deep+="\\Level$level"
    printf '\n[%s]\n"Depth"=dword:%08x\n' "$deep" "$level"
  done
} >"$work/deep.reg"
python3 "$here/make_base_hive.py" "$work/bad-deep.hive" ROOT
hivexregedit --merge --prefix "$key" "$work/bad-deep.hive" "$work/deep.reg"
cp "$work/bcd.hive" "$work/bad-loop.hive"
python3 - "$work/bad-loop.hive" <<'PY'
import struct, sys
data = bytearray(open(sys.argv[1], "rb").read())
root = struct.unpack_from("<I", data, 0x24)[0]
nk = 0x1000 + root + 4
subkeys = 0x1000 + struct.unpack_from("<I", data, nk + 0x1C)[0] + 4  # the root's lf/lh list
assert data[subkeys:subkeys + 2] in (b"lf", b"lh"), data[subkeys:subkeys + 2]
struct.pack_into("<I", data, subkeys + 4, root)  # its first entry now names the root itself
open(sys.argv[1], "wb").write(data)
PY

# GPT disk: EFI system partition (40 MiB FAT32) and an ext4 partition.
img="$work/gpt-esp.img"
truncate -s 64M "$img"
sgdisk -o -U 5EED0B00-0000-4000-8000-000000000000 \
  -n 1:2048:+40M -t 1:EF00 -u 1:5EED0B00-0001-4000-8000-000000000000 -c 1:"EFI system partition" \
  -n 2:0:0 -t 2:8300 -u 2:5EED0B00-0002-4000-8000-000000000000 "$img" >/dev/null
mkfs.vfat -F 32 -s 1 -n ESP --invariant --offset 2048 "$img" $((40 * 1024)) >/dev/null
esp="$img@@$((2048 * 512))"
printf 'MZ\x90\x00\x03\x00\x00\x00\x04\x00\x00\x00\xff\xff\x00\x00' >"$work/bootmgfw.efi"
head -c 4096 /dev/zero >>"$work/bootmgfw.efi"
printf 'timeout=5\r\ndefault=windows\r\n' >"$work/zorbelt.cfg"
printf '\x01\x02\x00\xfeKSX' >"$work/zorbelt.ksx"
printf 'ZORBELT loader settings\r\n' >"$work/loader.cfg"
printf 'A file whose name is longer than eight characters.\n' >"$work/long.txt"
: >"$work/boot.ini"
mmd -i "$esp" ::/EFI ::/EFI/Microsoft ::/EFI/Microsoft/Boot ::/ZORBELT
mcopy -m -i "$esp" "$work/bcd.hive" ::/EFI/Microsoft/Boot/BCD
mcopy -m -i "$esp" "$work/bootmgfw.efi" ::/EFI/Microsoft/Boot/bootmgfw.efi
mcopy -m -i "$esp" "$work/long.txt" "::/A long file name for the listing.txt"
mcopy -m -i "$esp" "$work/boot.ini" "$work/zorbelt.cfg" "$work/zorbelt.ksx" ::/
mcopy -m -i "$esp" "$work/loader.cfg" ::/ZORBELT/loader.cfg
mdir -/ -i "$esp" ::/ >"$work/reports/gpt-esp.mdir.txt"
start=$(sgdisk -i 2 "$img" | sed -n 's/^First sector: \([0-9]*\).*/\1/p')
end=$(sgdisk -i 2 "$img" | sed -n 's/^Last sector: \([0-9]*\).*/\1/p')
truncate -s $(((end - start + 1) * 512)) "$work/ext4"
mkfs.ext4 -q -F -L bootext4 -U 5EED0B00-0003-4000-8000-000000000000 "$work/ext4" >/dev/null 2>&1
dd if="$work/ext4" of="$img" bs=512 seek="$start" conv=notrunc,sparse status=none

# MBR disk: NTFS (active, the BIOS-boot system partition) and ext4.
img="$work/mbr-ntfs.img"
truncate -s 48M "$img"
sfdisk -q "$img" >/dev/null <<'EOF_SFDISK'
label: dos
label-id: 0x5eed0b02
start=2048, size=32768, type=7, bootable
start=34816, type=83
EOF_SFDISK
truncate -s 16M "$work/ntfs"
mkntfs -F -Q -q -s 512 -p 2048 -H 255 -S 63 -L System "$work/ntfs" >/dev/null 2>&1
printf 'BOOTMGR\x00\x01\x02\x03' >"$work/bootmgr"
printf '[boot loader]\r\ntimeout=30\r\ndefault=multi(0)disk(0)rdisk(0)partition(1)\\WINDOWS\r\n' >"$work/boot.ini"
mkdir "$work/mnt"
# A private mount namespace: the mount never shows outside this script, and goes when it ends.
unshare -m bash -euc '
  ntfs-3g -o rw "$1/ntfs" "$1/mnt"
  mkdir "$1/mnt/Boot"
  cp "$1/bcd.hive" "$1/mnt/Boot/BCD"
  cp "$1/bootmgr" "$1/boot.ini" "$1/mnt/"
  umount "$1/mnt"' x "$work"
dd if="$work/ntfs" of="$img" bs=512 seek=2048 conv=notrunc,sparse status=none
truncate -s 14M "$work/ext4"
mkfs.ext4 -q -F -L mbrext4 -U 5EED0B00-0004-4000-8000-000000000000 "$work/ext4" >/dev/null 2>&1
dd if="$work/ext4" of="$img" bs=512 seek=34816 conv=notrunc,sparse status=none

# A FAT12 floppy: the classic DOS boot files, no partition table.
img="$work/floppy.img"
truncate -s 1440K "$img"
mkfs.vfat -F 12 -n FLOPPY --invariant "$img" >/dev/null
printf '@ECHO OFF\r\nPROMPT $P$G\r\n' >"$work/autoexec.bat"
printf 'FILES=30\r\nBUFFERS=20\r\n' >"$work/config.sys"
mcopy -m -i "$img" "$work/autoexec.bat" "$work/config.sys" ::/
mdir -/ -i "$img" ::/ >"$work/reports/floppy.mdir.txt"

for file in "$work"/*.img "$work"/*.hive "$work/bcd.reg"; do mv -f "$file" "$out/"; done
rm -rf "$out/reports" && mv "$work/reports" "$out/reports"
echo "$sum" >"$stamp"
