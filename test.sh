#!/bin/sh
# Builds and runs every test: Qt 5, Qt 6, and Qt 5 under the sanitizers; armel,
# the board's CPU under an emulator, when it is asked for.
# Installs by package name what a fresh Debian 12 machine lacks.
#   ./test.sh                          release, qt6 and asan
#   ./test.sh release qt6 asan armel   and the board's CPU
#   ./test.sh release                  one preset: release, qt6, asan, armel or debug
# armel fetches a sysroot of 470 MB once; where that cannot be had it is skipped.
set -eu
cd "$(dirname "$0")"

scripts/install-packages.sh build test
presets=${*:-release qt6 asan}
jobs=$(nproc)
# The tests of the whole tool mostly wait: three for each processor.
tests=$((jobs * 3))
passed=
skipped=
for preset in $presets; do
    echo "== $preset"
    if [ "$preset" = armel ]; then
        have=0
        scripts/install-packages.sh armel && packaging/make-armel-sysroot.sh || have=$?
        if [ "$have" != 0 ]; then
            echo "SKIPPED: armel, its packages cannot be had here"
            skipped="$skipped $preset"
            continue
        fi
    fi
    # Warnings are errors where the project is tested, not for whoever builds it later.
    cmake --preset "$preset" -DMFTOOL_WERROR=ON >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$tests"
    passed="$passed $preset"
done
case " $presets " in
*" armel "*) ;;
*) echo "== armel was not asked for: ./test.sh armel" ;;
esac
[ -z "$skipped" ] || echo "== skipped:$skipped"
echo "== all passed:$passed"
