#!/usr/bin/env bash
# End to end under Wine: the x64 SystemReport.exe writes an archive whose "uefi_vars.txt" says that UEFI
# is not enabled (Wine's NtQuerySystemEnvironmentValueEx answers "not implemented" and it has no
# NtEnumerateBootEntries, which the log names), and the run succeeds.
# Usage: uefi_report_wine_e2e.sh <wine> <SystemReport.exe>   (exit 77: skipped)
set -euo pipefail
wine=$1
exe=$2
if [[ -z $wine ]] || ! command -v "$wine" >/dev/null || ! command -v unzip >/dev/null; then
  echo "SKIP: wine64 and unzip are needed for this test"
  exit 77
fi

# A prefix of its own, ended with its server, so that nothing started here holds CTest's output open.
work=$(mktemp -d)
export WINEPREFIX=$work/prefix WINEDEBUG=-all
cleanup() {
  wineserver -k >/dev/null 2>&1 </dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

"$wine" "$exe" /silent "/filename:Z:${work//\//\\}\\r.zip" >/dev/null 2>&1 </dev/null || {
  echo "SystemReport.exe failed with status $?" >&2
  exit 1
}
expected=$(printf '%s\r\n\r\n***\r\n\r\n%s%s' "Boot variables are allowed on this system" \
  "Could not obtain Boot Entries Enumerator, UEFI is not enabled" "Could not obtain Boot Order, UEFI is not enabled")
if ! cmp <(unzip -p "$work/r.zip" uefi_vars.txt) <(printf '%s' "$expected"); then
  echo "uefi_vars.txt is not the expected: $(printf '%q' "$expected")" >&2
  exit 1
fi
log="$WINEPREFIX/drive_c/ProgramData/Brendix/Cobaltine Home/Logs/system_report/system_report.log"
if ! grep -F "Failed to find procedure 'NtEnumerateBootEntries' in 'ntdll.dll'. [" "$log" | grep -qF "code=0x12f0001"; then
  echo "the log does not name the missing NtEnumerateBootEntries with code 0x12f0001" >&2
  exit 1
fi
echo "uefi_vars.txt holds the two 'UEFI is not enabled' lines; the log names the missing routine"
