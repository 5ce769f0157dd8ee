#!/bin/sh
# The production test on the emulated board that "bench board" has made, over both kinds
# of line: every step passes, and none is skipped.
#   vm.sh BUILDDIR
set -eu

build=$1
plan=$(cd "$(dirname "$0")/../.." && pwd)/bench/plans/production.json
limit=900 # s; a boot and a hundred seconds of steps on a machine that is busy

for line in usb uart; do
    out=$build/board-out/$line
    timeout $limit "$build/bench" line "$plan" --board vm --line $line --pace 0 --out "$out"
    for word in skipped "not run"; do
        if grep -q "\"$word\"" "$out/latest/record.json"; then
            echo "something was $word over $line"
            exit 1
        fi
    done
done
