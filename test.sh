#!/bin/sh
# Builds and runs every test: Qt 5, Qt 6, and Qt 5 under the sanitizers; armel,
# the board's CPU under an emulator, and board, a real kernel, when they are asked for.
# Installs by package name what a fresh Debian 12 machine lacks.
#   ./test.sh                          release, qt6 and asan
#   ./test.sh release qt6 asan armel   and the board's CPU, as continuous integration does
#   ./test.sh release                  one preset: release, qt6, asan, armel, debug or qt4
#   ./test.sh board                    an emulated board, and all that breaks under the tool
#   ./test.sh board-plan               of that only the production test over both lines
# armel fetches a sysroot of 470 MB once. Where its packages cannot be had it is
# skipped; whatever else goes wrong with it is a failure, as everywhere. qt4 builds
# the tool with a Qt 4.8 whose qmake QT4_QMAKE names, and runs the tests that it can;
# without one it is skipped.
set -eu
cd "$(dirname "$0")"

# Compiler, emulator and sysroot of the board's CPU: false when they cannot be had.
have_armel() {
    scripts/install-packages.sh armel || return 1
    made=0
    packaging/make-armel-sysroot.sh || made=$?
    case $made in
    0) return 0 ;;
    77) return 1 ;;
    esac
    echo "packaging/make-armel-sysroot.sh failed with exit code $made" >&2
    exit 1
}

# A machine that needs longer for the board's image has no time for the tests on it.
board_limit=${MFTOOL_BOARD_LIMIT:-1800} # s

# The board with a real kernel, whose image is made once. 77: it cannot be had here.
#   test_board all|plan
test_board() {
    scripts/install-packages.sh build board || return 77
    cmake --preset release -DMFTOOL_WERROR="${MFTOOL_WERROR:-OFF}" >/dev/null
    cmake --build --preset release -j "$jobs" --target bench tests_vm
    made=0
    timeout --foreground "$board_limit" build/bench board || made=$?
    case $made in
    0) tests/board/vm.sh build "$1" ;;
    4) return 77 ;;
    124)
        echo "making the board took longer than $board_limit s, which is too long here"
        return 77
        ;;
    *) return 1 ;;
    esac
}

scripts/install-packages.sh build test
presets=${*:-release qt6 asan}
jobs=$(nproc)
# The tests of the whole tool mostly wait: three for each processor.
tests=$((jobs * 3))
passed=
skipped=
for preset in $presets; do
    echo "== $preset"
    if [ "$preset" = armel ] && ! have_armel; then
        echo "SKIPPED: armel, its packages cannot be had here"
        skipped="$skipped $preset"
        continue
    fi
    case $preset in
    board | board-plan)
        what=all
        [ "$preset" = board ] || what=plan
        # In a subshell: after "||" the shell would ignore a failing command.
        status=0
        set +e
        (set -e; test_board "$what")
        status=$?
        set -e
        case $status in
        0) passed="$passed $preset" ;;
        77)
            echo "SKIPPED: $preset, the board cannot be made here"
            skipped="$skipped $preset"
            ;;
        *) exit "$status" ;;
        esac
        continue
        ;;
    esac
    if [ "$preset" = qt4 ] && [ ! -x "${QT4_QMAKE:-}" ]; then
        echo "SKIPPED: qt4, QT4_QMAKE names no qmake of Qt 4.8"
        skipped="$skipped $preset"
        continue
    fi
    cmake --preset "$preset" -DMFTOOL_WERROR="${MFTOOL_WERROR:-OFF}" \
        -DQT_QMAKE_EXECUTABLE="${QT4_QMAKE:-}" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$tests"
    passed="$passed $preset"
done
case " $presets " in
*" armel "* | *" board-plan "*) ;;
*) echo "== armel was not asked for: ./test.sh armel" ;;
esac
[ -z "$skipped" ] || echo "== skipped:$skipped"
echo "== all passed:$passed"
