#!/usr/bin/env bash
# A report run over the product's data folders, natively on Linux or under Wine: the machine-wide copy of a
# log redacted exactly as the reference redacts it, the per-user folder as it is, settings without their
# stored passwords, "online_backup.txt" describing a certificate made by openssl, nothing behind a link.
# Linux only (Wine runs as the host's root and shows host links to files as plain files): a file link, and
# an unreadable log and certificate, left out with an error line or described as "Failed to open x509
# file"; as root the tool runs with an ordinary user's rights so that they are unreadable.
# Usage: product_data_e2e.sh linux|wine <path of the built executable>   (exit 77: skipped)
set -euo pipefail

mode=$1
exe=$(readlink -f "$2")
for tool in python3 openssl $([[ $mode == wine ]] && echo wine); do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool is needed for this test"; exit 77; }
done

work=$(mktemp -d)
chmod 755 "$work"
cleanup() {
  [[ $mode == wine ]] && wineserver -k >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

if [[ $mode == linux ]]; then
  tool=$work/bin/$(basename "$exe")
  install -D "$exe" "$tool"
  export SYSTEM_REPORT_COMMON_APPDATA=$work/common XDG_DATA_HOME=$work/user
  program_data=$work/common/Brendix
  user_data=$work/user/Brendix
  as_user=()
  if [[ $(id -u) -eq 0 ]]; then as_user=(setpriv --reuid=65534 --regid=65534 --clear-groups); fi
  user_name=$("${as_user[@]}" id -nu)
  target=$work/out/r.zip
  run() { "${as_user[@]}" "$tool" "$@"; }
else
  export WINEPREFIX=$work/prefix WINEDEBUG=-all
  user_name=$(wine cmd /c 'echo %USERNAME%' | tr -d '\r\n')
  program_data=$WINEPREFIX/drive_c/ProgramData/Brendix
  user_data=$(winepath -u "$(wine cmd /c 'echo %APPDATA%' | tr -d '\r\n')" 2>/dev/null)/Brendix
  target=Z:$work/out/r.zip
  run() { wine "$exe" "$@"; }
fi
product=$program_data/Cobaltine\ Home
mkdir -p "$product/Logs" "$product/OnlineBackup" "$user_data" "$work/private" "$work/out"

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
ln -s "$work/private" "$product/linked-folder"
printf 'Password=kept as it is\n' >"$user_data/user.log"
if [[ $mode == linux ]]; then
  ln -s "$work/private/diary.txt" "$product/linked-file.txt"
  chmod -R a+rwX "$work/common" "$work/user" "$work/out"
  printf 'Password=locked away\n' >"$product/Logs/locked.log"
  cp "$product/OnlineBackup/client.crt" "$product/OnlineBackup/locked.crt"
  chmod 000 "$product/Logs/locked.log" "$product/OnlineBackup/locked.crt"
fi

run /silent "/filename:$target" || { echo "FAIL: the run ended with status $?"; exit 1; }

python3 - "$mode" "$work/out/r.zip" "$user_name" "$product/Logs/system_report/system_report.log" <<'PY'
import sys, zipfile

mode, archive, user, tool_log = sys.argv[1:5]
machine = "Application Data/All Users/Brendix/Cobaltine Home/"
failures = []
with zipfile.ZipFile(archive) as z:
    names = set(z.namelist())

    def read(name):
        if name not in names:
            failures.append(name + " is missing")
            return b""
        return z.read(name)

    # As the reference redacts it: rule 1 takes the CR of its line, the others keep it.
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

    if mode == "linux":
        if b"Filename: 'locked.crt'\r\nSize: " not in details or b"-----\r\nFailed to open x509 file\r\n" not in details:
            failures.append("online_backup.txt does not name the unreadable certificate: %r" % details)
        with open(tool_log, encoding="utf-8", errors="replace") as f:
            if "Logs/locked.log' is left out" not in f.read():
                failures.append("the tool's log has no error line for the unreadable log")

    for name in names:
        data = z.read(name)
        for private in (b"hunter2", b"s3ss10n", b"secret diary", b"jdoe", b"ops@example.com", b"locked away"):
            if private in data:
                failures.append("%s holds %r" % (name, private))
        if "linked" in name:
            failures.append("%s was taken through a link" % name)

for failure in failures:
    print("FAIL:", failure)
sys.exit(1 if failures else 0)
PY
echo "PASS"
