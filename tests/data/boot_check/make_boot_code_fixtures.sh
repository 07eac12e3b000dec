#!/bin/bash
# Boot sectors written by real tools, for the boot-code table: syslinux's MBRs (Debian syslinux-common),
# GRUB's boot.img (grub-pc-bin), and the boot sectors of mkfs.vfat and mkntfs formatting a partition that
# starts at sector 2048. mtools' minfo reports the FAT's hidden sectors, for a cross-check.
# Usage: make_boot_code_fixtures.sh <folder>. Exits 77 (skip) when a tool is missing.
set -euo pipefail
out=$1
for tool in mkfs.vfat mkntfs minfo sha256sum; do
  command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 77; }
done
for file in /usr/lib/syslinux/mbr/mbr.bin /usr/lib/syslinux/mbr/gptmbr.bin /usr/lib/grub/i386-pc/boot.img \
            /usr/lib/grub/i386-pc/diskboot.img; do
  [ -f "$file" ] || { echo "missing $file" >&2; exit 77; }
done
[ -f "$out/done" ] && exit 0
rm -rf "$out.tmp" && mkdir -p "$out.tmp"
cd "$out.tmp"
# The MBR images are shorter than a sector or carry no table: pad each to 512 bytes.
pad() { head -c 512 "$1" > "$2"; truncate -s 512 "$2"; }
pad /usr/lib/syslinux/mbr/mbr.bin syslinux-mbr.bin
pad /usr/lib/syslinux/mbr/gptmbr.bin syslinux-gptmbr.bin
pad /usr/lib/grub/i386-pc/boot.img grub-boot.img
pad /usr/lib/grub/i386-pc/diskboot.img unknown.bin
head -c 440 unknown.bin | sha256sum | cut -d' ' -f1 > unknown.sha256
truncate -s 40M fat.img
mkfs.vfat -F 32 --offset 2048 -h 2048 fat.img $((32 * 1024)) >/dev/null 2>&1
dd if=fat.img of=fat32-boot.bin bs=512 skip=2048 count=1 status=none
minfo -i fat.img@@$((2048 * 512)) :: > fat32.minfo 2>/dev/null
truncate -s 16M ntfs.img
mkntfs -F -Q -p 4096 ntfs.img >/dev/null 2>&1
dd if=ntfs.img of=ntfs-boot.bin bs=512 count=1 status=none
rm -f fat.img ntfs.img
touch done
cd - >/dev/null
rm -rf "$out" && mv "$out.tmp" "$out"
