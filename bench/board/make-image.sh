#!/bin/bash
# Makes the emulated board: a kernel with what it starts with, and a disk with Debian's
# armel packages and the tool's own. Needs neither root nor user namespaces: what has
# to run on ARM runs in the emulator itself.
#   make-image.sh [--package FILE]      FILE instead of the package of this source tree
#   make-image.sh --where [--package FILE]    only says which folder it is made in
#   make-image.sh --clear [--package FILE]    only removes what that one does not need,
#                                             as is done when one has been made
# It is kept in $MFTOOL_CACHE, by default ~/.cache/mftool, in folders named by a sum over
# what they were made from:
#   kernel-SUM  vmlinuz, initrd       Debian's kernel for armhf, its modules, ours, the agent
#   base-SUM    disk.qcow2            systemd and all that the tool's package depends on
#   sysv-SUM    packages              SysV init, for a board without systemd
#   board-SUM   disk.qcow2, kernel    the tool's package and what else a keypad has
# Exit code 77: something is missing here, for the reason given.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)
cache=${MFTOOL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/mftool}
export PATH=$PATH:/usr/sbin:/sbin

cross=arm-linux-gnueabi-

package=
task="make"
while [ $# -gt 0 ]; do
    case $1 in
    --package)
        package=$(realpath "${2:?--package wants a file}")
        shift
        ;;
    --where | --clear) task=${1#--} ;;
    *)
        echo "usage: $0 [--where | --clear] [--package FILE]" >&2
        exit 2
        ;;
    esac
    shift
done

# The names of files and what is in them; files come and go by their folder.
sum() {
    (cd "$source" && find "$@" -type f -print0 | sort -z | xargs -0 sha256sum) |
        sha256sum | cut -c 1-16
}

# shellcheck disable=SC2034,SC2154  # the parts and this script know each other's variables
for part in common kernel base tool clear; do
    # shellcheck source=/dev/null
    . "$here/image/$part.sh"
done

image=bench/board/image
guest=bench/board/guest
kernel_dir=$cache/kernel-$(sum $image/common.sh $image/kernel.sh bench/board/module $guest)
base_dir=$cache/base-$(echo "$(tool_depends) $(sum $image/common.sh $image/base.sh $guest/install-base.sh)" |
    sha256sum | cut -c 1-16)
sysv_dir=$cache/sysv-$(echo "$sysv_packages" | sha256sum | cut -c 1-16)
if [ -n "$package" ]; then
    [ -r "$package" ] || { echo "there is no $package" >&2; exit 2; }
    tool_sum=$(sha256sum "$package" | cut -c 1-16)
else
    # All that the package is made from, apart from the list of changes.
    tool_sum=$(sum app calibration cmake compat flash hardware packaging protocol resources serial CMakeLists.txt)
fi
board_sum=$(echo "$kernel_dir $base_dir $tool_sum $(sum $image/tool.sh tests/captures)" | sha256sum | cut -c 1-16)
board_dir=$cache/board-$board_sum

if [ "$task" = where ]; then
    echo "$board_dir"
    exit 0
fi
if [ "$task" = clear ]; then
    [ -d "$cache" ] || exit 0
    exec 9>"$cache/lock"
    if ! flock -n 9; then
        echo "a board is being made there" >&2
        exit 1
    fi
    clear_others
    exit 0
fi
if [ -e "$board_dir/complete" ]; then
    exit 0
fi

lack=
for program in qemu-system-arm qemu-img ${cross}g++ mkfs.ubifs ubinize mke2fs modprobe cpio make ar; do
    command -v "$program" >/dev/null || lack="$lack $program"
done
# shellcheck disable=SC2154  # the part common says it
if [ -n "$lack" ] || [ ! -r "$keyring" ]; then
    echo "not installed:$lack; scripts/install-packages.sh build board" >&2
    exit 77
fi

mkdir -p "$cache"
exec 9>"$cache/lock"
if ! flock -n 9; then
    echo "Another one is at it: waiting"
    flock 9
    [ ! -e "$board_dir/complete" ] || exit 0
fi
work=$cache/making
rm -rf "$work"
needed=600 # MB
[ -e "$base_dir/complete" ] || needed=3000
free=$(($(df -k --output=avail "$cache" | tail -n 1) / 1000))
if [ $free -lt $needed ]; then
    echo "there are $free MB free in $cache, and it takes $needed" >&2
    exit 77
fi
mkdir -p "$work"
log=$cache/make-image.log
: >"$log"

# step NAME FUNCTION: what it prints goes to the log; a failure ends it all.
step() {
    local begin=$SECONDS status=0 next=15
    echo "== $1" >>"$log"
    printf '%s ...' "$1"
    (set -e; "$2") >>"$log" 2>&1 9>&- &
    while kill -0 $! 2>/dev/null; do
        sleep 0.5
        if [ $((SECONDS - begin)) -ge $next ]; then
            printf ' %d s' $((SECONDS - begin))
            next=$((next + 15))
        fi
    done
    wait $! || status=$?
    if [ $status = 77 ]; then
        echo " not possible here"
        tail -n 1 "$log" >&2
        exit 77
    elif [ $status != 0 ]; then
        echo " FAILED"
        tail -n 5 "$log" >&2
        echo "The whole log: $log" >&2
        exit 1
    fi
    echo " done, $((SECONDS - begin)) s"
}

# finish FOLDER: what has been made in $work becomes FOLDER.
finish() {
    touch "$work/new/complete"
    rm -rf "$1"
    mv "$work/new" "$1"
}

if [ ! -e "$kernel_dir/complete" ]; then
    step "Fetching the kernel" fetch_kernel
    step "Building the board's module" build_module
    step "Building what the kernel starts with" build_initrd
    finish "$kernel_dir"
    rm -rf "$work/apt"
fi
if [ ! -e "$base_dir/complete" ]; then
    step "Fetching Debian" fetch_base
    step "Unpacking Debian" unpack_base
    step "Installing Debian on the board" install_base
    step "Packing the disk" pack_base
    finish "$base_dir"
fi
if [ ! -e "$sysv_dir/complete" ]; then
    step "Fetching SysV init" fetch_sysv
    finish "$sysv_dir"
fi
[ -n "$package" ] || step "Building the tool's package" build_package
step "Gathering the board's files" gather_files
step "Installing the tool on the board" install_tool
finish "$board_dir"
rm -rf "$work"
clear_others
