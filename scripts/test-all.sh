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
  "$@"
  echo "=== $name: $((SECONDS - start)) s" >&2
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

linux_tests() { ctest --preset linux-asan -j "$jobs" --timeout 900; }
windows_tests() { ctest --preset windows-x64 -j "$jobs" --timeout 900; }

stage "set up Debian packages" scripts/setup-debian.sh
stage "mingw dependencies" deps
stage "build linux-asan" build linux-asan
stage "test linux-asan" linux_tests
stage "build windows-x64" build windows-x64
stage "test windows-x64 (wine64)" windows_tests
stage "build windows-x86" build windows-x86
stage "check windows-x86 executable" scripts/check-pe.sh build/windows-x86/bin/SystemReport.exe
