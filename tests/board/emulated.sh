#!/bin/sh
# The armel package's tool, unpacked into a copy of the sysroot and run there by
# qemu as the board's CPU would, in a conversation with a test station.
#   emulated.sh SYSROOT BUILDDIR [measure.py]
# With measure.py the conversation ends with what the tool takes on the board.
# Exit code 77: not possible here, for the reason given.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
sysroot=$1
build=$2
station=$here/${3:-conversation.py}
python=${MFTOOL_PYTHON:-/usr/bin/python3}

skip() {
    echo "SKIPPED: $1"
    exit 77
}

# Mounts are seen by this run alone, and gone with it.
if [ "${MFTOOL_OWN_MOUNTS:-}" != yes ]; then
    command -v qemu-arm-static >/dev/null || skip "qemu-arm-static is not installed"
    [ -x "$python" ] || skip "there is no $python"
    map=
    [ "$(id -u)" = 0 ] || map=--map-root-user
    unshare --mount $map true 2>/dev/null || skip "no mount namespace of one's own to be had"
    MFTOOL_OWN_MOUNTS=yes exec unshare --mount $map "$0" "$@"
fi

work=$(mktemp -d)
trap 'cd /; umount -l "$work"; rmdir "$work"' EXIT
mount -t tmpfs none "$work"
mkdir "$work/upper" "$work/scratch" "$work/root" "$work/package"
root=$work/root
mount -t overlay -o "lowerdir=$sysroot,upperdir=$work/upper,workdir=$work/scratch" none "$root" ||
    skip "overlayfs cannot be had"

(cd "$build" && cpack -B "$work/package" >/dev/null)
package=$(echo "$work"/package/*.deb)
[ "$(dpkg-deb -f "$package" Architecture)" = armel ]
dpkg-deb -x "$package" "$root"

mkdir -p "$root/dev/pts" "$root/proc" "$root/tmp" "$root/sys"
mount --bind /dev/pts "$root/dev/pts"
mount --rbind /proc "$root/proc"
cp "$(command -v qemu-arm-static)" "$root/usr/bin/"
cp "$build/tests/nopidfd.so" "$build/tests/fakefb.so" "$root/"

# By itself the emulated shell could not start an emulated program, so that the
# start script's part is done here.
"$python" "$station" "$root" \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
    QT_QPA_FB_HIDECURSOR=1 QT_QPA_FB_DISABLE_INPUT=1 \
    chroot "$root" /usr/bin/qemu-arm-static -cpu arm926 -B 0x100000000 \
    -E LD_PRELOAD=/nopidfd.so:/fakefb.so \
    /usr/bin/mftool -platform linuxfb:fb=/dev/fb0
