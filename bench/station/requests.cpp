#include "bench/station/requests.h"

#include "bench/station/escape.h"
#include "bench/station/messages.h"

#include <algorithm>
#include <iterator>

namespace wire
{

namespace
{

QString latin(const char *text)
{
    return QString::fromLatin1(text);
}

struct Command;
using Words = QStringList;
using Build = std::optional<Frame> (*)(const Command &command, const Words &arguments,
                                       QString *error);

struct Command {
    const char *name;
    quint16 type;
    int fewest; ///< arguments
    int most;
    Build build;
    const char *arguments;
    const char *help;
};

Frame frameOf(quint16 type, const QByteArray &data)
{
    Frame frame;
    frame.type = type;
    frame.data = data;
    return frame;
}

QByteArray hexByte(int value)
{
    return QByteArray::number(value, 16).rightJustified(2, '0').toUpper();
}

/// A number from 0 to 255, as two digits.
std::optional<QByteArray> byteOf(const QString &word, int base, QString *error)
{
    bool isNumber = false;
    const int value = word.toInt(&isNumber, base);
    if (isNumber && value >= 0 && value <= 0xFF)
        return hexByte(value);
    *error = base == 16 ? QStringLiteral("\"%1\" is no hexadecimal number from 00 to FF").arg(word)
                        : QStringLiteral("\"%1\" is no number from 0 to 255").arg(word);
    return std::nullopt;
}

std::optional<QByteArray> switchOf(const QString &word, QString *error)
{
    if (word == QLatin1String("on") || word == QLatin1String("1"))
        return QByteArray("01");
    if (word == QLatin1String("off") || word == QLatin1String("0"))
        return QByteArray("00");
    *error = QStringLiteral("\"%1\" is neither on nor off").arg(word);
    return std::nullopt;
}

std::optional<QByteArray> textOf(const Words &words, QString *error)
{
    const std::optional<QByteArray> text = unescaped(words.join(QLatin1Char(' ')).toUtf8());
    if (!text)
        *error = QStringLiteral("unknown escape; known are \\r \\n \\t \\\\ \\\" \\xHH");
    return text;
}

std::optional<Frame> framed(quint16 type, const QByteArray &before,
                            const std::optional<QByteArray> &data,
                            const QByteArray &after = QByteArray())
{
    if (!data)
        return std::nullopt;
    return frameOf(type, before + *data + after);
}

std::optional<Frame> buildFixed(const Command &command, const Words &, QString *)
{
    return frameOf(command.type, QByteArray());
}

std::optional<Frame> buildVersion(const Command &command, const Words &, QString *)
{
    return frameOf(command.type, "01");
}

std::optional<Frame> buildBacklight(const Command &command, const Words &arguments, QString *error)
{
    return framed(command.type, "00", byteOf(arguments.at(0), 10, error));
}

std::optional<Frame> buildBias(const Command &command, const Words &arguments, QString *error)
{
    return framed(command.type, "01", switchOf(arguments.at(0), error));
}

std::optional<Frame> buildLeds(const Command &command, const Words &arguments, QString *error)
{
    return framed(command.type, "00", byteOf(arguments.at(0), 16, error), "0000000000");
}

std::optional<Frame> buildBuzzer(const Command &command, const Words &arguments, QString *error)
{
    if (arguments.at(0) == QLatin1String("off"))
        return frameOf(command.type, "0000");
    return framed(command.type, "80", byteOf(arguments.at(0), 10, error));
}

std::optional<Frame> buildByte(const Command &command, const Words &arguments, QString *error)
{
    return framed(command.type, QByteArray(), byteOf(arguments.at(0), 10, error));
}

std::optional<Frame> buildSdRead(const Command &command, const Words &arguments, QString *error)
{
    const std::optional<QByteArray> timeout = byteOf(arguments.at(0), 10, error);
    if (!timeout)
        return std::nullopt;
    return framed(command.type, "01" + *timeout, byteOf(arguments.at(1), 10, error));
}

std::optional<Frame> buildSwitch(const Command &command, const Words &arguments, QString *error)
{
    return framed(command.type, QByteArray(), switchOf(arguments.at(0), error));
}

std::optional<Frame> buildText(const Command &command, const Words &arguments, QString *error)
{
    return framed(command.type, QByteArray(), textOf(arguments, error));
}

std::optional<Frame> buildSend(const Command &, const Words &arguments, QString *error)
{
    bool isNumber = false;
    const uint type = arguments.at(0).toUInt(&isNumber, 16);
    if (!isNumber || type > 0xFFFF) {
        *error = QStringLiteral("\"%1\" is no message type of up to four hexadecimal digits")
                     .arg(arguments.at(0));
        return std::nullopt;
    }
    return framed(static_cast<quint16>(type), QByteArray(), textOf(arguments.mid(1), error));
}

const int Any = 1000;

const Command Commands[] = {
    {"exit", ExitRequest, 0, 0, buildFixed, "", "end the test and the tool"},
    {"echo", EchoRequest, 0, Any, buildText, "[TEXT]", "have TEXT sent back"},
    {"version", VersionRequest, 0, 0, buildVersion, "", "firmware version"},
    {"backlight", LightRequest, 1, 1, buildBacklight, "LEVEL", "LCD backlight, 0 to 255"},
    {"bias", LightRequest, 1, 1, buildBias, "on|off", "LCD bias power"},
    {"leds", LedsRequest, 1, 1, buildLeds, "MASK",
     "status LEDs, hexadecimal: 1 ready, 2 armed, 4 trouble, 8 ac"},
    {"buzzer", BuzzerRequest, 1, 1, buildBuzzer, "LEVEL|off", "buzzer, 0 to 255"},
    {"sdread", SdReadRequest, 2, 2, buildSdRead, "TIMEOUT PORT",
     "write to the SD card and read back; both numbers come back unused"},
    {"pattern", PatternRequest, 1, Any, buildText, "NAME", "full-screen test image"},
    {"pattern-clear", PatternRequest, 0, 0, buildFixed, "", "remove the test image"},
    {"home-led", HomeLedRequest, 1, 1, buildByte, "PERCENT", "LED of the home button"},
    {"calibrate", CalibrateRequest, 1, 1, buildSwitch, "on|off",
     "open the touchscreen calibration; close and store it"},
    {"touch-test", TouchTestRequest, 1, 1, buildSwitch, "on|off", "report touches"},
    {"passthrough", PassthroughRequest, 1, 1, buildSwitch, "on|off", "relay to the QB740 module"},
    {"relay", RelayRequest, 0, Any, buildText, "[TEXT]", "send a line to the QB740 module"},
    {"flash", FlashRequest, 0, Any, buildText, "[DIR]",
     "program the NAND from DIR, or from the newest directory"},
    {"flash-query", FlashQueryRequest, 0, 0, buildFixed, "", "stage and percentage of the flash"},
    {"mount", MountRequest, 0, 0, buildFixed, "", "mount the programmed file system"},
    {"buttons", ButtonsRequest, 0, 0, buildFixed, "", "home button and tamper switch"},
    {"voltage", VoltageRequest, 0, 0, buildFixed, "", "alarm bus supply voltage"},
    {"send", 0, 1, Any, buildSend, "TYPE [DATA]", "any type, in hexadecimal, with any data"},
};

/// Other names a person may try.
const struct {
    const char *alias;
    const char *name;
} Aliases[] = {
    {"led", "leds"},
    {"homeled", "home-led"},
    {"sd-read", "sdread"},
    {"image", "pattern"},
    {"clear", "pattern-clear"},
    {"touchtest", "touch-test"},
    {"flashquery", "flash-query"},
    {"quit", "exit"},
};

const Command *commandOf(QString word)
{
    word = word.toLower();
    for (const auto &row : Aliases) {
        if (word == QLatin1String(row.alias))
            word = QLatin1String(row.name);
    }
    const auto row = std::find_if(std::begin(Commands), std::end(Commands),
                                  [&](const Command &c) { return word == QLatin1String(c.name); });
    return row == std::end(Commands) ? nullptr : row;
}

QString usageOf(const Command &command)
{
    return QStringLiteral("%1 %2").arg(latin(command.name), latin(command.arguments)).trimmed();
}

} // namespace

std::optional<Frame> parseRequest(const QStringList &words, QString *error)
{
    const Command *command = words.isEmpty() ? nullptr : commandOf(words.first());
    if (!command) {
        *error = QStringLiteral("unknown request \"%1\"").arg(words.value(0));
        return std::nullopt;
    }
    QStringList arguments = words.mid(1);
    if (command->most < Any) // of a text its blanks count
        arguments.removeAll(QString());
    if (arguments.size() < command->fewest || arguments.size() > command->most) {
        *error = QStringLiteral("usage: %1").arg(usageOf(*command));
        return std::nullopt;
    }
    const std::optional<Frame> frame = command->build(*command, arguments, error);
    if (!frame)
        *error = QStringLiteral("%1: %2").arg(latin(command->name), *error);
    return frame;
}

bool isRequestName(const QString &word)
{
    return commandOf(word) != nullptr;
}

QString requestHelp()
{
    QString help;
    for (const Command &command : Commands) {
        const QString number = command.type == 0 ? QString() : typeNumber(command.type);
        help += QStringLiteral("  %1 %2  %3\n")
                    .arg(usageOf(command).leftJustified(21), number.leftJustified(4),
                         latin(command.help));
    }
    return help;
}

} // namespace wire
