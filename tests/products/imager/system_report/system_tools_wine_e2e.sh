#!/usr/bin/env bash
# End-to-end run of SystemReport.exe under Wine: the maker's registry key exported by the real "reg" and
# redacted on its way into the archive, tools that Wine lacks or that fail adding nothing to a run that
# succeeds, "groups.txt" holding the token's groups in its exact UTF-16LE form, and, with the MiniNT key
# made, the tool items of a pre-installation environment running in their order.
# Usage: system_tools_wine_e2e.sh <SystemReport.exe> [wine]   (exit 77: skipped)
set -euo pipefail

exe=$1
wine=${2:-}
[[ -n $wine ]] || wine=$(command -v wine64 || command -v wine || true)
if [[ -z $wine ]] || ! command -v python3 >/dev/null; then
  echo "SKIP: wine64 and python3 are needed for this test"
  exit 77
fi

work=$(mktemp -d)
export WINEPREFIX=$work/prefix WINEDEBUG=-all
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
start=$SECONDS

key='HKLM\Software\Brendix'
"$wine" reg add "$key" /v UserName /d 'jdoe' /f >/dev/null
"$wine" reg add "$key" /v Password /d 'Secr3t-Pa55' /f >/dev/null
"$wine" reg add "$key" /v SupportContact /d 'jdoe@example.com' /f >/dev/null
"$wine" reg add 'HKLM\SYSTEM\CurrentControlSet\Control\MiniNT' /f >/dev/null
computer=$("$wine" cmd /c 'echo %COMPUTERNAME%' | tr -d '\r\n')
echo "prefix ready after $((SECONDS - start)) s (computer name '$computer')"

status=0
"$wine" "$exe" /silent "/filename:Z:$work/r.zip" || status=$?
echo "SystemReport.exe exit status $status after $((SECONDS - start)) s"
[[ $status -eq 0 ]] || { echo "FAIL: the run did not succeed"; exit 1; }

log="$WINEPREFIX/drive_c/ProgramData/Brendix/Cobaltine Home/Logs/system_report/system_report.log"
python3 - "$work/r.zip" "$computer" "$log" <<'PY'
import re, sys, zipfile

archive, computer, log = sys.argv[1], sys.argv[2], sys.argv[3]
failures = []

# Each tool item ends with one line naming its entry, in the order of the run: with the MiniNT key the
# device lists follow System Information; a 64-bit process has no 32-bit registry twin.
tools = ["syslog.evt", "applog.evt", "rights.txt", "vexreg.reg", "msinfo.nfo", "wmi-PnPEntities-all.txt",
         "wmi-PnPEntities-InclVenInfo.txt", "wmi-PnPEntities-StorageAndNetwork.txt"]
with open(log, encoding="utf-8", errors="replace") as lines:
    ends = re.findall(r"report_process_base\.cpp:\d+ .*'([^']+)' (?:is not in the report|added)\.", lines.read())
print("tool items in the log:", ends)
if ends != tools:
    failures.append("the tool items did not run in the order of a pre-installation environment")

with zipfile.ZipFile(archive) as z:
    names = set(z.namelist())
    print("archive entries:", sorted(names))

    # "reg" exists in Wine and exports the key as UTF-16LE with a byte-order mark.
    if "vexreg.reg" not in names:
        failures.append("vexreg.reg is missing")
    else:
        data = z.read("vexreg.reg")
        if not data.startswith(b"\xff\xfe"):
            failures.append("vexreg.reg is not UTF-16LE with a byte-order mark")
        text = data.decode("utf-16-le", errors="replace")
        if "[HKEY_LOCAL_MACHINE\\Software\\Brendix]" not in text:
            failures.append("vexreg.reg does not hold the maker's key")
        for private in ("jdoe", "Secr3t-Pa55", "example.com"):
            if private in text:
                failures.append("vexreg.reg still holds %r" % private)
        for kept in ('"Password ***', "***@**.**"):
            if kept not in text:
                failures.append("vexreg.reg lacks the redaction mark %r" % kept)

    # Wine has no event-log backup ("wmic nteventlog" fails), its msinfo32 and secedit end with 0 without
    # writing their files, and its wmic lists no devices: of the tools only "reg" reaches the archive, and
    # none fails the run.
    for absent in tools[:3] + tools[4:]:
        if absent in names:
            failures.append("%s is in the archive" % absent)

    # Wine 8's token for the prefix's user: the world group has no domain and is left out.
    groups = [("INTERACTIVE", "NT AUTHORITY"), ("Authenticated Users", "NT AUTHORITY"), ("None", computer),
              ("Administrators", "BUILTIN"), ("Users", "BUILTIN")]
    expected = b"\xff\xfe" + "".join('group: "%s" domain: "%s"\r\n' % g for g in groups).encode("utf-16-le")
    if "groups.txt" not in names:
        failures.append("groups.txt is missing")
    elif z.read("groups.txt") != expected:
        failures.append("groups.txt differs: %r" % z.read("groups.txt"))

for failure in failures:
    print("FAIL:", failure)
sys.exit(1 if failures else 0)
PY
echo "passed in $((SECONDS - start)) s"
