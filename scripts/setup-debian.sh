#!/usr/bin/env bash
# Installs the Debian packages the project needs (scripts/debian-packages.txt); skips apt when all are there.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
mapfile -t packages < <(sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$here/debian-packages.txt")

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present" >&2
  exit 0
fi
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "setup: installing ${missing[*]}" >&2
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
