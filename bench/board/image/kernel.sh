# shellcheck shell=bash disable=SC2154  # read by make-image.sh
# The kernel, its modules and the board's own, and what the kernel starts with.

kernel=linux-image-armmp
headers=linux-headers-armmp

# The one package of the metapackage's dependencies that begins like it.
versioned() {
    apt-cache depends "$1" | sed -n 's/^ *Depends: *\(linux-[a-z]*-[0-9].*\)/\1/p' | head -n 1
}

fetch_kernel() {
    local own
    own=$(dpkg --print-architecture)
    prepare_apt "$work/apt" armhf "$own"
    export APT_CONFIG=$work/apt/apt.conf
    local image head common kbuild
    image=$(versioned $kernel)
    head=$(versioned $headers)
    common=$(apt-cache depends "$head" | sed -n 's/^ *Depends: *\(linux-headers-.*-common\)$/\1/p')
    kbuild=$(apt-cache depends "$head" | sed -n 's/^ *Depends: *\(linux-kbuild-[0-9.]*\)$/\1/p')
    mkdir -p "$work/debs" "$work/kernel"
    (cd "$work/debs" && apt-get download -q "$image:armhf" "$head:armhf" "$common" "$kbuild:$own")
    for deb in "$work"/debs/*.deb; do
        dpkg-deb -x "$deb" "$work/kernel"
    done
    echo "${image#linux-image-}" >"$work/version"
}

build_module() {
    local version tree
    version=$(cat "$work/version")
    tree=$work/kernel/usr/src/linux-headers-$version
    sed -i "s,/usr/src,$work/kernel/usr/src,g" "$tree/Makefile"
    mkdir "$work/module"
    cp "$here"/module/* "$work/module"
    make -C "$tree" M="$work/module" ARCH=arm CROSS_COMPILE="$cross" modules
    cp "$work/module/keypad_board.ko" "$work/kernel/lib/modules/$version/kernel/"
    depmod -b "$work/kernel" "$version"
}

# The first thing that the kernel starts is the agent.
build_initrd() {
    local version root=$work/initrd
    version=$(cat "$work/version")
    mkdir -p "$root/modules" "$root/dev" "$work/new"
    "${cross}g++" -std=c++17 -O2 -Wall -Wextra -static -s -o "$root/init" "$here/guest/agent.cpp"
    cp "$here/guest/70-keypad.rules" "$here"/guest/install-*.sh "$root/"
    local name parameters file
    grep -v '^#' "$here/guest/modules" | while read -r name parameters; do
        modprobe -d "$work/kernel" -S "$version" --show-depends "$name" | while read -r kind file _; do
            [ "$kind" = insmod ] || continue # what is part of the kernel
            cp "$file" "$root/modules/"
            echo "$(basename "$file" .ko) $parameters"
        done
    done | awk '!seen[$1]++' >"$root/modules/order"
    # Parameters are the module's own, not those of what it depends on.
    grep -v '^#' "$here/guest/modules" | while read -r name parameters; do
        sed -i "s,^$name .*,$name $parameters," "$root/modules/order"
    done
    (cd "$root" && find . | cpio -o -H newc --owner 0:0 | gzip -1) >"$work/new/initrd"
    cp "$work/kernel/boot/vmlinuz-$version" "$work/new/vmlinuz"
}
