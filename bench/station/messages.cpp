#include "bench/station/messages.h"

#include <algorithm>
#include <cstring>

namespace wire
{

namespace
{

const int flashLimitMs = 15 * 60 * 1000;
const int mountLimitMs = 60 * 1000;

const Answers none = {};
const Answers acked = {true};

Answers repliedWith(quint16 type)
{
    return {false, type};
}

Answers ackedThenRepliedWith(quint16 type, int limitMs)
{
    return {true, type, limitMs};
}

/// The one switch whose wrong length is answered with NA.
const Answers ackedOrNotApplicable = {true, 0, 0, NotApplicable};

const Values sdStatus = {"status",
                         {"all ten bytes match", "no card mounted", "cannot write to the card",
                          "cannot read back, bytes differ, or old file cannot be deleted"}};
const Values targets = {"target",
                        {"top left", "bottom left", "bottom right", "top right", "centre"}};
const Values stages = {"stage", {"boot stream", "scanning", "flashing", "formatting"}};
const Values calibrated = {nullptr, {"calibration rejected", "calibration accepted"}};
const Values flashed = {nullptr, {"flash failed", "flash complete"}};
const Values mounted = {nullptr, {"mount failed", "mounted"}};
const Values home = {nullptr, {"up", "down"}};
const Values tamper = {nullptr, {"inactive", "active"}};

/// A command without fields.
Layout plain(const char *command, const char *help, const char *alias = nullptr)
{
    return {0, "", {}, command, "", help, nullptr, alias};
}

Layout onOff(const char *command, const char *help, const char *alias = nullptr)
{
    return {2, "", {{"on", 0, 2, Form::Switch}}, command, "on|off", help, nullptr, alias};
}

Layout anyText(const char *field, const char *command, const char *wanted, const char *help,
               const char *alias = nullptr)
{
    return {AnySize, "", {{field, 0, ToEnd, Form::Text}}, command, wanted, help, nullptr, alias};
}

Layout asked(int size, const char *start, const std::vector<Field> &fields, const char *command,
             const char *wanted, const char *help, const char *meaning = nullptr,
             const char *alias = nullptr)
{
    return {size, start, fields, command, wanted, help, meaning, alias};
}

Message request(quint16 type, const char *name, const Answers &answers,
                const std::vector<Layout> &layouts)
{
    return {type, Sender::Station, name, answers, layouts};
}

Message reply(quint16 type, const char *name, int size, const char *start,
              const std::vector<Field> &fields, const char *text, const char *wanted = "")
{
    return {type, Sender::Keypad, name, none, {{size, start, fields, text, wanted}}};
}

Message bareReply(quint16 type, const char *name)
{
    return reply(type, name, 0, "", {}, name);
}

Message outcome(quint16 type, const char *name, const Values &values)
{
    return reply(type, name, 2, "", {{"success", 0, 2, Form::Hex, &values}}, "{success.name}",
                 "00 or 01");
}

} // namespace

const std::vector<Message> &messages()
{
    static const std::vector<Message> rows = {
        bareReply(0x0003, "NA"),
        bareReply(0x0004, "ACK"),
        bareReply(0x0005, "NAK"),

        request(0x6001, "exit request", acked, {plain("exit", "end the test and the tool")}),

        request(0x6002, "echo request", repliedWith(0x6003),
                {anyText("text", "echo", "[TEXT]", "have TEXT sent back")}),
        reply(0x6003, "echo reply", AnySize, "", {{"text", 0, ToEnd, Form::Text}},
              "echo \"{text}\""),

        request(0x603C, "version request", repliedWith(0x603D),
                {asked(2, "01", {}, "version", "", "firmware version")}),
        reply(0x603D, "version reply", 34, "",
              {{"major", 0, 2, Form::Hex},
               {"minor", 2, 2, Form::Hex},
               {"version", 4, 14, Form::Padded},
               {nullptr, 18, 16, Form::Zeros}},
              "version {major}.{minor} '{version}'",
              "34 characters: major and minor version as two hexadecimal digits each, 14 of text, "
              "16 zeros"),

        request(0x6143, "backlight or bias power request", acked,
                {asked(4, "00", {{"level", 2, 2, Form::Level}}, "backlight", "LEVEL",
                       "LCD backlight, 0 to 255"),
                 asked(4, "01", {{"bias", 2, 2, Form::Bit}}, "bias", "on|off", "LCD bias power",
                       "bias power")}),

        request(
            0x6144, "LEDs request", acked,
            {asked(14, "00", {{"mask", 2, 2, Form::Mask}}, "leds", "MASK",
                   "status LEDs, hexadecimal: 1 ready, 2 armed, 4 trouble, 8 ac", nullptr, "led")}),

        request(0x6147, "buzzer request", acked,
                {asked(4, "00", {{"level", 0, 2, Form::Level}}, "buzzer off", "", nullptr, "off"),
                 asked(4, "80", {{"level", 2, 2, Form::Level}}, "buzzer", "LEVEL|off",
                       "buzzer, 0 to 255", "on")}),

        request(0x6161, "SD card read request", repliedWith(0x6162),
                {asked(6, "01", {{"timeout", 2, 2, Form::Level}, {"port", 4, 2, Form::Level}},
                       "sdread", "TIMEOUT PORT",
                       "write to the SD card and read back; both numbers come back unused", nullptr,
                       "sd-read")}),
        reply(0x6162, "SD card read reply", 28, "01",
              {{"timeout", 2, 2, Form::Hex},
               {"port", 4, 2, Form::Hex},
               {"status", 6, 2, Form::Hex, &sdStatus},
               {"values", 8, 20, Form::Digits}},
              "SD card: status {status} ({status.name}), timeout {timeout}, port {port}, bytes "
              "{values}",
              "28 upper-case hexadecimal digits: 01, timeout, port, status, ten bytes"),

        request(0x7000, "test image request", acked,
                {asked(0, "", {{"name", 0, ToEnd, Form::Text}}, "pattern-clear", "",
                       "remove the test image", nullptr, "clear"),
                 anyText("name", "pattern", "NAME", "full-screen test image", "image")}),

        request(0x7010, "home LED request", acked,
                {asked(2, "", {{"percent", 0, 2, Form::Level}}, "home-led", "PERCENT",
                       "LED of the home button", nullptr, "homeled")}),

        request(0x7020, "calibration request", ackedOrNotApplicable,
                {onOff("calibrate", "open the touchscreen calibration; close and store it")}),
        reply(0x7021, "calibration point", 12, "",
              {{"index", 0, 2, Form::Hex, &targets},
               {"x", 2, 5, Form::Decimal},
               {"y", 7, 5, Form::Decimal}},
              "calibration point {index} ({index.name}) at {x},{y}",
              "12 characters: target as two hexadecimal digits, x and y as five decimal ones"),
        outcome(0x7022, "calibration result", calibrated),

        request(0x7030, "touch test request", acked,
                {onOff("touch-test", "report touches", "touchtest")}),
        reply(0x7031, "touch", 6, "", {{"x", 0, 3, Form::Decimal}, {"y", 3, 3, Form::Decimal}},
              "touch at {x},{y}", "x and y as three decimal digits each"),

        request(0x7040, "passthrough request", acked,
                {onOff("passthrough", "relay to the QB740 module")}),
        request(0x7041, "relay request", acked,
                {anyText("text", "relay", "[TEXT]", "send a line to the QB740 module")}),
        reply(0x7042, "relayed line", AnySize, "", {{"text", 0, ToEnd, Form::Text}},
              "QB740 line \"{text}\""),

        request(0x7050, "flash request", ackedThenRepliedWith(0x7052, flashLimitMs),
                {anyText("dir", "flash", "[DIR]",
                         "program the NAND from DIR, or from the newest directory")}),
        reply(0x7051, "flash status", 4, "",
              {{"stage", 0, 2, Form::Hex, &stages}, {"percent", 2, 2, Form::Hex}},
              "flash stage {stage} ({stage.name}) {percent} %", "4 upper-case hexadecimal digits"),
        outcome(0x7052, "flash result", flashed),
        request(0x7053, "flash query", repliedWith(0x7051),
                {plain("flash-query", "stage and percentage of the flash", "flashquery")}),

        request(0x7060, "mount request", ackedThenRepliedWith(0x7061, mountLimitMs),
                {plain("mount", "mount the programmed file system")}),
        outcome(0x7061, "mount result", mounted),

        request(0x7070, "buttons request", repliedWith(0x7071),
                {plain("buttons", "home button and tamper switch")}),
        reply(0x7071, "buttons reply", 2, "",
              {{"mask", 0, 2, Form::LowBits},
               {"home", 0, 2, Form::FirstBit, &home},
               {"tamper", 0, 2, Form::SecondBit, &tamper}},
              "buttons: home {home.name}, tamper {tamper.name}", "2 upper-case hexadecimal digits"),

        request(0x7080, "voltage request", repliedWith(0x7081),
                {plain("voltage", "alarm bus supply voltage")}),
        reply(0x7081, "voltage reply", 8, "",
              {{"text", 0, 8, Form::Text}, {"voltage", 0, 8, Form::MaybeDecimal}},
              "voltage reading '{text}'", "8 characters"),

        bareReply(0x9999, "ready"),
    };
    return rows;
}

std::vector<Field> Layout::typedFields() const
{
    std::vector<Field> typed;
    const auto settled = static_cast<int>(std::strlen(start));
    for (const Field &field : fields) {
        if (field.place >= settled && (size == AnySize || field.place < size))
            typed.push_back(field);
    }
    return typed;
}

const Message *messageOf(quint16 type)
{
    const std::vector<Message> &all = messages();
    const auto row = std::find_if(all.begin(), all.end(),
                                  [type](const Message &each) { return each.type == type; });
    return row == all.end() ? nullptr : &*row;
}

std::optional<Answers> answersTo(quint16 type)
{
    const Message *message = messageOf(type);
    if (!message || message->sender != Sender::Station)
        return std::nullopt;
    return message->answers;
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
        return QString::fromLatin1(message->name);
    return QStringLiteral("unknown type %1").arg(typeNumber(type));
}

std::optional<quint16> typeNamed(const QString &name)
{
    for (const Message &message : messages()) {
        if (name.compare(QLatin1String(message.name), Qt::CaseInsensitive) == 0)
            return message.type;
    }
    return std::nullopt;
}

QStringList fieldNames(quint16 type)
{
    QStringList names;
    const Message *message = messageOf(type);
    if (!message)
        return names;
    for (const Layout &layout : message->layouts) {
        for (const Field &field : layout.fields) {
            if (field.name && !names.contains(QLatin1String(field.name)))
                names.append(QLatin1String(field.name));
        }
    }
    return names;
}

} // namespace wire
