#!/usr/bin/env bash
# Sets up this machine and runs every test: the Linux suite (with AddressSanitizer), the Windows x64 suite
# and end-to-end runs under wine64, and the x86 build's checks. Prints one timing line per stage.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
jobs=$(nproc)

stage() {
  local name=$1
  shift
  local start=$SECONDS
  echo "=== $name" >&2
  local status=0
  "$@" || status=$?
  echo "=== $name: $((SECONDS - start)) s (exit $status)" >&2
  return "$status"
}

deps() {
  SYSTEM_REPORT_DEPS_X64=$(scripts/build-mingw-deps.sh x86_64-w64-mingw32 | tail -n1)
  SYSTEM_REPORT_DEPS_X86=$(scripts/build-mingw-deps.sh i686-w64-mingw32 | tail -n1)
  export SYSTEM_REPORT_DEPS_X64 SYSTEM_REPORT_DEPS_X86
}

build() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" -j "$jobs"
}

# The tool's discovery multicasts on every interface it sees: tests never reach the machine's own networks.
# As root they run in a network namespace of their own with only loopback; the network tests make their
# own namespaces inside it.
isolated() {
  if [ "$(id -u)" -eq 0 ] && unshare -n true 2>/dev/null; then
    unshare -n bash -c 'ip link set lo up && exec "$@"' isolated "$@"
  else
    echo "test-all: not root: tests share this machine's network" >&2
    "$@"
  fi
}

summary=()
# Runs one CTest preset, keeps its closing line for the summary, and fails the stage when a test failed.
# Extra words before ctest (a wrapper) may follow the preset.
run_ctest() {
  local preset=$1 log
  shift
  log=$(mktemp)
  local status=0
  isolated "$@" ctest --preset "$preset" -j "$jobs" --timeout 900 2>&1 | tee "$log" || status=$?
  summary+=("$preset: $(grep -E 'tests passed|tests failed' "$log" | tail -n1)")
  rm -f "$log"
  return "$status"
}

linux_tests() { run_ctest linux-asan; }

# Tests run in parallel under Wine share one prefix per build tree: its server is started once, before
# they race for it, and kept up for the whole run.
windows_tests() {
  run_ctest windows-x64 env WINEPREFIX="$root/build/windows-x64/wineprefix" WINEDEBUG=-all scripts/with-wineserver.sh
}

failed=0
stage "set up Debian packages" scripts/setup-debian.sh
stage "mingw dependencies" deps
stage "build linux-asan" build linux-asan
stage "test linux-asan" linux_tests || failed=1
stage "build windows-x64" build windows-x64
stage "test windows-x64 (wine64)" windows_tests || failed=1
stage "build windows-x86" build windows-x86
stage "check windows-x86 executable" scripts/check-pe.sh build/windows-x86/bin/SystemReport.exe

printf '%s\n' "${summary[@]}"
exit "$failed"
