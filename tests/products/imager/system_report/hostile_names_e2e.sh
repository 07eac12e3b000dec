#!/usr/bin/env bash
# A report run over a product folder whose file names no archive can carry as they are: bytes that are not
# UTF-8, backslashes, "..", a trailing backslash, a colon, a control character, a non-ASCII extension, a
# name of 255 bytes, "a\b.txt" beside a real "a/b.txt", and a "*.for_report" file of the product's own.
# The run ends well, unzip, 7z and Python's zipfile accept the whole archive, and every file is in it once
# under its name escaped as docs/architecture.md describes. Linux only: Windows allows none of these names.
# Usage: hostile_names_e2e.sh <path of the built executable>   (exit 77: skipped)
set -euo pipefail

exe=$(readlink -f "$1")
for tool in python3 unzip 7z; do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool is needed for this test"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export SYSTEM_REPORT_COMMON_APPDATA=$work/common XDG_DATA_HOME=$work/user
folder=$work/user/Brendix/odd
mkdir -p "$folder/a" "$work/out"
long=$(printf 'n%.0s' $(seq 251)).txt
cd "$folder"
for name in $'bad\xff\xfe.txt' '..\..\evil.txt' 'x\..\y.txt' 'name\' 'c:colon.txt' $'ctl\x01.txt' 'x.iné' "$long" \
            'a\b.txt' 'a/b.txt' 'pct%41.txt' 'trail.' 'CON.log' 'own.ini.for_report'; do
  printf 'content of %s' "$name" >"$name"
done
cd - >/dev/null

"$exe" /silent "/filename:$work/out/r.zip" || { echo "FAIL: the run ended with status $?"; exit 1; }
unzip -tq "$work/out/r.zip" >/dev/null || { echo "FAIL: unzip -t refuses the archive"; exit 1; }
7z t "$work/out/r.zip" >/dev/null || { echo "FAIL: 7z t refuses the archive"; exit 1; }

python3 - "$work/out/r.zip" "$folder" <<'PY'
import os, re, sys, zipfile
archive, folder = sys.argv[1:3]
with zipfile.ZipFile(archive) as z:
    if z.testzip() is not None:
        sys.exit("FAIL: zipfile finds a bad entry")
    names = [n for n in z.namelist() if "/Brendix/odd/" in n and not n.endswith("/")]
    stored = {}
    for n in names:
        rest = n.split("/Brendix/odd/", 1)[1]
        original = re.sub(rb"%([0-9A-F]{2})", lambda m: bytes([int(m.group(1), 16)]), rest.encode("utf-8"))
        stored[original] = z.read(n)
failures = []
on_disk = {}
for root, _, files in os.walk(os.fsencode(folder)):
    for f in files:
        rel = os.path.relpath(os.path.join(root, f), os.fsencode(folder))
        with open(os.path.join(root, f), "rb") as fh:
            on_disk[rel] = fh.read()
if len(names) != len(set(names)):
    failures.append("a name is stored twice")
if stored != on_disk:
    failures.append("stored %r, on disk %r" % (sorted(stored), sorted(on_disk)))
for f in failures:
    print("FAIL:", f)
sys.exit(1 if failures else 0)
PY
echo PASS
