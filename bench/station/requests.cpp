#include "bench/station/requests.h"

#include "bench/station/escape.h"
#include "bench/station/messages.h"

#include <algorithm>

namespace wire
{

namespace
{

/// A command of the table.
struct Command {
    const Message *message = nullptr;
    const Layout *layout = nullptr;

    /// "buzzer off" is a command of two words.
    QStringList words() const { return QString::fromLatin1(layout->text).split(QLatin1Char(' ')); }
    bool isCalled(const QString &word) const
    {
        const QString name = word.toLower();
        return name == words().first() || (layout->alias && name == QLatin1String(layout->alias));
    }
};

std::vector<Command> commands()
{
    std::vector<Command> all;
    for (const Message &message : messages()) {
        for (const Layout &layout : message.layouts) {
            if (message.sender == Sender::Station)
                all.push_back({&message, &layout});
        }
    }
    return all;
}

std::optional<Command> commandOf(const QStringList &words)
{
    for (const Command &command : commands()) {
        const QStringList further = command.words().mid(1);
        if (command.isCalled(words.value(0)) && words.mid(1, further.size()) == further)
            return command;
    }
    return std::nullopt;
}

QString usageOf(const Layout &layout)
{
    return QStringLiteral("%1 %2")
        .arg(QLatin1String(layout.text), QLatin1String(layout.wanted))
        .trimmed();
}

bool takesText(const Layout &layout)
{
    const std::vector<Field> fields = layout.typedFields();
    return !fields.empty() && fields.front().form == Form::Text;
}

bool hasRightCount(const Layout &layout, const QStringList &arguments)
{
    if (takesText(layout))
        return layout.wanted[0] == '[' || !arguments.isEmpty();
    return static_cast<size_t>(arguments.size()) == layout.typedFields().size();
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
    *error = base == 16
                 ? QStringLiteral("\"%1\" is not a hexadecimal number from 00 to FF").arg(word)
                 : QStringLiteral("\"%1\" is not a number from 0 to 255").arg(word);
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

std::optional<QByteArray> textOf(const QStringList &words, QString *error)
{
    const std::optional<QByteArray> text = unescaped(words.join(QLatin1Char(' ')).toUtf8());
    if (!text)
        *error = QStringLiteral("unknown escape; known are \\r \\n \\t \\\\ \\\" \\xHH");
    return text;
}

/// What a person typed as the characters of a field.
std::optional<QByteArray> charactersOf(const Field &field, const QString &word, QString *error)
{
    if (field.form == Form::Switch || field.form == Form::Bit)
        return switchOf(word, error);
    return byteOf(word, field.form == Form::Mask ? 16 : 10, error);
}

std::optional<QByteArray> dataOf(const Layout &layout, const QStringList &arguments, QString *error)
{
    if (takesText(layout))
        return textOf(arguments, error);
    const std::vector<Field> fields = layout.typedFields();
    // Zeros where there is no field.
    QByteArray data = QByteArray(layout.start).leftJustified(layout.size, '0');
    for (size_t i = 0; i < fields.size(); ++i) {
        const std::optional<QByteArray> characters =
            charactersOf(fields[i], arguments.at(static_cast<int>(i)), error);
        if (!characters)
            return std::nullopt;
        data.replace(fields[i].place, fields[i].width, *characters);
    }
    return data;
}

Frame frameOf(quint16 type, const QByteArray &data)
{
    Frame frame;
    frame.type = type;
    frame.data = data;
    return frame;
}

/// "send", for what is not in the table.
std::optional<Frame> parseSend(const QStringList &arguments, QString *error)
{
    bool isNumber = false;
    const uint type = arguments.at(0).toUInt(&isNumber, 16);
    if (!isNumber || type > 0xFFFF) {
        *error = QStringLiteral("\"%1\" is not a message type of up to four hexadecimal digits")
                     .arg(arguments.at(0));
        return std::nullopt;
    }
    const std::optional<QByteArray> data = textOf(arguments.mid(1), error);
    if (!data)
        return std::nullopt;
    return frameOf(static_cast<quint16>(type), *data);
}

const Layout sendLayout = {AnySize,
                           "",
                           {{"type", 0, ToEnd, Form::Text}},
                           "send",
                           "TYPE [DATA]",
                           "any type, in hexadecimal, with any data"};

QString helpLine(const Layout &layout, const QString &number)
{
    return QStringLiteral("  %1 %2  %3\n")
        .arg(usageOf(layout).leftJustified(21), number.leftJustified(4),
             QLatin1String(layout.help));
}

bool isSend(const QString &word)
{
    return word.toLower() == QLatin1String(sendLayout.text);
}

} // namespace

std::optional<Frame> parseRequest(const QStringList &words, QString *error)
{
    QStringList filled = words;
    filled.removeAll(QString());
    const bool send = isSend(words.value(0));
    const std::optional<Command> command = commandOf(filled);
    if (words.value(0).isEmpty() || (!command && !send)) {
        *error = QStringLiteral("unknown request \"%1\"").arg(words.value(0));
        return std::nullopt;
    }
    const Layout &layout = send ? sendLayout : *command->layout;
    // In a text, blanks count.
    const QStringList arguments =
        takesText(layout) ? words.mid(1) : filled.mid(command->words().size());
    if (!hasRightCount(layout, arguments)) {
        *error = QStringLiteral("usage: %1").arg(usageOf(layout));
        return std::nullopt;
    }
    std::optional<Frame> frame;
    if (send)
        frame = parseSend(arguments, error);
    else if (const std::optional<QByteArray> data = dataOf(layout, arguments, error))
        frame = frameOf(command->message->type, *data);
    if (!frame)
        *error = QStringLiteral("%1: %2").arg(QLatin1String(layout.text), *error);
    return frame;
}

bool isRequestName(const QString &word)
{
    const std::vector<Command> all = commands();
    return isSend(word) || std::any_of(all.begin(), all.end(), [&word](const Command &command) {
               return command.isCalled(word);
           });
}

QString requestHelp()
{
    QString help;
    for (const Command &command : commands()) {
        if (command.layout->help)
            help += helpLine(*command.layout, typeNumber(command.message->type));
    }
    return help + helpLine(sendLayout, QString());
}

} // namespace wire
