#!/bin/sh
# Makes the sysroot that the tool is cross-built against for the board's CPU:
# Debian 12's armel packages, unpacked. No ARM code runs on the way.
#   make-armel-sysroot.sh [FOLDER]
# FOLDER is $MFTOOL_ARMEL_SYSROOT by default, or else build-armel-sysroot in the
# source tree, which is where the build looks for it. A complete one is kept.
# Exit code 77: the packages cannot be had here.
set -eu

source=$(cd "$(dirname "$0")/.." && pwd)
sysroot=${1:-${MFTOOL_ARMEL_SYSROOT:-$source/build-armel-sysroot}}
mirror=${MFTOOL_MIRROR:-http://deb.debian.org/debian}
# What the tool is built with, what its tests are built with, and what it needs
# to draw: the libraries' own packages follow by themselves.
packages=libc6-dev,libstdc++-12-dev,qtbase5-dev,libts-dev,fonts-dejavu-core
multiarch=arm-linux-gnueabi
host_tools=/usr/lib/qt5/bin

# Raise the number when something below changes, so that an old sysroot is made anew.
stamp="1 $packages"
if [ "$(cat "$sysroot/.complete" 2>/dev/null || true)" = "$stamp" ]; then
    exit 0
fi

if ! command -v mmdebstrap >/dev/null; then
    echo "mmdebstrap is not installed" >&2
    exit 77
fi
echo "Making the armel sysroot in $sysroot"
rm -rf "$sysroot.new"
mkdir -p "$sysroot.new"
trap 'rm -rf "$sysroot.new"' EXIT

# Only main: the security suite has no armel. As a tar archive, so that the
# files belong to whoever runs this, and without device nodes. What is only unpacked needs
# neither root nor user namespaces.
archive=$sysroot.new/sysroot.tar
if ! timeout 1200 mmdebstrap --quiet --mode=chrootless --architectures=armel --variant=extract --include="$packages" \
    --format=tar bookworm "$archive" "deb $mirror bookworm main"; then
    echo "the armel packages cannot be had from $mirror, or not in time" >&2
    exit 77
fi
tar -x -f "$archive" -C "$sysroot.new" --no-same-owner --exclude='./dev/*'
rm "$archive"

# Links such as libm.so -> /lib/arm-linux-gnueabi/libm.so.6 would leave the sysroot.
cd "$sysroot.new"
find lib usr/lib -type l | while read -r link; do
    target=$(readlink "$link")
    case $target in
    /*)
        up=$(dirname "$link" | sed 's,[^/][^/]*,..,g')
        ln -sfn "$up$target" "$link"
        ;;
    esac
done

# moc, uic and rcc run on this machine. They must be the same Qt.
ours=$("$host_tools/moc" --version | sed 's/.* //')
theirs=$(sed -n 's/^#define QT_VERSION_STR "\(.*\)"/\1/p' \
    "usr/include/$multiarch/qt5/QtCore/qconfig.h")
if [ "$ours" != "$theirs" ]; then
    echo "this machine has Qt $ours, the sysroot $theirs" >&2
    exit 77
fi
rm -rf "usr/lib/qt5/bin"
ln -s "$host_tools" usr/lib/qt5/bin

echo "$stamp" >.complete
rm -rf "$sysroot"
mv "$sysroot.new" "$sysroot"
