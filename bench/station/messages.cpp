#include "bench/station/messages.h"

#include "bench/station/escape.h"

#include <algorithm>
#include <iterator>

namespace wire
{

namespace
{

const int FlashLimitMs = 15 * 60 * 1000;
const int MountLimitMs = 60 * 1000;

QString latin(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes);
}

QString shown(const QByteArray &bytes)
{
    return latin(escaped(bytes));
}

/// @name Reading fields
/// @{

/// Hexadecimal digits; -1 when there are none or one is no digit.
int hexField(const QByteArray &field)
{
    const bool plain = std::all_of(field.begin(), field.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    });
    bool isNumber = false;
    const int value = field.toInt(&isNumber, 16);
    return plain && isNumber ? value : -1;
}

/// A decimal number, which may be negative (a raw touch may be).
std::optional<int> decimalField(const QByteArray &field)
{
    const QByteArray digits = field.startsWith('-') ? field.mid(1) : field;
    const bool plain =
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    bool isNumber = false;
    const int value = field.toInt(&isNumber, 10);
    if (!plain || !isNumber)
        return std::nullopt;
    return value;
}

bool isUpperHex(const QByteArray &data)
{
    return std::all_of(data.begin(), data.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); });
}

/// Data that mean nothing; meaningOf() then shows them as they are.
Meaning complaint(const QString &why)
{
    Meaning meaning;
    meaning.complaint = why;
    return meaning;
}

Meaning wrongLength(const QByteArray &data, int wanted, const char *answer)
{
    return complaint(QStringLiteral("%1 data characters, should be %2: the keypad answers %3")
                         .arg(data.size())
                         .arg(wanted)
                         .arg(latin(answer)));
}

Meaning refused(const QString &why)
{
    return complaint(QStringLiteral("%1: the keypad answers NA").arg(why));
}

Meaning needsDigits(int count)
{
    return complaint(QStringLiteral("should be %1 upper-case hexadecimal digits").arg(count));
}

/// @}
/// @name Requests
/// @{

Meaning empty(const QByteArray &data, const QString &command)
{
    if (!data.isEmpty())
        return wrongLength(data, 0, "NAK");
    Meaning meaning;
    meaning.text = command;
    return meaning;
}

Meaning exitMeaning(const QByteArray &data)
{
    return empty(data, QStringLiteral("exit"));
}

Meaning flashQueryMeaning(const QByteArray &data)
{
    return empty(data, QStringLiteral("flash-query"));
}

Meaning mountMeaning(const QByteArray &data)
{
    return empty(data, QStringLiteral("mount"));
}

Meaning buttonsMeaning(const QByteArray &data)
{
    return empty(data, QStringLiteral("buttons"));
}

Meaning voltageMeaning(const QByteArray &data)
{
    return empty(data, QStringLiteral("voltage"));
}

Meaning versionMeaning(const QByteArray &data)
{
    if (data.size() != 2)
        return wrongLength(data, 2, "NAK");
    if (data != "01")
        return refused(QStringLiteral("should be 01"));
    Meaning meaning;
    meaning.text = QStringLiteral("version");
    return meaning;
}

/// @p value of a digit pair that the keypad reads; it takes an invalid pair for 0.
Meaning level(const QByteArray &digits, const QString &command, const QString &field, int base)
{
    const int value = std::max(hexField(digits), 0);
    Meaning meaning;
    meaning.fields[field] = value;
    meaning.text =
        command + QLatin1Char(' ') +
        (base == 16 ? QString::number(value, 16).rightJustified(2, QLatin1Char('0')).toUpper()
                    : QString::number(value));
    if (hexField(digits) < 0)
        meaning.complaint =
            QStringLiteral("\"%1\" is no hexadecimal number: the keypad takes it for 0")
                .arg(shown(digits));
    return meaning;
}

Meaning lightMeaning(const QByteArray &data)
{
    if (data.size() != 4)
        return wrongLength(data, 4, "NAK");
    if (data.startsWith("00"))
        return level(data.mid(2), QStringLiteral("backlight"), QStringLiteral("level"), 10);
    if (!data.startsWith("01"))
        return refused(QStringLiteral("should begin with 00 (backlight) or 01 (bias power)"));
    if (hexField(data.mid(2)) > 1)
        return refused(QStringLiteral("bias power is 00 or 01"));
    return level(data.mid(2), QStringLiteral("bias"), QStringLiteral("bias"), 10);
}

Meaning ledsMeaning(const QByteArray &data)
{
    if (data.size() != 14)
        return wrongLength(data, 14, "NAK");
    if (!data.startsWith("00"))
        return refused(QStringLiteral("should begin with 00"));
    return level(data.mid(2, 2), QStringLiteral("leds"), QStringLiteral("mask"), 16);
}

Meaning buzzerMeaning(const QByteArray &data)
{
    if (data.size() != 4)
        return wrongLength(data, 4, "NAK");
    if (data.startsWith("80"))
        return level(data.mid(2), QStringLiteral("buzzer"), QStringLiteral("level"), 10);
    if (!data.startsWith("00"))
        return refused(QStringLiteral("should begin with 00 (off) or 80 (on)"));
    Meaning meaning;
    meaning.text = QStringLiteral("buzzer off");
    meaning.fields[QStringLiteral("level")] = 0;
    return meaning;
}

Meaning homeLedMeaning(const QByteArray &data)
{
    if (data.size() != 2)
        return wrongLength(data, 2, "NAK");
    return level(data, QStringLiteral("home-led"), QStringLiteral("percent"), 10);
}

Meaning sdReadMeaning(const QByteArray &data)
{
    if (data.size() != 6)
        return wrongLength(data, 6, "NAK");
    if (!data.startsWith("01"))
        return refused(QStringLiteral("should begin with 01"));
    Meaning meaning =
        level(data.mid(2, 2), QStringLiteral("sdread"), QStringLiteral("timeout"), 10);
    const Meaning port = level(data.mid(4, 2), QString(), QStringLiteral("port"), 10);
    meaning.text += port.text;
    meaning.fields.insert(QStringLiteral("port"), port.fields.value(QStringLiteral("port")));
    if (meaning.complaint.isEmpty())
        meaning.complaint = port.complaint;
    return meaning;
}

Meaning onOff(const QByteArray &data, const QString &command, const char *refusal)
{
    if (data.size() != 2)
        return wrongLength(data, 2, refusal);
    const bool on = data != "00";
    Meaning meaning;
    meaning.text = command + (on ? QStringLiteral(" on") : QStringLiteral(" off"));
    meaning.fields[QStringLiteral("on")] = on ? 1 : 0;
    if (on && data != "01")
        meaning.complaint = QStringLiteral("should be 00 or 01; the keypad takes it for on");
    return meaning;
}

Meaning calibrateMeaning(const QByteArray &data)
{
    // The one switch whose wrong length is answered with NA.
    return onOff(data, QStringLiteral("calibrate"), "NA");
}

Meaning touchTestMeaning(const QByteArray &data)
{
    return onOff(data, QStringLiteral("touch-test"), "NAK");
}

Meaning passthroughMeaning(const QByteArray &data)
{
    return onOff(data, QStringLiteral("passthrough"), "NAK");
}

Meaning textMeaning(const QByteArray &data, const QString &command, const QString &field)
{
    Meaning meaning;
    meaning.text = data.isEmpty() ? command : command + QLatin1Char(' ') + shown(data);
    meaning.fields[field] = latin(data);
    return meaning;
}

Meaning echoMeaning(const QByteArray &data)
{
    return textMeaning(data, QStringLiteral("echo"), QStringLiteral("text"));
}

Meaning patternMeaning(const QByteArray &data)
{
    return textMeaning(data,
                       data.isEmpty() ? QStringLiteral("pattern-clear") : QStringLiteral("pattern"),
                       QStringLiteral("name"));
}

Meaning relayMeaning(const QByteArray &data)
{
    return textMeaning(data, QStringLiteral("relay"), QStringLiteral("text"));
}

Meaning flashMeaning(const QByteArray &data)
{
    return textMeaning(data, QStringLiteral("flash"), QStringLiteral("dir"));
}

/// @}
/// @name Replies
/// @{

Meaning bare(const QByteArray &data, const QString &name)
{
    if (!data.isEmpty())
        return complaint(QStringLiteral("%1 carries no data").arg(name));
    Meaning meaning;
    meaning.text = name;
    return meaning;
}

Meaning ackMeaning(const QByteArray &data)
{
    return bare(data, QStringLiteral("ACK"));
}

Meaning nakMeaning(const QByteArray &data)
{
    return bare(data, QStringLiteral("NAK"));
}

Meaning naMeaning(const QByteArray &data)
{
    return bare(data, QStringLiteral("NA"));
}

Meaning readyMeaning(const QByteArray &data)
{
    return bare(data, QStringLiteral("ready"));
}

Meaning echoReplyMeaning(const QByteArray &data)
{
    Meaning meaning;
    meaning.text = QStringLiteral("echo \"%1\"").arg(shown(data));
    meaning.fields[QStringLiteral("text")] = latin(data);
    return meaning;
}

Meaning versionReplyMeaning(const QByteArray &data)
{
    const int wanted = 34;
    const int major = hexField(data.left(2));
    const int minor = hexField(data.mid(2, 2));
    if (data.size() != wanted || major < 0 || minor < 0 || !isUpperHex(data.left(4)))
        return complaint(QStringLiteral("should be 34 characters: major and minor version as "
                                        "two hexadecimal digits each, 14 of text, 16 zeros"));
    if (!data.endsWith("0000000000000000"))
        return complaint(QStringLiteral("should end with 16 zeros"));
    Meaning meaning;
    const QString text = latin(data.mid(4, 14)).trimmed();
    meaning.text = QStringLiteral("version %1.%2 '%3'").arg(major).arg(minor).arg(text);
    meaning.fields[QStringLiteral("major")] = major;
    meaning.fields[QStringLiteral("minor")] = minor;
    meaning.fields[QStringLiteral("version")] = text;
    return meaning;
}

const char *const SdStatus[] = {"all ten bytes match", "no card mounted",
                                "cannot write to the card",
                                "cannot read back, bytes differ, or old file cannot be deleted"};

Meaning sdReplyMeaning(const QByteArray &data)
{
    const int wanted = 28;
    if (data.size() != wanted || !isUpperHex(data) || !data.startsWith("01"))
        return complaint(QStringLiteral("should be 28 upper-case hexadecimal digits: 01, "
                                        "timeout, port, status, ten bytes"));
    const int status = hexField(data.mid(6, 2));
    if (status >= static_cast<int>(std::size(SdStatus)))
        return complaint(QStringLiteral("status %1, should be 0 to 3").arg(status));
    Meaning meaning;
    const int timeout = hexField(data.mid(2, 2));
    const int port = hexField(data.mid(4, 2));
    meaning.text = QStringLiteral("SD card: status %1 (%2), timeout %3, port %4, bytes %5")
                       .arg(status)
                       .arg(latin(SdStatus[status]))
                       .arg(timeout)
                       .arg(port)
                       .arg(latin(data.mid(8)));
    meaning.fields[QStringLiteral("timeout")] = timeout;
    meaning.fields[QStringLiteral("port")] = port;
    meaning.fields[QStringLiteral("status")] = status;
    meaning.fields[QStringLiteral("values")] = latin(data.mid(8));
    return meaning;
}

const char *const Targets[] = {"top left", "bottom left", "bottom right", "top right", "centre"};

Meaning calibratePointMeaning(const QByteArray &data)
{
    const int index = hexField(data.left(2));
    const std::optional<int> x = decimalField(data.mid(2, 5));
    const std::optional<int> y = decimalField(data.mid(7, 5));
    if (data.size() != 12 || index < 0 || !x || !y)
        return complaint(QStringLiteral("should be 12 characters: target as two hexadecimal "
                                        "digits, x and y as five decimal ones"));
    if (index >= static_cast<int>(std::size(Targets)))
        return complaint(QStringLiteral("target %1, should be 0 to 4").arg(index));
    Meaning meaning;
    meaning.text = QStringLiteral("calibration point %1 (%2) at %3,%4")
                       .arg(index)
                       .arg(latin(Targets[index]))
                       .arg(*x)
                       .arg(*y);
    meaning.fields[QStringLiteral("index")] = index;
    meaning.fields[QStringLiteral("x")] = *x;
    meaning.fields[QStringLiteral("y")] = *y;
    return meaning;
}

Meaning outcome(const QByteArray &data, const QString &good, const QString &bad)
{
    if (data != "00" && data != "01")
        return complaint(QStringLiteral("should be 00 or 01"));
    Meaning meaning;
    meaning.text = data == "01" ? good : bad;
    meaning.fields[QStringLiteral("success")] = data == "01" ? 1 : 0;
    return meaning;
}

Meaning calibrateFinishedMeaning(const QByteArray &data)
{
    return outcome(data, QStringLiteral("calibration accepted"),
                   QStringLiteral("calibration rejected"));
}

Meaning flashCompleteMeaning(const QByteArray &data)
{
    return outcome(data, QStringLiteral("flash complete"), QStringLiteral("flash failed"));
}

Meaning mountReplyMeaning(const QByteArray &data)
{
    return outcome(data, QStringLiteral("mounted"), QStringLiteral("mount failed"));
}

Meaning touchMeaning(const QByteArray &data)
{
    const std::optional<int> x = decimalField(data.left(3));
    const std::optional<int> y = decimalField(data.mid(3));
    if (data.size() != 6 || !x || !y)
        return complaint(QStringLiteral("should be x and y as three decimal digits each"));
    Meaning meaning;
    meaning.text = QStringLiteral("touch at %1,%2").arg(*x).arg(*y);
    meaning.fields[QStringLiteral("x")] = *x;
    meaning.fields[QStringLiteral("y")] = *y;
    return meaning;
}

Meaning relayReplyMeaning(const QByteArray &data)
{
    Meaning meaning;
    meaning.text = QStringLiteral("QB740 line \"%1\"").arg(shown(data));
    meaning.fields[QStringLiteral("text")] = latin(data);
    return meaning;
}

const char *const Stages[] = {"boot stream", "scanning", "flashing", "formatting"};

Meaning flashStatusMeaning(const QByteArray &data)
{
    const int stage = hexField(data.left(2));
    if (data.size() != 4 || !isUpperHex(data))
        return needsDigits(4);
    if (stage >= static_cast<int>(std::size(Stages)))
        return complaint(QStringLiteral("stage %1, should be 0 to 3").arg(stage));
    Meaning meaning;
    const int percent = hexField(data.mid(2));
    meaning.text = QStringLiteral("flash stage %1 (%2) %3 %")
                       .arg(stage)
                       .arg(latin(Stages[stage]))
                       .arg(percent);
    meaning.fields[QStringLiteral("stage")] = stage;
    meaning.fields[QStringLiteral("percent")] = percent;
    return meaning;
}

Meaning buttonsReplyMeaning(const QByteArray &data)
{
    const int mask = hexField(data);
    if (data.size() != 2 || !isUpperHex(data))
        return needsDigits(2);
    const bool home = (mask & 1) != 0;
    const bool tamper = (mask & 2) != 0;
    Meaning meaning;
    meaning.text = QStringLiteral("buttons: home %1, tamper %2")
                       .arg(home ? QStringLiteral("down") : QStringLiteral("up"),
                            tamper ? QStringLiteral("active") : QStringLiteral("inactive"));
    meaning.fields[QStringLiteral("mask")] = mask;
    meaning.fields[QStringLiteral("home")] = home ? 1 : 0;
    meaning.fields[QStringLiteral("tamper")] = tamper ? 1 : 0;
    if ((mask & ~3) != 0)
        meaning.complaint = QStringLiteral("only the lowest two bits have a meaning");
    return meaning;
}

Meaning voltageReplyMeaning(const QByteArray &data)
{
    if (data.size() != 8)
        return complaint(QStringLiteral("should be 8 characters"));
    Meaning meaning;
    meaning.text = QStringLiteral("voltage reading '%1'").arg(shown(data));
    meaning.fields[QStringLiteral("text")] = latin(data);
    if (const std::optional<int> value = decimalField(data))
        meaning.fields[QStringLiteral("voltage")] = *value;
    return meaning;
}

/// @}

struct Message {
    quint16 type;
    Sender sender;
    const char *name;
    bool ack;      ///< of a request: an ACK comes
    quint16 reply; ///< of a request: a reply of this type comes
    int lateLimitMs;
    Meaning (*meaning)(const QByteArray &data);
};

const Sender S = Sender::Station;
const Sender K = Sender::Keypad;

const Message Messages[] = {
    {NotApplicable, K, "NA", false, 0, 0, naMeaning},
    {Ack, K, "ACK", false, 0, 0, ackMeaning},
    {Nak, K, "NAK", false, 0, 0, nakMeaning},
    {ExitRequest, S, "exit request", true, 0, 0, exitMeaning},
    {EchoRequest, S, "echo request", false, EchoReply, 0, echoMeaning},
    {EchoReply, K, "echo reply", false, 0, 0, echoReplyMeaning},
    {VersionRequest, S, "version request", false, VersionReply, 0, versionMeaning},
    {VersionReply, K, "version reply", false, 0, 0, versionReplyMeaning},
    {LightRequest, S, "backlight or bias power request", true, 0, 0, lightMeaning},
    {LedsRequest, S, "LEDs request", true, 0, 0, ledsMeaning},
    {BuzzerRequest, S, "buzzer request", true, 0, 0, buzzerMeaning},
    {SdReadRequest, S, "SD card read request", false, SdReadReply, 0, sdReadMeaning},
    {SdReadReply, K, "SD card read reply", false, 0, 0, sdReplyMeaning},
    {PatternRequest, S, "test image request", true, 0, 0, patternMeaning},
    {HomeLedRequest, S, "home LED request", true, 0, 0, homeLedMeaning},
    {CalibrateRequest, S, "calibration request", true, 0, 0, calibrateMeaning},
    {CalibratePoint, K, "calibration point", false, 0, 0, calibratePointMeaning},
    {CalibrateFinished, K, "calibration result", false, 0, 0, calibrateFinishedMeaning},
    {TouchTestRequest, S, "touch test request", true, 0, 0, touchTestMeaning},
    {TouchReply, K, "touch", false, 0, 0, touchMeaning},
    {PassthroughRequest, S, "passthrough request", true, 0, 0, passthroughMeaning},
    {RelayRequest, S, "relay request", true, 0, 0, relayMeaning},
    {RelayReply, K, "relayed line", false, 0, 0, relayReplyMeaning},
    {FlashRequest, S, "flash request", true, FlashComplete, FlashLimitMs, flashMeaning},
    {FlashStatus, K, "flash status", false, 0, 0, flashStatusMeaning},
    {FlashComplete, K, "flash result", false, 0, 0, flashCompleteMeaning},
    {FlashQueryRequest, S, "flash query", false, FlashStatus, 0, flashQueryMeaning},
    {MountRequest, S, "mount request", true, MountReply, MountLimitMs, mountMeaning},
    {MountReply, K, "mount result", false, 0, 0, mountReplyMeaning},
    {ButtonsRequest, S, "buttons request", false, ButtonsReply, 0, buttonsMeaning},
    {ButtonsReply, K, "buttons reply", false, 0, 0, buttonsReplyMeaning},
    {VoltageRequest, S, "voltage request", false, VoltageReply, 0, voltageMeaning},
    {VoltageReply, K, "voltage reply", false, 0, 0, voltageReplyMeaning},
    {Ready, K, "ready", false, 0, 0, readyMeaning},
};

const Message *messageOf(quint16 type)
{
    const auto row = std::find_if(std::begin(Messages), std::end(Messages),
                                  [type](const Message &each) { return each.type == type; });
    return row == std::end(Messages) ? nullptr : row;
}

} // namespace

std::optional<Answers> answersTo(quint16 type)
{
    const Message *message = messageOf(type);
    if (!message || message->sender != Sender::Station)
        return std::nullopt;
    Answers answers;
    answers.ack = message->ack;
    answers.reply = message->reply;
    answers.lateLimitMs = message->lateLimitMs;
    return answers;
}

std::optional<Sender> senderOf(quint16 type)
{
    const Message *message = messageOf(type);
    if (!message)
        return std::nullopt;
    return message->sender;
}

QString typeNumber(quint16 type)
{
    return QString::number(type, 16).rightJustified(4, QLatin1Char('0')).toUpper();
}

QString typeName(quint16 type)
{
    if (const Message *message = messageOf(type))
        return latin(message->name);
    return QStringLiteral("unknown type %1").arg(typeNumber(type));
}

Meaning meaningOf(const Frame &frame)
{
    const Message *message = messageOf(frame.type);
    Meaning meaning = message ? message->meaning(frame.data) : Meaning();
    if (!meaning.text.isEmpty())
        return meaning;
    if (message && message->sender == Sender::Station)
        meaning.text =
            QStringLiteral("send %1 %2").arg(typeNumber(frame.type), shown(frame.data)).trimmed();
    else
        meaning.text =
            QStringLiteral("%1, data \"%2\"").arg(typeName(frame.type), shown(frame.data));
    return meaning;
}

} // namespace wire
