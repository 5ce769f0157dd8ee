# shellcheck shell=bash disable=SC2154  # read by make-image.sh
# The tool's package and what else a keypad has.

# The NAND's file system: pages of 2 KiB, blocks of 128 KiB, as guest/modules sets it.
page=2048
block=128KiB
logical_block=129024

# Another init to put in the place of systemd's.
sysv_packages="sysvinit-core initscripts sysv-rc insserv startpar"

fetch_sysv() {
    prepare_apt "$work/apt" armel
    mkdir -p "$work/new"
    # shellcheck disable=SC2086  # a list of names
    (cd "$work/new" && APT_CONFIG=$work/apt/apt.conf apt-get download -q $sysv_packages)
}

build_package() {
    "$source/packaging/make-armel-sysroot.sh"
    cd "$source" || exit
    cmake --preset armel -B build-board -DBUILD_TESTING=OFF
    cmake --build build-board
    rm -f build-board/*.deb
    (cd build-board && cpack)
    package=$(echo "$source"/build-board/*.deb)
    cp "$package" "$work/"
}

# What a keypad has beside the tool's package.
gather_files() {
    local files=$work/second/files firmware=$work/firmware
    mkdir -p "$files"/{boot/fw-1.2,usr/sbin,usr/lib/panel,usr/share/keypad/sysv,media/mmcblk0p1} "$firmware"/{etc,usr/lib/panel}
    [ -z "$package" ] || cp "$package" "$work/"
    cp "$work"/*.deb "$work/second/"
    cp "$work"/*.deb "$files/usr/share/keypad/"
    cp "$here/guest/kobs-ng" "$files/usr/sbin/"
    cp "$sysv_dir"/*.deb "$files/usr/share/keypad/sysv/"
    cp "$source"/tests/captures/kobs-ng-* "$files/usr/share/keypad/"
    echo "20140101 1.2" >"$files/usr/lib/panel/version"
    echo "20140202 2.7" >"$firmware/usr/lib/panel/version"
    # Something that is not compressed away.
    head -c 3000000 /dev/urandom >"$firmware/usr/lib/panel/data"
    mkfs.ubifs -r "$firmware" -m $page -e $logical_block -c 900 -U -o "$work/rootfs.ubifs"
    printf '[rootfs]\nmode=ubi\nimage=%s\nvol_id=0\nvol_type=dynamic\nvol_name=rootfs\nvol_flags=autoresize\n' \
        "$work/rootfs.ubifs" >"$work/ubinize.ini"
    ubinize -o "$files/boot/fw-1.2/qm8velrootfs.ubi" -m $page -p $block -s 512 "$work/ubinize.ini"
    head -c 400000 /dev/zero >"$files/boot/fw-1.2/imx28_ivt_linux.sb"
    mke2fs -q -t ext2 "$files/usr/share/keypad/card.img" 4M
    head -c 4M /dev/zero >"$files/usr/share/keypad/blank.img"
    mke2fs -q -t ext4 -d "$work/second" -E root_owner=0:0 "$work/second.raw" 64M
}

install_tool() {
    mkdir -p "$work/new"
    qemu-img create -q -f qcow2 -F qcow2 -b "$base_dir/disk.qcow2" "$work/new/disk.qcow2"
    emulate "$work/new/disk.qcow2" qcow2 "$work/second.raw" /run/keypad/install-tool.sh
    ln -s "$kernel_dir" "$work/new/kernel"
    ln -s "$base_dir" "$work/new/base"
}
