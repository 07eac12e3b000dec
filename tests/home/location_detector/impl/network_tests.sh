#!/usr/bin/env bash
# The location detectors against real and hostile devices, each side in a network namespace of this
# test's own, joined by a veth pair with a multicast route: Debian's minidlna over SSDP, avahi-daemon
# over multicast DNS, and responders that answer with endless, huge, trickling, missing or unreachable
# description documents, answer late or repeat their SSDP answer without end, answer as hundreds of
# devices, or send malformed multicast DNS packets. No packet leaves the two namespaces.
# With the report tool as second argument, a whole run in the detector's namespace ends the test: its
# archive must hold the device in "locations.txt".
# Usage: network_tests.sh <location_probe> [SystemReport]   (exit 77: skipped)
set -euo pipefail

probe=$1
report=${2:-}
here=$(cd "$(dirname "$0")" && pwd)

skip() {
  echo "SKIP: $*"
  exit 77
}
[[ $EUID -eq 0 ]] || skip "network namespaces need root"
for tool in ip minidlnad avahi-daemon python3 mount; do
  command -v "$tool" >/dev/null || skip "$tool is not installed"
done
[[ -d /etc/avahi/services ]] || skip "avahi-daemon's service folder /etc/avahi/services is missing"

# A run killed by ctest's time-out never reached its clean-up: remove the namespaces (with the daemons
# in them) and links of runs whose script is gone.
for stale in $(ip netns list | grep -oE '^srloc-[ab]-[0-9]+'; ip -o link show | grep -oE '\bsl[ab][0-9]+\b'); do
  grep -qs network_tests.sh "/proc/${stale##*[a-z-]}/cmdline" && continue
  for pid in $(ip netns pids "$stale" 2>/dev/null); do kill -9 "$pid" 2>/dev/null || true; done
  ip netns del "$stale" 2>/dev/null || ip link del "$stale" 2>/dev/null || true
done

id=$$
nsA=srloc-a-$id   # the detector's side
nsB=srloc-b-$id   # the devices' side
vethA=sla$id
vethB=slb$id
work=$(mktemp -d)
pids=()

cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  ip netns del "$nsA" 2>/dev/null || true
  ip netns del "$nsB" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

ip netns add "$nsA" || skip "cannot create network namespaces here"
ip netns add "$nsB"
ip link add "$vethA" type veth peer name "$vethB"
ip link set "$vethA" netns "$nsA"
ip link set "$vethB" netns "$nsB"
for side in "$nsA:$vethA" "$nsB:$vethB"; do
  ns=${side%%:*} dev=${side##*:}
  ip -n "$ns" link set lo up
  ip -n "$ns" link set "$dev" up
  ip -n "$ns" route add 224.0.0.0/4 dev "$dev"
done

# Gives both ends of the link new addresses: address of A, address of B, prefix length.
address_link() {
  ip -n "$nsA" addr flush dev "$vethA" scope global
  ip -n "$nsB" addr flush dev "$vethB" scope global
  ip -n "$nsA" addr add "$1/$3" dev "$vethA"
  ip -n "$nsB" addr add "$2/$3" dev "$vethB"
  ip -n "$nsA" route replace 224.0.0.0/4 dev "$vethA"
  ip -n "$nsB" route replace 224.0.0.0/4 dev "$vethB"
  addressB=$2
}

# Waits until a TCP port of side B accepts connections from side A.
wait_for_port() {
  local port=$1 tries
  for tries in $(seq 50); do
    if ip netns exec "$nsA" bash -c "exec 3<>/dev/tcp/$addressB/$port" 2>/dev/null; then return 0; fi
    sleep 0.2
  done
  echo "FAIL: nothing listens on $addressB:$port"
  exit 1
}

stop() {
  kill "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

minidlna=
start_minidlna() {
  local dir=$work/minidlna-$RANDOM
  mkdir -p "$dir/media" "$dir/db" "$dir/log"
  cat >"$dir/minidlna.conf" <<EOF
port=8200
network_interface=$vethB
media_dir=$dir/media
db_dir=$dir/db
log_dir=$dir/log
friendly_name=$1
inotify=no
EOF
  ip netns exec "$nsB" minidlnad -f "$dir/minidlna.conf" -P "$dir/minidlna.pid" -S >"$dir/out.txt" 2>&1 &
  minidlna=$!
  pids+=("$minidlna")
  wait_for_port 8200
}

# avahi-daemon reads its services from a fixed folder and keeps its pid file and socket in another; a
# mount namespace of its own (ip netns exec gives one) lets private folders stand in for both.
avahi=
start_avahi() {
  local dir=$work/avahi
  mkdir -p "$dir/services" "$dir/run/avahi-daemon"
  cat >"$dir/avahi-daemon.conf" <<EOF
[server]
host-name=nas-test
domain-name=local
use-ipv4=yes
use-ipv6=no
allow-interfaces=$vethB
enable-dbus=no
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
EOF
  cat >"$dir/services/smb.service" <<'EOF'
<?xml version="1.0" standalone='no'?>
<!DOCTYPE service-group SYSTEM "avahi-service.dtd">
<service-group>
  <name>Büro Speicher</name>
  <service>
    <type>_smb._tcp</type>
    <port>445</port>
    <txt-record>model=TestNAS</txt-record>
  </service>
</service-group>
EOF
  ip netns exec "$nsB" sh -c "mount --bind '$dir/services' /etc/avahi/services && mount --bind '$dir/run' /run &&
    exec avahi-daemon --no-drop-root --no-chroot --no-rlimits --no-proc-title -f '$dir/avahi-daemon.conf'" \
    >"$dir/out.txt" 2>&1 &
  avahi=$!
  pids+=("$avahi")
  local tries
  for tries in $(seq 50); do
    if grep -qs "successfully established" "$dir/out.txt"; then return 0; fi
    sleep 0.2
  done
  cat "$dir/out.txt"
  echo "FAIL: avahi-daemon did not publish its service"
  exit 1
}

# Waits until a line of a file matches a pattern (file, pattern, [seconds, 10 unless given]).
wait_for_line() {
  local tries
  for tries in $(seq $((${3:-10} * 10))); do
    if grep -qs -- "$2" "$1"; then return 0; fi
    sleep 0.1
  done
  return 1
}

# Starts hostile responders side by side, one per argument (its arguments, separated by blanks), and
# waits until each listens. Each one's output goes to hostile-<mode>.txt; its pid is added to `hostiles`.
hostiles=()
start_hostiles() {
  local responder output outputs=()
  for responder in "$@"; do
    set -- $responder
    output=$work/hostile-${3:-$1}.txt
    ip netns exec "$nsB" python3 "$here/hostile_responder.py" "$@" >"$output" 2>&1 &
    hostiles+=($!)
    pids+=($!)
    outputs+=("$output")
  done
  for output in "${outputs[@]}"; do
    wait_for_line "$output" '^ready' 60 || { cat "$output"; echo "FAIL: $output: the responder did not start"; exit 1; }
  done
}
stop_hostiles() {
  local pid
  for pid in "${hostiles[@]}"; do stop "$pid"; done
  hostiles=()
}

# Names a case, with the test's time so far: the cases' costs show in the output.
section() { echo "=== $1 (at ${SECONDS} s)"; }

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The probe's output that the checks below read, and the part of it that is shown.
out=
show() {
  grep -E "^LOCATION|^ELAPSED_MS|\[(warning|error)\]|Discovered|Found|Ignoring" "$out" | sed 's/^.*): //' | cut -c1-200 | sort -u | head -20
}

# Runs the probe in side A: detector kind, search seconds, [URN device type, [devices examined]].
probe_run() {
  echo "--- location_probe $*"
  out=$work/probe.txt
  ip netns exec "$nsA" "$probe" "$@" >"$out" 2>&1 || fail "location_probe $* exited with $?"
  show
}

# Probes that search side by side: probe_start starts one under a name (name, probe arguments);
# probe_take waits for it and makes its output the one the checks read.
declare -A probing=()
probe_start() {
  local name=$1
  shift
  ip netns exec "$nsA" "$probe" "$@" >"$work/probe-$name.txt" 2>&1 &
  pids+=($!)
  probing[$name]="$! $*"
}
probe_take() {
  local status=0
  wait "${probing[$1]%% *}" || status=$?
  echo "--- location_probe ${probing[$1]#* }"
  out=$work/probe-$1.txt
  [[ $status -eq 0 ]] || fail "location_probe ${probing[$1]#* } exited with $status"
  show
}
locations() { grep -c "^LOCATION" "$out" || true; }
expect_locations() { [[ $(locations) -eq $1 ]] || fail "$2: expected $1 location(s), found $(locations)"; }
expect_location() {
  grep -qF "$(printf 'LOCATION\t%s\t%s\t%s\t' "$1" "$2" "$3")" "$out" || fail "$4: no location '$1' '$2' '$3'"
}
expect_log() { grep -qF -- "$1" "$out" || fail "$2: the log lacks '$1'"; }
expect_within() {
  local elapsed
  elapsed=$(sed -n 's/^ELAPSED_MS //p' "$out")
  [[ -n $elapsed && $elapsed -le $1 ]] || fail "$2: took ${elapsed:-?} ms, more than $1 ms"
}

address_link 10.231.0.1 10.231.0.2 24

section "a media server named like a NAS maker's"
start_minidlna "Synology DiskStation"
probe_run upnp 4 -1
expect_locations 1 "NAS-named media server"
expect_location "Synology DiskStation" '\\10.231.0.2' 10.231.0.2 "NAS-named media server"
expect_log "+Found NAS device by vendor: Synology DiskStation" "NAS-named media server"
stop "$minidlna"

section "a media server with a plain name"
start_minidlna "Living Room Server"
probe_start default upnp 4 -1
probe_start omit upnp 4 0
probe_start forced upnp 4 1
probe_take default
expect_locations 0 "plain media server, default algorithm"
expect_log "-Found not a NAS device: Living Room Server Urn = urn:schemas-upnp-org:device:MediaServer:1 Vendor=  " \
  "plain media server, default algorithm"
probe_take omit
expect_location "Living Room Server" '\\10.231.0.2' 10.231.0.2 "URN type 0"
expect_log "Warning! Ommit urn is setted. All upnp devices will be detected as NAS." "URN type 0"
probe_take forced
expect_location "Living Room Server" '\\10.231.0.2' 10.231.0.2 "forced type 1"
expect_log "Warning! upnp urn detection is forced by: urn:schemas-upnp-org:device:NAS:1" "forced type 1"
stop "$minidlna"

section "an SMB service published over multicast DNS"
start_avahi
probe_run bonjour 3
expect_locations 1 "avahi SMB service"
expect_location "Büro Speicher" '\\nas-test.local' nas-test.local "avahi SMB service"
expect_log "TXT: model=TestNAS" "avahi SMB service"
expect_log "Address: 10.231.0.2" "avahi SMB service"
stop "$avahi"

# A NAS beside devices that misbehave each in its own way, all answering the same searches: description
# servers that send endlessly, announce a huge document, trickle a byte every half second, never answer
# or cannot be reached (an address that resolves to a link-layer address nobody has), and devices that
# answer only late or repeat their answer without end. The NAS is found, every device is logged, each
# hostile download ends for its own reason, and the run ends within the cap: the search time, then at
# most 4 s (UpnpDetector::kDownloadTime) for the downloads, and a little for the probe itself. The
# downloads start as the answers come, so a 6 s search outlasts their 4 s limit.
section "a NAS among misbehaving devices"
ip -n "$nsA" neigh replace 10.231.0.77 lladdr 02:00:00:00:00:77 dev "$vethA" nud permanent
start_minidlna "Synology DiskStation"
hostile_cases='endless:11:The document is larger than the limit.
huge:12:The document is larger than the limit.
trickle:13:The answer did not come in time.
silent:14:The answer did not come in time.
unreachable:15:The connection timed out.
late:16:
repeat:17:'
responders=()
while IFS=: read -r mode host reason; do
  ip -n "$nsB" addr add "10.231.0.$host/24" dev "$vethB"
  responders+=("ssdp 10.231.0.$host $mode 10.231.0.77")
done <<<"$hostile_cases"
start_hostiles "${responders[@]}"
probe_run upnp 6 -1
expect_locations 1 "NAS among misbehaving devices"
expect_location "Synology DiskStation" '\\10.231.0.2' 10.231.0.2 "NAS among misbehaving devices"
expect_within 10300 "NAS among misbehaving devices"
[[ $(grep -c -- "-Found not a NAS device: Chatty Box" "$out") -eq 2 ]] || fail "the late and the repeating device were not both examined"
while IFS=: read -r mode host reason; do
  url=http://10.231.0.$host:8300/desc.xml
  [[ $mode == unreachable ]] && url=http://10.231.0.77:8300/desc.xml
  expect_log "Discovered upnp device: $url" "$mode device"
  [[ -z $reason ]] || expect_log "$url: $reason" "$mode description"
  # The detector, not the server, ended the download.
  [[ ! $mode =~ endless|huge|trickle ]] || wait_for_line "$work/hostile-$mode.txt" "http $mode: connection ended after" ||
    fail "$mode description: the download did not end"
done <<<"$hostile_cases"
stop_hostiles
stop "$minidlna"

# One responder answers as 300 devices; the probe examines at most 200 of them.
section "300 answering devices"
start_hostiles "ssdp 10.231.0.2 many 300"
probe_run upnp 3 -1 200
discovered=$(grep -c "Discovered upnp device: http://10.231.0.2:8300/dev/" "$out" || true)
[[ $discovered -eq 300 ]] || fail "300 devices: $discovered logged"
expect_locations 200 "300 devices"
expect_log "100 answering upnp devices were not examined" "300 devices"
expect_within 7300 "300 devices"
stop_hostiles

# The responder must listen before the search starts: the search queries at once and a second later
# only, so a responder still starting then would get no query to answer.
section "malformed multicast DNS answers"
start_hostiles "mdns 10.231.0.2"
probe_run bonjour 3
expect_locations 0 "malformed mDNS"
expect_log "Ignoring a malformed Bonjour answer from 10.231.0.2: compression pointer does not point backwards" "malformed mDNS"
expect_within 7300 "malformed mDNS"
stop_hostiles

section "one device over both protocols, on link-local addresses"
address_link 169.254.10.1 169.254.10.2 16
start_minidlna "Synology DiskStation"
start_avahi
probe_run composite 5
expect_locations 1 "joined device"
grep -qP '^LOCATION\t(Synology DiskStation|Büro Speicher)\t\\\\nas-test.local\tnas-test.local\t' "$out" ||
  fail "joined device: not one location named by either protocol at \\\\nas-test.local"
expect_log "<friendlyName>Synology DiskStation</friendlyName>" "joined device"
expect_log "Service: Büro Speicher._smb._tcp.local." "joined device"

if [[ -n $report ]]; then
  echo "=== a whole report run"
  status=0
  ip netns exec "$nsA" env SYSTEM_REPORT_COMMON_APPDATA="$work/common" XDG_DATA_HOME="$work/user" \
    "$report" /silent "/filename:$work/report.zip" >"$work/report.txt" 2>&1 || status=$?
  [[ $status -eq 0 ]] || fail "the report run ended with status $status"
  python3 - "$work/report.zip" <<'PY' || fail "the report's locations.txt"
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as archive:
    names = archive.namelist()
    text = archive.read("locations.txt").decode("utf-8")
print("archive entries:", names)
print(text[:300])
assert names[-1] == "locations.txt", "locations.txt is not the last entry"
assert text.count("Name: ") == 1, "not one block"
assert "\r\nPath: \\\\nas-test.local\r\nHostname: nas-test.local\r\n\r\nRaw:\r\n" in text, "block lines"
assert "Service: B\u00fcro Speicher._smb._tcp.local." in text and "<friendlyName>Synology DiskStation" in text, "raw text"
assert text.endswith("\r\n\r\n"), "block end"
PY
fi

if [[ $failures -ne 0 ]]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all network checks passed in ${SECONDS} s"
