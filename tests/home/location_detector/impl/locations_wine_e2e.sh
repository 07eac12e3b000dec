#!/usr/bin/env bash
# A whole run of SystemReport.exe under Wine in a network namespace that has nothing but loopback: the
# location detectors start, find no interface and nothing else, and the run still writes an empty
# "locations.txt" as its last entry and succeeds. (Wine uses the host's interfaces, so the namespace is
# what keeps the discovery's multicast off every real network.)
# Usage: locations_wine_e2e.sh <SystemReport.exe> [wine]   (exit 77: skipped)
set -euo pipefail

exe=$(readlink -f "$1")
wine=${2:-}
[[ -n $wine ]] || wine=$(command -v wine64 || command -v wine || true)
skip() {
  echo "SKIP: $*"
  exit 77
}
[[ -n $wine ]] || skip "wine64 is not installed"
[[ $EUID -eq 0 ]] || skip "network namespaces need root"
command -v python3 >/dev/null || skip "python3 is not installed"

# A run killed by CTest's time-out never reaches its clean-up: remove what runs that are gone left behind.
for stale in $(ip netns list 2>/dev/null | awk '{print $1}' | grep -E '^srloc-wine-[0-9]+$' || true); do
  kill -0 "${stale##*-}" 2>/dev/null && continue
  ip netns pids "$stale" 2>/dev/null | xargs -r kill -9 2>/dev/null || true
  ip netns del "$stale" 2>/dev/null || true
done
ns=srloc-wine-$$
work=$(mktemp -d)
export WINEPREFIX=$work/prefix WINEDEBUG=-all
unset DISPLAY
cleanup() {
  ip netns exec "$ns" wineserver -k >/dev/null 2>&1 || true
  ip netns del "$ns" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
ip netns add "$ns" || skip "cannot create network namespaces here"
ip -n "$ns" link set lo up

in_ns() { ip netns exec "$ns" "$@"; }
in_ns "$wine" wineboot -i >/dev/null 2>&1 || true

start=$SECONDS
status=0
in_ns "$wine" "$exe" /silent "/filename:Z:${work//\//\\}\\r.zip" || status=$?
echo "SystemReport.exe exit status $status after $((SECONDS - start)) s"
[[ $status -eq 0 ]] || { echo "FAIL: the run did not succeed"; exit 1; }

log="$WINEPREFIX/drive_c/ProgramData/Brendix/Cobaltine Home/Logs/system_report/system_report.log"
failures=0
for line in "Using default upnp detection algorithm." "No network interface to search for upnp devices." \
  "No network interface to search for Bonjour services." "Network locations found: 0."; do
  grep -qF -- "$line" "$log" || { echo "FAIL: the log lacks '$line'"; failures=$((failures + 1)); }
done
python3 - "$work/r.zip" <<'PY' || failures=$((failures + 1))
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as archive:
    names = archive.namelist()
    info = archive.getinfo("locations.txt")
print("archive entries:", names)
assert names[-1] == "locations.txt", "locations.txt is not the last entry"
assert info.file_size == 0, "locations.txt is not empty"
PY
[[ $failures -eq 0 ]] || exit 1
echo "the run wrote an empty locations.txt and succeeded"
