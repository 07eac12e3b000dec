#!/usr/bin/env bash
# Runs a command (a Windows test run) with the Wine prefix's server and its system processes already up.
# Started by the first test instead, the server, services and explorer would inherit that test's output
# pipe and hold it as long as anything runs in the prefix, and CTest would wait for them after the test
# ended. Here they start persistent, with their output sent away, and are ended after the command.
# Usage: WINEPREFIX=<prefix> with-wineserver.sh <command> [arguments...]
set -u
: "${WINEPREFIX:?with-wineserver.sh: set WINEPREFIX}"
export WINEDEBUG=${WINEDEBUG:--all}
wineserver -p >/dev/null 2>&1 </dev/null
wineboot -i >/dev/null 2>&1 </dev/null
status=0
"$@" || status=$?
wineserver -k >/dev/null 2>&1 </dev/null
exit "$status"
