#!/usr/bin/env bash
# Sets up this machine, builds the tool natively and runs the report here. Extra arguments go to the tool,
# for example: scripts/run-report.sh /silent /filename:/tmp/SystemReport.zip
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
scripts/setup-debian.sh
cmake --preset linux -DSYSTEM_REPORT_BUILD_TESTS=OFF -DSYSTEM_REPORT_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build --preset linux --target SystemReport
exec build/linux/bin/SystemReport "$@"
