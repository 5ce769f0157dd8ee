#!/bin/sh
# The emulated board that "bench board" has made: the production test over both kinds of
# line, in which every step passes and none is skipped, and what breaks under the tool.
#   vm.sh BUILDDIR
set -eu

build=$1
plan=$(cd "$(dirname "$0")/../.." && pwd)/bench/plans/production.json
limit=1200 # s; a boot and a hundred seconds of steps on a machine that is busy

produce() {
    timeout $limit "$build/bench" line "$plan" --board vm --line "$1" --pace 0 --out "$2"
}

for line in usb uart; do
    out=$build/board-out/$line
    if [ $line = uart ]; then
        # Other programs may keep the emulator waiting for longer than a UART's driver may.
        produce uart "$out" || { echo "== once more over the UART"; produce uart "$out"; }
    else
        produce usb "$out"
    fi
    for word in skipped "not run"; do
        if grep -q "\"$word\"" "$out/latest/record.json"; then
            echo "something was $word over $line"
            exit 1
        fi
    done
done

MFTOOL_BOARD_TESTS=yes QTEST_FUNCTION_TIMEOUT=1200000 timeout 3600 \
    "$build/tests/tests_vm" tst_vmboard
