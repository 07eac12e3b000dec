#!/usr/bin/env bash
# Checks the shipped executable: a 32-bit PE, GUI subsystem, with the manifest and version resource inside.
set -euo pipefail
exe=$1
fail() { echo "check-pe: $exe: $*" >&2; exit 1; }

headers=$(i686-w64-mingw32-objdump -p "$exe")
grep -q "file format pei-i386" <<<"$headers" || fail "not a 32-bit PE"
grep -Eq "^Subsystem[[:space:]]+0+2[[:space:]]+\(Windows GUI\)" <<<"$headers" || fail "not the GUI subsystem"
for text in 'requireAdministrator' 'Microsoft.Windows.Common-Controls' 'version="6.0.0.0"' \
            '{e2011457-1546-43c5-a5fe-008deee3d3f0}' '{35138b9a-5d96-4fbd-8e2d-a2440225f93a}' \
            '{4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38}' '{1f676c76-80e1-4239-95bb-83d0f6d0da78}' \
            '{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}'; do
  grep -qaF "$text" "$exe" || fail "manifest lacks $text"
done
# The version resource's strings are UTF-16LE: "24.7.38530" with a zero byte after each character.
grep -qaP '2\x004\x00\.\x007\x00\.\x003\x008\x005\x003\x000\x00' "$exe" || fail "no version resource 24.7.38530"
grep -qaP 'F\x00i\x00l\x00e\x00V\x00e\x00r\x00s\x00i\x00o\x00n\x00' "$exe" || fail "no FileVersion string"
echo "check-pe: $exe: 32-bit PE, Windows GUI subsystem, manifest and version 24.7.38530 present"
