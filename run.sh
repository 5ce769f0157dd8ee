#!/bin/sh
# The production test of one virtual keypad: builds the tool and the bench, runs
# the plan, prints the verdict and where the report is. Installs by package name
# what a fresh Debian 12 machine lacks. Arguments go to "build/bench line":
#   ./run.sh --units 5 --fault hangs:2
#   ./run.sh --port /dev/ttyUSB0
# Without any, a batch of eight units side by side follows with a quick plan, and the report on
# all records so far.
set -eu
cd "$(dirname "$0")"

scripts/install-packages.sh build
cmake --preset release -DMFTOOL_WERROR=OFF >/dev/null
cmake --build --preset release -j "$(nproc)" --target mftool bench
[ $# -eq 0 ] || exec build/bench line bench/plans/production.json "$@"

status=0
build/bench line bench/plans/production.json || status=$?
printf '\nA batch of eight:\n\n'
build/bench line bench/plans/quick.json --units 8 --parallel 8 \
    --serial-number DEMO-0001 --count-up || status=$?
build/bench records report --out bench-out/records.html >/dev/null || status=$?
printf '\nAll records:  bench-out/records.sqlite (build/bench records list)\n'
printf 'Their report: bench-out/records.html\n'
exit "$status"
