#!/usr/bin/env bash
# End-to-end run of SystemReport.exe under Wine over the product's data folders: files placed in Wine's
# ProgramData under "Brendix" reach the archive redacted, the per-user folder as it is, settings without
# their stored passwords, "online_backup.txt" with the certificate made by the openssl command, and
# nothing behind a symbolic link of the host to a folder (which Wine shows as a reparse point).
# Usage: product_data_wine_e2e.sh <SystemReport.exe> [wine]   (exit 77: skipped)
set -euo pipefail

exe=$1
wine=${2:-}
[[ -n $wine ]] || wine=$(command -v wine64 || command -v wine || true)
if [[ -z $wine ]] || ! command -v python3 >/dev/null || ! command -v openssl >/dev/null; then
  echo "SKIP: wine64, python3 and openssl are needed for this test"
  exit 77
fi

work=$(mktemp -d)
export WINEPREFIX=$work/prefix WINEDEBUG=-all
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

user_name=$("$wine" cmd /c 'echo %USERNAME%' | tr -d '\r\n')
program_data=$WINEPREFIX/drive_c/ProgramData/Brendix
user_data=$(winepath -u "$("$wine" cmd /c 'echo %APPDATA%' | tr -d '\r\n')" 2>/dev/null)/Brendix
product=$program_data/Cobaltine\ Home
mkdir -p "$product/Logs" "$product/OnlineBackup" "$user_data" "$work/private"

printf '%s\r\n' \
  '2024-05-01 10:00:00 [info] Logon UserName: jdoe' \
  '2024-05-01 10:00:01 [info] Opened C:\Users\jdoe\Documents\tax.xlsx' \
  '2024-05-01 10:00:02 [info] Mail to john.doe@example.com sent' \
  '2024-05-01 10:00:03 [info] Password=Tr0ub4dor&3' \
  '2024-05-01 10:00:04 [info] <LocationLogin>jdoe@cloud</LocationLogin>' >"$product/Logs/service.log"
printf '[Cloud]\r\nServer=backup.example.net\r\nOBPassword=hunter2\r\nOBSessionPassword=s3ss10n\r\n' >"$product/settings.ini"
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=Backup Test/emailAddress=ops@example.com' \
  -keyout "$work/client.key" -out "$product/OnlineBackup/client.crt" 2>/dev/null
printf 'my secret diary\n' >"$work/private/diary.txt"
# Wine 8 shows the host's links to folders as reparse points but its links to files as plain files, so
# only a folder link is placed here; links to files are tested on Linux.
ln -s "$work/private" "$product/linked-folder"
printf 'Password=kept as it is\n' >"$user_data/user.log"

status=0
"$wine" "$exe" /silent "/filename:Z:$work/r.zip" || status=$?
echo "SystemReport.exe exit status $status"
[[ $status -eq 0 ]] || { echo "FAIL: the run did not succeed"; exit 1; }

python3 - "$work/r.zip" "$user_name" <<'PY'
import sys, zipfile

archive, user = sys.argv[1], sys.argv[2]
machine = "Application Data/All Users/Brendix/Cobaltine Home/"
failures = []
with zipfile.ZipFile(archive) as z:
    names = set(z.namelist())
    print("product entries:", sorted(n for n in names if n.startswith("Application Data/")))

    def read(name):
        if name not in names:
            failures.append(name + " is missing")
            return b""
        return z.read(name)

    expected_log = (b"2024-05-01 10:00:00 [info] Logon UserName: ***\n"
                    b"2024-05-01 10:00:01 [info] Opened C:\\Users\\***\\Documents\\tax.xlsx\r\n"
                    b"2024-05-01 10:00:02 [info] Mail to ***@**.** sent\r\n"
                    b"2024-05-01 10:00:03 [info] Password ***\n"
                    b"2024-05-01 10:00:04 [info] <LocationLogin> *** </LocationLogin>\r\n")
    log = read(machine + "Logs/service.log")
    if log != expected_log:
        failures.append("service.log is not redacted as expected: %r" % log)

    details = read(machine + "OnlineBackup/online_backup.txt")
    for part in (b"Product version: 24.7.38530\r\n", b"Filename: 'client.crt'\r\n", b"Creation time: ",
                 b"-----\r\n", b"Subject: CN = Backup Test, emailAddress = ***@**.**"):
        if part not in details:
            failures.append("online_backup.txt lacks %r" % part)
    if b"BEGIN CERTIFICATE----- *** -----END CERTIFICATE" not in read(machine + "OnlineBackup/client.crt"):
        failures.append("the certificate's body is not cut out of client.crt")
    if b"Server=backup.example.net" not in read(machine + "settings.ini"):
        failures.append("settings.ini lost its other keys")
    if read("Application Data/%s/Brendix/user.log" % user) != b"Password=kept as it is\n":
        failures.append("the per-user folder is not stored as it is")

    for name in names:
        data = z.read(name)
        for private in (b"hunter2", b"s3ss10n", b"secret diary", b"jdoe", b"ops@example.com"):
            if private in data:
                failures.append("%s holds %r" % (name, private))
        if "linked" in name:
            failures.append("%s was taken through a link" % name)

for failure in failures:
    print("FAIL:", failure)
sys.exit(1 if failures else 0)
PY
echo "PASS"
