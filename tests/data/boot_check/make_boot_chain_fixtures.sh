#!/bin/bash
# Disk images for the boot-chain check, made from the boot configuration fixtures
# (tests/data/boot/make_boot_fixtures.sh) with the real tools:
#   make_boot_chain_fixtures.sh <boot fixture folder> <outdir>
# Each image gets a store of its own (hivexregedit --merge into an empty hive) in which the boot manager's
# default OS loader boots partition 2 of the same disk:
#   gpt.img             gpt-esp.img with that store in \EFI\Microsoft\Boot\BCD (mtools)
#   gpt-new-guid.img    the same after sgdisk --partition-guid gave partition 2 a new GUID
#   gpt-no-default.img  the same store after another merge that points {bootmgr}'s default elsewhere
#   mbr.img             mbr-ntfs.img with an MBR-layout store in \Boot\BCD (ntfs-3g in a private mount namespace)
#   mbr-new-id.img      the same after sfdisk --disk-id
# Exit code 77 means a tool, root or the boot fixtures are missing.
set -euo pipefail
fixtures=${1:?usage: make_boot_chain_fixtures.sh <boot fixture folder> <outdir>}
out=${2:?usage: make_boot_chain_fixtures.sh <boot fixture folder> <outdir>}
here=$(cd "$(dirname "$0")" && pwd)
export PATH="$PATH:/usr/sbin:/sbin"
for tool in hivexregedit iconv sgdisk sfdisk mcopy ntfs-3g unshare python3; do
  command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 77; }
done
[[ -f $fixtures/gpt-esp.img && -f $fixtures/mbr-ntfs.img ]] || { echo "no boot fixtures" >&2; exit 77; }
[[ $(id -u) == 0 ]] || { echo "the NTFS store is put through a mount, which needs root" >&2; exit 77; }
stamp="$out/.stamp"
sum=$(cat "$0" "$fixtures/.stamp" | sha256sum | cut -d' ' -f1)
[[ -f $stamp && $(cat "$stamp") == "$sum" ]] && exit 0
mkdir -p "$out"
exec 9>"$out/.lock"
flock 9
[[ -f $stamp && $(cat "$stamp") == "$sum" ]] && exit 0
work=$(mktemp -d "$out/.work.XXXXXX")
trap 'rm -rf "$work"' EXIT

utf16() { printf '%s\0' "$1" | iconv -f UTF-8 -t UTF-16LE | od -An -v -tx1 | tr -s ' \n' ',' | sed 's/^,//; s/,$//'; }
# guid <text>: a GUID as its 16 stored bytes (first three fields little-endian), in .reg hex notation.
guid() { python3 -c 'import sys, uuid; print(",".join("%02x" % b for b in uuid.UUID(sys.argv[1]).bytes_le))' "$1"; }
le() { python3 -c 'import sys, struct; print(",".join("%02x" % b for b in struct.pack("<" + sys.argv[1], int(sys.argv[2], 0))))' "$1" "$2"; }
# device <partition bytes, 16> <style 0 GPT / 1 MBR> <disk bytes, 16>: a partition descriptor (kind 6, 56
# bytes), which follows an options GUID in the element.
device() { echo "06,00,00,00,00,00,00,00,38,00,00,00,00,00,00,00,$1,00,00,00,00,$(le I "$2"),$3"; }
zeros16=$(printf '00,%.0s' {1..15})00

key='HKEY_LOCAL_MACHINE\BCD00000000'
bootmgr='{9dea862c-5cdd-4e70-acc1-f32b344d4795}'
loader='{5eed0b00-1000-4000-8000-000000000001}'
# store <boot manager device> <loader device> <file>
store() {
  cat >"$work/store.reg" <<REG
Windows Registry Editor Version 5.00

[$key]

[$key\\Objects]

[$key\\Objects\\$bootmgr]

[$key\\Objects\\$bootmgr\\Description]
"Type"=dword:10100002

[$key\\Objects\\$bootmgr\\Elements]

[$key\\Objects\\$bootmgr\\Elements\\11000001]
"Element"=hex:$1

[$key\\Objects\\$bootmgr\\Elements\\12000004]
"Element"="Windows Boot Manager"

[$key\\Objects\\$bootmgr\\Elements\\23000003]
"Element"="$loader"

[$key\\Objects\\$bootmgr\\Elements\\24000001]
"Element"=hex(7):$(utf16 "$loader"),00,00

[$key\\Objects\\$loader]

[$key\\Objects\\$loader\\Description]
"Type"=dword:10200003

[$key\\Objects\\$loader\\Elements]

[$key\\Objects\\$loader\\Elements\\21000001]
"Element"=hex:$2
REG
  python3 "$here/../boot/make_base_hive.py" "$3" ROOT
  hivexregedit --merge --prefix "$key" "$3" "$work/store.reg"
}

# GPT: the boot manager on the EFI system partition, the loader's system on partition 2.
disk=$(guid 5eed0b00-0000-4000-8000-000000000000)
store "$zeros16,$(device "$(guid 5eed0b00-0001-4000-8000-000000000000)" 0 "$disk")" \
      "$zeros16,$(device "$(guid 5eed0b00-0002-4000-8000-000000000000)" 0 "$disk")" "$work/gpt.hive"
cp "$fixtures/gpt-esp.img" "$work/gpt.img"
MTOOLS_SKIP_CHECK=1 mcopy -o -i "$work/gpt.img@@$((2048 * 512))" "$work/gpt.hive" ::/EFI/Microsoft/Boot/BCD
cp "$work/gpt.img" "$work/gpt-new-guid.img"
sgdisk --partition-guid=2:5eed0b00-0002-4000-8000-0000000000ff "$work/gpt-new-guid.img" >/dev/null
printf 'Windows Registry Editor Version 5.00\n\n[%s\\Objects\\%s\\Elements\\23000003]\n"Element"="%s"\n' \
  "$key" "$bootmgr" '{5eed0b00-1000-4000-8000-0000000000ff}' >"$work/default.reg"
cp "$work/gpt.hive" "$work/gpt-no-default.hive"
hivexregedit --merge --prefix "$key" "$work/gpt-no-default.hive" "$work/default.reg"
cp "$work/gpt.img" "$work/gpt-no-default.img"
MTOOLS_SKIP_CHECK=1 mcopy -o -i "$work/gpt-no-default.img@@$((2048 * 512))" "$work/gpt-no-default.hive" \
  ::/EFI/Microsoft/Boot/BCD

# MBR: the boot manager on the device it started from (kind 5), the loader's system on partition 1 at 1 MiB
# of the disk with signature 0x5eed0b02.
store "$zeros16,05,00,00,00,00,00,00,00,10,00,00,00,00,00,00,00" \
      "$zeros16,$(device "$(le Q 1048576),00,00,00,00,00,00,00,00" 1 "$(le I 0x5eed0b02),$(printf '00,%.0s' {1..11})00")" \
      "$work/mbr.hive"
cp "$fixtures/mbr-ntfs.img" "$work/mbr.img"
dd if="$work/mbr.img" of="$work/ntfs" bs=512 skip=2048 count=32768 status=none
mkdir "$work/mnt"
unshare -m bash -euc '
  ntfs-3g -o rw "$1/ntfs" "$1/mnt"
  cp "$1/mbr.hive" "$1/mnt/Boot/BCD"
  umount "$1/mnt"' x "$work"
dd if="$work/ntfs" of="$work/mbr.img" bs=512 seek=2048 conv=notrunc status=none
cp "$work/mbr.img" "$work/mbr-new-id.img"
sfdisk -q --disk-id "$work/mbr-new-id.img" 0x5eed0bff >/dev/null

mv -f "$work"/*.img "$out/"
echo "$sum" >"$stamp"
