#include "bench/line/vmfault.h"

#include <algorithm>
#include <iterator>

namespace
{

const char unknown[] = "it is not known on an emulated board";

const VmFault faults[] = {
    {"led-missing", "echo -trouble >/sys/devices/platform/keypad-board/led", nullptr, nullptr},
    {"backlight-dead", "echo dead >/sys/devices/platform/keypad-board/light", nullptr, nullptr},
    {"picture-missing", "rm /home/default/grey.png", nullptr, nullptr},
    // Only another kernel would read other bytes than were written, so here the card
    // holds nothing that can be mounted.
    {"card-unreadable", "cp /usr/share/keypad/blank.img /usr/share/keypad/card.img", nullptr,
     nullptr},
    {"home-sticks", nullptr, nullptr, nullptr},
    {"tamper-dead", "echo dead >/sys/devices/platform/keypad-board/tamper", nullptr, nullptr},
    {"voltage-low", "echo 8720 >/sys/devices/platform/keypad-board/voltage", nullptr, nullptr},
    {"flash-fails", "truncate -s -1000 /boot/fw-1.2/qm8velrootfs.ubi", nullptr, nullptr},
    {"flash-crashes", "printf '#!/bin/sh\\nkill -SEGV $$\\n' >/usr/sbin/kobs-ng", nullptr, nullptr},
    {"flash-hangs", nullptr, nullptr, "the board flashes with the real ubiformat, which does not"},
    // The volume's first block holds the file system's superblock. It is the third of the
    // image, behind two of UBI's own, and begins after the page of its headers.
    {"mount-fails",
     "dd if=/dev/zero of=/boot/fw-1.2/qm8velrootfs.ubi bs=2048 seek=129 count=2 conv=notrunc",
     nullptr, nullptr},
    {"silent", nullptr, nullptr, "the board's own systemd starts the tool"},
    {"hangs", nullptr, "systemctl kill --signal=STOP mftool", nullptr},
    {"dies", nullptr, "systemctl kill --signal=KILL mftool", nullptr},
    {"babbles", nullptr, nullptr, "the board's own systemd starts the tool"},
};

const VmFault none = {"", nullptr, nullptr, unknown};

} // namespace

const VmFault &VmFault::byName(const QString &name)
{
    const auto found =
        std::find_if(std::begin(faults), std::end(faults),
                     [&name](const VmFault &fault) { return name == QLatin1String(fault.name); });
    return found == std::end(faults) ? none : *found;
}
