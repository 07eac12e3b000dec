#!/usr/bin/env bash
# Report runs while another process keeps swapping a product file and a product folder for links to
# private files and back: no archive may hold a byte of those files. The walk opens every entry without
# following a link and examines what it opened, so there is no window between a check and an open.
# Usage: link_race_e2e.sh <path of the built executable> [runs]   (exit 77: skipped)
set -euo pipefail

exe=$(readlink -f "$1")
runs=${2:-40}
command -v python3 >/dev/null || { echo "SKIP: python3 is needed for this test"; exit 77; }
work=$(mktemp -d)
swapper=
cleanup() {
  if [[ -n $swapper ]]; then kill "$swapper" 2>/dev/null || true; wait "$swapper" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
export SYSTEM_REPORT_COMMON_APPDATA=$work/common XDG_DATA_HOME=$work/user
product=$work/common/Brendix/Cobaltine
mkdir -p "$product/folder" "$work/private/folder" "$work/out" "$work/user/Brendix"
printf 'product file\n' >"$product/file.txt"
printf 'product folder file\n' >"$product/folder/file.txt"
printf 'PRIVATE-BYTES\n' >"$work/private/file.txt"
printf 'PRIVATE-BYTES\n' >"$work/private/folder/file.txt"

# Each name is a link for part of the time, the real entry for the rest.
python3 - "$product" "$work/private" <<'PY' &
import os, sys
product, private = sys.argv[1:3]
names = ["file.txt", "folder"]
while True:
    for name in names:
        real, held = os.path.join(product, name), os.path.join(product, name + ".held")
        os.rename(real, held)
        os.symlink(os.path.join(private, name), real)
        os.unlink(real)
        os.rename(held, real)
PY
swapper=$!

for ((i = 0; i < runs; i++)); do
  status=0
  "$exe" /silent "/filename:$work/out/r$i.zip" || status=$?
  [[ $status -eq 0 ]] || { echo "FAIL: run $i ended with status $status"; exit 1; }
done
python3 - "$work/out" <<'PY'
import os, sys, zipfile
leaked = []
for archive in sorted(os.listdir(sys.argv[1])):
    with zipfile.ZipFile(os.path.join(sys.argv[1], archive)) as z:
        leaked += ["%s: %s" % (archive, n) for n in z.namelist() if b"PRIVATE-BYTES" in z.read(n)]
for entry in leaked:
    print("FAIL: a file from behind a link is stored in", entry)
sys.exit(1 if leaked else 0)
PY
echo "PASS: $runs runs"
