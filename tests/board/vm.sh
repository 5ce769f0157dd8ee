#!/bin/sh
# The emulated board that "bench board" has made: the production test over both kinds of
# line, in which every step passes and none is skipped, and what breaks under the tool.
#   vm.sh BUILDDIR [plan]     plan: only the production test
set -eu

build=$1
what=${2:-all}
plan=$(cd "$(dirname "$0")/../.." && pwd)/bench/plans/production.json
limit=600 # s; a boot and a hundred seconds of steps on a machine that is busy

for line in usb uart; do
    out=$build/board-out/$line
    timeout --foreground $limit \
        "$build/bench" line "$plan" --board vm --line $line --pace 0 --out "$out" || {
        status=$?
        [ $status != 124 ] || { echo "the plan over $line took longer than $limit s"; status=1; }
        exit $status
    }
    for word in skipped "not run"; do
        if grep -q "\"$word\"" "$out/latest/record.json"; then
            echo "something was $word over $line"
            exit 1
        fi
    done
done
[ "$what" = all ] || exit 0

MFTOOL_BOARD_TESTS=yes QTEST_FUNCTION_TIMEOUT=3600000 timeout --foreground 7200 \
    "$build/tests/tests_vm" tst_vmboard
