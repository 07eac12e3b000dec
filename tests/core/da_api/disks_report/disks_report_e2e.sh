#!/bin/bash
# End to end: a report run of the built program with SYSTEM_REPORT_DISK_IMAGES naming the disk fixtures
# puts the golden disk layout text into the archive as "disks.txt".
#   disks_report_e2e.sh <SystemReport> <fixtures folder> <golden text> [emulator]
# With an emulator (wine) the images are named as Z:\ paths separated by ';', as a Windows user would.
# The computer's name, firmware, operating system and free drive letters come from the machine that runs
# the test (the golden text was made with fixed ones), so those four lines are normalised on both sides.
# Exit code 77: the test cannot run here (no fixtures, no unzip, no emulator).
set -euo pipefail

exe=$1 fixtures=$2 golden=$3 emulator=${4:-}
# The images of the golden text, in its order.
images=(mbr.img gpt.img gpt4k.img fat32-spc0.img ebr-loop.img gpt-badcrc.img past-end.img empty.img hybrid.img
  mbr-over-gpt.img missing.img)

if [[ ! -f $fixtures/.stamp ]]; then
  echo "no disk fixtures in $fixtures (ctest's disk_fixtures step makes them)"
  exit 77
fi
for tool in unzip perl ${emulator:+"$emulator"}; do
  if ! command -v "$tool" >/dev/null; then
    echo "missing $tool"
    exit 77
  fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if [[ -n $emulator ]]; then
  windows() { printf 'Z:%s' "${1//\//\\}"; }
  list=""
  for image in "${images[@]}"; do list+="$(windows "$fixtures/$image");"; done
  export WINEPREFIX="$work/wineprefix" WINEDEBUG=-all
  SYSTEM_REPORT_DISK_IMAGES="$list" "$emulator" "$exe" /silent "/filename:$(windows "$work/r.zip")"
else
  list=""
  for image in "${images[@]}"; do list+="$fixtures/$image:"; done
  SYSTEM_REPORT_DISK_IMAGES="$list" "$exe" /silent "/filename:$work/r.zip"
fi

unzip -p "$work/r.zip" disks.txt >"$work/disks.txt"
normalise() {
  perl -pe 's/^(Computer |Firmware: +|OS: +|Free letters: +)[^\r\n]*/$1<machine>/' "$1"
}
if ! cmp -s <(normalise "$golden") <(normalise "$work/disks.txt"); then
  echo "disks.txt differs from $golden:"
  diff <(normalise "$golden") <(normalise "$work/disks.txt") | head -40
  exit 1
fi
echo "disks.txt in the archive matches $golden"
