#!/bin/sh
# The production test of one virtual keypad: builds the tool and the bench, runs
# the plan, prints the verdict and where the report is. Installs by package name
# what a fresh Debian 12 machine lacks. Arguments go to "build/bench line":
#   ./run.sh --units 5 --fault hangs:2
#   ./run.sh --port /dev/ttyUSB0
set -eu
cd "$(dirname "$0")"

scripts/install-packages.sh build
cmake --preset release -DMFTOOL_WERROR=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target mftool bench
exec build/bench line bench/plans/production.json "$@"
