#!/usr/bin/env bash
# End to end under Wine: the x64 SystemReport.exe writes an archive whose "uefi_vars.txt" says that UEFI
# is not enabled (Wine's NtQuerySystemEnvironmentValueEx answers "not implemented" and it has no
# NtEnumerateBootEntries), and the run succeeds.
#   uefi_report_wine_e2e.sh <wine> <SystemReport.exe>
set -euo pipefail
wine=$1
exe=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$wine" "$exe" /silent "/filename:Z:${work//\//\\}\\r.zip" >/dev/null 2>&1 || {
  echo "SystemReport.exe failed with status $?" >&2
  exit 1
}
actual=$(unzip -p "$work/r.zip" uefi_vars.txt | od -An -c)
expected=$(printf '%s\r\n\r\n***\r\n\r\n%s%s' "Boot variables are allowed on this system" \
  "Could not obtain Boot Entries Enumerator, UEFI is not enabled" \
  "Could not obtain Boot Order, UEFI is not enabled" | od -An -c)
if [[ "$actual" != "$expected" ]]; then
  echo "uefi_vars.txt differs; expected:" >&2
  echo "$expected" >&2
  echo "actual:" >&2
  echo "$actual" >&2
  exit 1
fi
echo "uefi_vars.txt holds the two 'UEFI is not enabled' lines"
