#!/bin/sh
# Runs in the emulated board, in the place of its init: installs the tool's package from
# the second disk, and what else a keypad has.
export DEBIAN_FRONTEND=noninteractive LC_ALL=C HOME=/root
set -e

mount -t ext4 -o ro /dev/vdb /mnt
apt-get install -q -y --no-install-recommends /mnt/*.deb
cp -r --preserve=mode,timestamps /mnt/files/. /
umount /mnt

echo "keypad: installed"
