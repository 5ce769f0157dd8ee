# shellcheck shell=bash disable=SC2034,SC2154
# What the makers of the kernel and of the disks share; read by make-image.sh.

mirror=${MFTOOL_MIRROR:-http://deb.debian.org/debian}
keyring=/usr/share/keyrings/debian-archive-keyring.gpg

# An apt of its own, which knows nothing of what this machine has installed.
# prepare_apt FOLDER ARCHITECTURE...
prepare_apt() {
    local folder=$1
    shift
    mkdir -p "$folder"/{etc/apt.conf.d,etc/preferences.d,lists/partial,archives/partial}
    : >"$folder/status"
    echo "deb [signed-by=$keyring] $mirror bookworm main" >"$folder/etc/sources.list"
    {
        echo "Dir::Etc \"$folder/etc\";"
        echo "Dir::Etc::sourcelist \"$folder/etc/sources.list\";"
        echo "Dir::Etc::sourceparts \"-\";"
        echo "Dir::State \"$folder\";"
        echo "Dir::State::status \"$folder/status\";"
        echo "Dir::State::lists \"$folder/lists\";"
        echo "Dir::Cache \"$folder\";"
        echo "Dir::Cache::archives \"$folder/archives\";"
        echo "APT::Architecture \"$1\";"
        printf 'APT::Architectures { '
        printf '"%s"; ' "$@"
        echo '};'
        echo 'APT::Sandbox::User "";'
        echo 'Acquire::Languages "none";'
        echo 'Acquire::Retries "3";'
    } >"$folder/apt.conf"
    APT_CONFIG=$folder/apt.conf apt-get update -q -o APT::Update::Error-Mode=any || {
        echo "the packages cannot be had from $mirror"
        exit 77
    }
}

# emulate DISK FORMAT SECOND_DISK PROGRAM: starts the board with PROGRAM, which ends it.
emulate() {
    local console=$work/console.log self=$BASHPID
    : >"$console"
    tail -f --pid="$self" "$console" & # ends with this shell
    timeout 3600 qemu-system-arm -M virt,highmem=off -cpu cortex-a15 -m 512 -nodefaults -no-reboot \
        -display none -serial "file:$console" \
        -kernel "$kernel_dir/vmlinuz" -initrd "$kernel_dir/initrd" \
        -append "console=ttyAMA0 quiet panic=-1 keypad.run=$4" \
        -drive "file=$1,format=$2,if=none,id=disk,cache=unsafe" -device virtio-blk-pci,drive=disk \
        -drive "file=$3,format=raw,if=none,id=second,readonly=on" -device virtio-blk-pci,drive=second \
        -device virtio-rng-pci
    grep -q '^keypad: installed' "$console"
}
