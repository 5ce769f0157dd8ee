#!/bin/sh
# Installs the Debian packages that are missing, by name:
#   install-packages.sh build        what building the tool and the bench needs
#   install-packages.sh build test   and what the tests need besides
#   install-packages.sh build fuzz   what coverage-guided fuzzing needs
#   install-packages.sh build perf   what all performance figures need
#   install-packages.sh armel        what cross-building for the board's CPU needs
#   install-packages.sh board        what making and running the emulated board needs
#   install-packages.sh lint         what reads the board's package, and clang-tidy
# Does nothing, not even as root, when all of them are there.
set -eu

build="cmake ninja-build g++ pkg-config qtbase5-dev libts-dev libfuse3-dev fuse3
       libqt5sql5-sqlite libqt5sql5-psql libkainjow-mustache-dev libxcb1-dev
       libxcb-xtest0-dev xvfb xauth fonts-dejavu-core"
test="qt6-base-dev qt6-5compat-dev qt6-qpa-plugins libqt6sql6-sqlite libqt6sql6-psql postgresql libgl-dev libts-bin faketime valgrind mmdebstrap
      python3 python3-jsonschema clang-format-14 dpkg-dev file libxml2-utils chromium
      poppler-utils"
armel="g++-arm-linux-gnueabi qemu-user-static mmdebstrap python3"
board="$armel qemu-system-arm qemu-utils kmod cpio make binutils e2fsprogs mtd-utils xz-utils zstd
       debian-archive-keyring"
fuzz="clang libclang-rt-14-dev"
perf="libbenchmark-dev valgrind"
lint="shellcheck mandoc lintian clang-tidy-14"

wanted=
for list in "$@"; do
    case $list in
    build) wanted="$wanted $build" ;;
    test) wanted="$wanted $test" ;;
    armel) wanted="$wanted $armel" ;;
    board) wanted="$wanted $board" ;;
    lint) wanted="$wanted $lint" ;;
    fuzz) wanted="$wanted $fuzz" ;;
    perf) wanted="$wanted $perf" ;;
    *)
        echo "usage: $0 [build] [test] [armel] [board] [lint] [fuzz] [perf]" >&2
        exit 2
        ;;
    esac
done

missing=
for package in $wanted; do
    state=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$state" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

sudo=
[ "$(id -u)" = 0 ] || sudo=sudo
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
# shellcheck disable=SC2086  # a list of names
$sudo apt-get install -q -y --no-install-recommends $missing
