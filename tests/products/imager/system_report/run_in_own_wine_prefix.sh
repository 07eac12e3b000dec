#!/usr/bin/env bash
# Runs a Windows test program under Wine in a prefix of its own, then ends every process of that prefix:
# any of them (a tool left running, a hidden console, the server) keeps the test's output pipe open, and
# CTest waits for that pipe. The server starts first with its output sent away, so it never holds it.
# Making the prefix costs about 7 s once, checking it about 0.5 s.
# Usage: run_in_own_wine_prefix.sh <prefix> <wine> <program> [arguments...]
set -u
export WINEPREFIX=$1 WINEDEBUG=-all
wine=$2
shift 2
trap 'wineserver -k &>/dev/null; wineserver -w &>/dev/null' EXIT
wineserver -p >/dev/null 2>&1 </dev/null
wineboot -i >/dev/null 2>&1 </dev/null
"$wine" "$@"
