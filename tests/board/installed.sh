#!/bin/sh
# Installs the package in a clean Debian that has just what it depends on, looks
# at what is set up, runs the tool by its init script in a conversation with a
# test station, and removes the package again: nothing must be left. The package
# of another machine is installed and removed only.
#   installed.sh BUILDDIR CACHEDIR
# CACHEDIR keeps the clean Debian for the next time. Exit code 77: not possible
# here, for the reason given.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
build=$1
cache=$2
path=/usr/sbin:/usr/bin:/sbin:/bin
python=${MFTOOL_PYTHON:-/usr/bin/python3}
mirror=${MFTOOL_MIRROR:-http://deb.debian.org/debian}
dependencies=fonts-dejavu-core,libqt5core5a,libqt5gui5,libqt5widgets5,libts0
packages=$dependencies,systemd,udev,init-system-helpers

skip() {
    echo "SKIPPED: $1"
    exit 77
}

fail() {
    echo "FAILED: $1" >&2
    exit 1
}

if [ "${MFTOOL_OWN_MOUNTS:-}" != yes ]; then
    [ "$(id -u)" = 0 ] || skip "only root can install a package"
    [ -x "$python" ] || skip "there is no $python"
    command -v mmdebstrap >/dev/null || skip "mmdebstrap is not installed"
    unshare --mount --pid --fork true 2>/dev/null || skip "no namespaces of one's own to be had"
    # Whatever is started in there ends with this run, and so do the mounts.
    MFTOOL_OWN_MOUNTS=yes exec unshare --mount --pid --fork --kill-child "$0" "$@"
fi

work=$(mktemp -d)
trap 'cd /; umount -l "$work"; rmdir "$work"' EXIT
mount -t tmpfs none "$work"
root=$work/root
mkdir "$root" "$work/package"

# The mirror's state may change, the packages' names rarely.
clean=$cache/clean-$(echo "$packages" | cksum | cut -d' ' -f1).tar
if [ ! -f "$clean" ]; then
    mkdir -p "$cache"
    timeout 480 mmdebstrap --quiet --mode=root --variant=apt --format=tar --include="$packages" \
        bookworm "$clean.new" "deb $mirror bookworm main" ||
        skip "Debian's packages cannot be had from $mirror, or not in time"
    mv "$clean.new" "$clean"
fi
tar -x -f "$clean" -C "$root"
cat >"$root/etc/inittab" <<'END'
id:2:initdefault:
1:2345:respawn:/sbin/getty 38400 tty1
#T9:23:respawn:/sbin/getty -L ttySP0 9600 vt100
T0:23:respawn:/sbin/getty -L ttySP0 115200 vt100
END

(cd "$build" && cpack -B "$work/package" >/dev/null)
cp "$work"/package/*.deb "$root/mftool.deb"
architecture=$(dpkg-deb -f "$root/mftool.deb" Architecture)
ours=$(dpkg --print-architecture)
cp "$build/tests/fakefb.so" "$root/"
mount -t proc none "$root/proc"
mkdir -p "$root/dev/pts"
mount --bind /dev/pts "$root/dev/pts"

# Everything in the root folder but what the package manager, systemd's tools and
# the font library write for themselves.
inventory() {
    (cd "$root" && find . \( -path ./proc -o -path ./dev -o -path ./sys -o -path ./mftool.deb \
        -o -path './var/lib/dpkg/*-old' -o -path './var/lib/dpkg/lock*' \
        -o -path ./var/lib/dpkg/available -o -path ./var/log/dpkg.log \
        -o -path ./run/systemd -o -path ./var/cache/fontconfig \) -prune \
        -o -type f -exec cksum {} + -o -type l -printf '%p -> %l\n' -o -printf '%y %m %p\n' | sort)
}

holds() {
    grep -qE -e "$2" "$root$1" || fail "no line like $2 in $1"
}

in_root() {
    env -i PATH=$path HOME=/root chroot "$root" "$@"
}

run_by_init() {
    echo "== run by the init script"
    mkdir -p "$root/dev/input" "$root/etc/default"
    cat >"$root/etc/default/mftool" <<'END'
LD_PRELOAD=/fakefb.so
MFTOOL_OPTIONS="-b 38400 -n"
END
    "$python" "$here/conversation.py" "$root" \
        env -i PATH=$path HOME=/root chroot "$root" /etc/init.d/mftool start
    tries=600
    while in_root /etc/init.d/mftool status >/dev/null; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || fail "the tool has not ended, or was started again"
        sleep 0.1
    done
    log=/var/log/mftool.log
    holds $log '^20[0-9-]+ [0-9:.]+ debug: Using baud rate 38400$'
    holds $log '^20[0-9-]+ [0-9:.]+ debug: Got_newsocket: 7E000A60011402797F$'
}

stop_by_init() {
    echo "== stopped by the init script"
    # A line on which nobody speaks.
    rm -f "$root/dev/ttySP0"
    "$python" -c '
import os, pty, sys, time
near, far = pty.openpty()
os.symlink(os.ttyname(far), sys.argv[1])
time.sleep(600)' "$root/dev/ttySP0" &
    silent=$!
    while [ ! -e "$root/dev/ttySP0" ]; do
        sleep 0.1
    done
    in_root /etc/init.d/mftool start
    in_root /etc/init.d/mftool status
    in_root /etc/init.d/mftool stop
    if in_root /etc/init.d/mftool status; then
        fail "the tool runs on"
    fi
    kill "$silent"
    [ -f "$root$log.1" ] || fail "the log of the run before is lost"
}

run_as_by_systemd() {
    echo "== run as by systemd"
    "$python" "$here/conversation.py" "$root" \
        env -i JOURNAL_STREAM=1:2 PATH=$path HOME=/root chroot "$root" /usr/lib/mftool/start \
        2>"$work/journal"
    grep -q '^<7>debug: Got_newsocket: 7E000A60011402797F$' "$work/journal" ||
        fail "a debug line without its severity"
}

# A dpkg run that changes nothing writes its own files in its own manner first.
in_root dpkg --clear-selections
# The libraries of another machine are not there: only what the package itself does.
force=
if [ "$architecture" != "$ours" ]; then
    in_root dpkg --add-architecture "$architecture"
    force=--force-depends
fi
inventory >"$work/before"

echo "== install"
# shellcheck disable=SC2086  # an option, or none
in_root dpkg -i $force /mftool.deb
in_root dpkg --verify mftool
[ -n "$(find "$root/etc/rc2.d" -name 'S??mftool')" ] || fail "not started in runlevel 2"
[ "$(grep -c '^T0.*ttySP0' "$root/etc/inittab")" = 0 ] || fail "init still has a login on the line"
holds /etc/inittab '^1:2345:respawn:/sbin/getty 38400 tty1$'
[ "$(in_root systemctl is-enabled serial-getty@ttySP0.service || true)" = masked ] ||
    fail "systemd may still have a login on the line"
in_root systemd-analyze verify --man=no mftool.service || fail "systemd does not understand the unit"
[ -e "$root/lib/systemd/system/dev-ttySP0.device.wants/mftool.service" ] ||
    fail "the serial line does not start the unit"
zcat "$root/usr/share/man/man1/mftool.1.gz" | grep -q '^.TH MFTOOL 1' || fail "no manual page"

if [ "$architecture" = "$ours" ]; then
    run_by_init
    stop_by_init
    run_as_by_systemd
    rm -r "$root/usr/lib/panel" "$root/etc/default/mftool"
else
    echo "== not run: this machine is no $architecture"
fi

echo "== remove"
in_root dpkg --remove mftool
inventory >"$work/after"
diff "$work/before" "$work/after" || fail "the package leaves something behind"
in_root dpkg-query -W mftool 2>/dev/null && fail "the package is not quite gone"
echo "== all as it should be"
