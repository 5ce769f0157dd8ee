# shellcheck shell=bash disable=SC2154  # read by make-image.sh
# The disk with Debian: all but the tool's own package.

# Beside Debian's essential packages and those that the tool's package names.
base_packages="apt systemd-sysv udev kmod mount mtd-utils usr-is-merged"

# What the tool's package depends on, without the versions.
tool_depends() {
    sed -n 's/.*CPACK_DEBIAN_PACKAGE_DEPENDS *"\(.*\)".*/\1/p; s/^ *"\(, [^"]*\)".*/\1/p' \
        "$source/packaging/CMakeLists.txt" | tr ',' '\n' | sed 's/(.*//; s/ //g' | grep -v '^$' | sort -u
}

fetch_base() {
    prepare_apt "$work/apt" armel
    # shellcheck disable=SC2046,SC2086  # lists of names
    APT_CONFIG=$work/apt/apt.conf apt-get install -q -y --no-install-recommends --download-only \
        '?essential' $base_packages $(tool_depends)
}

# The emulator would need long to unpack them: here their compression is taken away.
unpack_base() {
    local root=$work/root deb
    mkdir -p "$root" "$work/plain" "$work/member"
    for folder in bin sbin lib; do
        mkdir -p "$root/usr/$folder"
        ln -s usr/$folder "$root/$folder"
    done
    for deb in "$work"/apt/archives/*.deb; do
        (
            cd "$work/member" || exit
            ar x "$deb"
            for member in *.xz *.zst *.gz; do
                case $member in
                '*'*) ;;
                *.xz) xz -d "$member" ;;
                *.zst) zstd -q -d --rm "$member" ;;
                *.gz) gzip -d "$member" ;;
                esac
            done
            ar rc "$work/plain/$(basename "$deb")" debian-binary control.tar data.tar
            # Enough to let dpkg itself run.
            case $(dpkg-deb -f "$deb" Package)/$(dpkg-deb -f "$deb" Essential) in
            */yes | lib* | zlib1g/* | mawk/* | mount/* | base-passwd/*)
                tar -x -f data.tar -C "$root" --no-same-owner --keep-directory-symlink \
                    --exclude './usr/share/doc/*' --exclude './usr/share/man/*' \
                    --exclude './usr/share/locale/*'
                ;;
            esac
            rm -f ./*
        )
    done
    mkdir -p "$root"/{dev,proc,sys,run,tmp,mnt,root,etc/dpkg/dpkg.cfg.d,var/lib/dpkg/info,var/lib/dpkg/updates}
    chmod 1777 "$root/tmp"
    cp "$root/usr/share/base-passwd/passwd.master" "$root/etc/passwd"
    cp "$root/usr/share/base-passwd/group.master" "$root/etc/group"
    : >"$root/var/lib/dpkg/status"
    : >"$root/var/lib/dpkg/available"
    printf '%s\n' force-unsafe-io 'path-exclude=/usr/share/doc/*' 'path-exclude=/usr/share/man/*' \
        'path-exclude=/usr/share/locale/*' 'path-exclude=/usr/share/info/*' >"$root/etc/dpkg/dpkg.cfg.d/board"
    # mawk is what dpkg's alternatives would make of it.
    ln -sf mawk "$root/usr/bin/awk"
    echo keypad >"$root/etc/hostname"
    echo 4b65797061644b65797061644b657970 >"$root/etc/machine-id"
    echo '/dev/vda / ext4 noatime 0 1' >"$root/etc/fstab"
    mke2fs -q -t ext4 -d "$root" -E root_owner=0:0 "$work/disk.raw" 1536M
    mke2fs -q -t ext4 -d "$work/plain" -E root_owner=0:0 "$work/packages.raw" 700M
}

install_base() {
    emulate "$work/disk.raw" raw "$work/packages.raw" /run/keypad/install-base.sh
}

pack_base() {
    mkdir -p "$work/new"
    e2fsck -f -y "$work/disk.raw" || [ $? = 1 ]
    qemu-img convert -c -m 4 -O qcow2 -o compression_type=zstd "$work/disk.raw" "$work/new/disk.qcow2"
}
