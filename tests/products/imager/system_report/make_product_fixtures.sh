#!/usr/bin/env bash
# Fixtures of the product data tests, made on the host by real tools so that the Windows build reads them
# under Wine through Z: as well: a certificate made by the openssl command (PEM, DER, and the subject as
# openssl prints it), UTF-16 logs made by iconv, and a folder tree with symbolic links that point out of it. Wine 8 can make neither
# links nor junctions and shows the host's links to files as plain files: for it only links to folders.
# Usage: make_product_fixtures.sh <folder> linux|wine
set -euo pipefail
out=$1
mode=$2

rm -rf "$out"
mkdir -p "$out/certificates" "$out/links/data" "$out/links/settings" "$out/links/outside/Cobaltine Home/OnlineBackup"

cd "$out/certificates"
openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -subj '/CN=Backup Test/O=Brendix Cloud/emailAddress=ops@example.com' \
  -keyout client.key -out client.pem 2>/dev/null
openssl x509 -in client.pem -outform DER -out client.der
openssl x509 -noout -subject -nameopt oneline,-esc_msb,utf8 -in client.pem >subject.txt

cd "$out/links"
printf 'kept' >data/kept.txt
printf 'my secret diary' >outside/diary.txt
ln -s ../outside data/link-dir
ln -s . data/loop
ln -s outside root-link
# A link planted where the tool writes the scrubbed copy of a settings file; Wine sees it as a plain file.
printf 'OBPassword=hunter2\r\nkeep=1\r\n' >settings/s.ini
printf 'not to be overwritten' >outside/victim.ini
ln -s ../outside/victim.ini settings/s.ini.for_report
if [[ $mode == linux ]]; then
  ln -s ../outside/diary.txt data/link-file.txt
  ln -s ../missing data/dangling-link
fi
# Logs in UTF-16 as iconv writes them: without a mark in either byte order, and with one.
mkdir -p "$out/utf16"
log='Logon Password=Tr0ub4dor&3\r\nMail to john.doe@example.com sent\r\n'
for form in UTF-16LE UTF-16BE UTF-16; do
  printf "$log" | iconv -f UTF-8 -t "$form" >"$out/utf16/$form.log"
done
touch "$out/.stamp"
