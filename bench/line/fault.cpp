#include "bench/line/fault.h"

#include <algorithm>
#include <csignal>
#include <iterator>

namespace
{

void run(KeypadOptions *options, const char *script)
{
    options->wrapper = QStringList{QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                                   QLatin1String(script), QStringLiteral("sh")};
}

void neverAnswers(KeypadOptions *options)
{
    run(options, "kill -STOP $$; exec \"$@\"");
}

/// Damaged frames and junk for ever, slowly enough not to keep the PC busy.
void babbles(KeypadOptions *options)
{
    run(options, "while :; do echo 7E000A0004FF02957F; echo '?~7E..'; /bin/sleep 0.01; done "
                 ">/dev/ttySP0");
}

void removeLed(VirtualKeypad *keypad)
{
    keypad->removeNode(QStringLiteral("/sys/class/leds/trouble"));
}

void stayDark(VirtualKeypad *keypad)
{
    keypad->fail(QStringLiteral("/sys/class/backlight/mxs-bl/brightness"), SysfsModel::Write, EIO);
}

void failFlash(VirtualKeypad *keypad)
{
    keypad->setStandin(QStringLiteral("ubiformat"), QStringLiteral("image-truncated"));
}

void crashFlash(VirtualKeypad *keypad)
{
    keypad->setStandin(QStringLiteral("kobs-ng"), QStringLiteral("crash"));
}

void hangFlash(VirtualKeypad *keypad)
{
    keypad->setStandin(QStringLiteral("ubiformat"), QStringLiteral("hang"));
}

void failMount(VirtualKeypad *keypad)
{
    keypad->setStandin(QStringLiteral("mount"), QStringLiteral("no-volume"));
}

void lowerVoltage(VirtualKeypad *keypad)
{
    keypad->setAttribute(QStringLiteral("/sys/class/power_supply/corlink/voltage_now"), "8720\n");
}

void closeTamperForEver(VirtualKeypad *keypad)
{
    keypad->fail(QStringLiteral("/sys/class/gpio/gpio17/value"), SysfsModel::Open, EIO);
}

void losePicture(VirtualKeypad *keypad)
{
    keypad->removeFile(QStringLiteral("/home/default/grey.png"));
}

bool hang(VirtualKeypad *keypad)
{
    return keypad->kill(SIGSTOP);
}

bool die(VirtualKeypad *keypad)
{
    return keypad->kill(SIGKILL);
}

const VirtualKeypad::Card GoodCard = VirtualKeypad::Writable;

const Fault faults[] = {
    {"led-missing", "the LED \"trouble\" is not there", nullptr, removeLed, nullptr, false,
     GoodCard},
    {"backlight-dead", "the backlight takes no level", nullptr, stayDark, nullptr, false, GoodCard},
    {"picture-missing", "a test image is not there", nullptr, losePicture, nullptr, false,
     GoodCard},
    {"card-unreadable", "the SD card reads back other bytes", nullptr, nullptr, nullptr, false,
     VirtualKeypad::ReadsBackWrong},
    {"home-sticks", "the home key stays down once pressed", nullptr, nullptr, nullptr, true,
     GoodCard},
    {"tamper-dead", "the tamper switch cannot be read", nullptr, closeTamperForEver, nullptr, false,
     GoodCard},
    {"voltage-low", "the bus voltage is below its limits", nullptr, lowerVoltage, nullptr, false,
     GoodCard},
    {"flash-fails", "ubiformat finds the image truncated", nullptr, failFlash, nullptr, false,
     GoodCard},
    {"flash-crashes", "kobs-ng crashes", nullptr, crashFlash, nullptr, false, GoodCard},
    {"flash-hangs", "ubiformat stops in the middle", nullptr, hangFlash, nullptr, false, GoodCard},
    {"mount-fails", "mount finds no volume", nullptr, failMount, nullptr, false, GoodCard},
    {"silent", "the tool never answers", neverAnswers, nullptr, nullptr, false, GoodCard},
    {"hangs", "the tool stops answering", nullptr, nullptr, hang, false, GoodCard},
    {"dies", "the tool is killed", nullptr, nullptr, die, false, GoodCard},
    {"babbles", "the unit talks nonsense", babbles, nullptr, nullptr, false, GoodCard},
};

} // namespace

const Fault *Fault::byName(const QString &name)
{
    const auto found = std::find_if(std::begin(faults), std::end(faults), [&name](const Fault &f) {
        return name == QLatin1String(f.name);
    });
    return found == std::end(faults) ? nullptr : found;
}

QString Fault::help()
{
    QString help;
    for (const Fault &fault : faults)
        help += QStringLiteral("  %1 %2\n")
                    .arg(QLatin1String(fault.name), -16)
                    .arg(QLatin1String(fault.summary));
    return help;
}
