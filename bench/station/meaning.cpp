#include "bench/station/meaning.h"

#include "bench/station/escape.h"
#include "bench/station/messages.h"

#include <QMap>
#include <QRegularExpression>

#include <algorithm>

namespace wire
{

namespace
{

QString latin(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes);
}

QString shown(const QByteArray &bytes)
{
    return latin(escaped(bytes));
}

/// What the characters of one field say.
struct Reading {
    QVariant value; ///< invalid: the data lack the field
    QString text;   ///< the value for a person
    QString complaint;
    bool fits = true; ///< otherwise nothing is read
};

Reading numberReading(int value)
{
    return {value, QString::number(value), QString(), true};
}

Reading textReading(const QString &value, const QString &text)
{
    return {value, text, QString(), true};
}

Reading unfit(const QString &complaint = QString())
{
    return {QVariant(), QString(), complaint, false};
}

bool isUpperHex(const QByteArray &characters)
{
    return std::all_of(characters.begin(), characters.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); });
}

bool isDecimal(const QByteArray &characters)
{
    const QByteArray digits = characters.startsWith('-') ? characters.mid(1) : characters;
    return !digits.isEmpty() &&
           std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

Reading readLevel(const QByteArray &characters, Form form)
{
    const bool isNumber = isUpperHex(characters.toUpper());
    const int value = isNumber ? characters.toInt(nullptr, 16) : 0;
    if (form == Form::Bit && value > 1)
        return unfit();
    Reading reading = numberReading(value);
    if (form == Form::Mask)
        reading.text = QString::number(value, 16).rightJustified(2, QLatin1Char('0')).toUpper();
    if (!isNumber)
        reading.complaint =
            QStringLiteral("\"%1\" is not a hexadecimal number: the keypad reads it as 0")
                .arg(shown(characters));
    return reading;
}

Reading readSwitch(const QByteArray &characters)
{
    const bool on = characters != "00";
    Reading reading = numberReading(on ? 1 : 0);
    reading.text = on ? QStringLiteral("on") : QStringLiteral("off");
    if (on && characters != "01")
        reading.complaint = QStringLiteral("should be 00 or 01; the keypad takes it for on");
    return reading;
}

Reading readHex(const QByteArray &characters, const Values *values)
{
    if (!isUpperHex(characters))
        return unfit();
    const int value = characters.toInt(nullptr, 16);
    const int known = values ? static_cast<int>(values->names.size()) : value + 1;
    if (value < known)
        return numberReading(value);
    return values->what ? unfit(QStringLiteral("%1 %2, should be 0 to %3")
                                    .arg(QLatin1String(values->what))
                                    .arg(value)
                                    .arg(known - 1))
                        : unfit();
}

Reading readBits(const QByteArray &characters, Form form)
{
    if (!isUpperHex(characters))
        return unfit();
    const int value = characters.toInt(nullptr, 16);
    if (form != Form::LowBits)
        return numberReading(form == Form::FirstBit ? value & 1 : (value >> 1) & 1);
    Reading reading = numberReading(value);
    if ((value & ~3) != 0)
        reading.complaint = QStringLiteral("only the lowest two bits have a meaning");
    return reading;
}

Reading readDecimal(const QByteArray &characters)
{
    return isDecimal(characters) ? numberReading(characters.toInt()) : unfit();
}

Reading read(const Field &field, const QByteArray &characters)
{
    switch (field.form) {
    case Form::Level:
    case Form::Mask:
    case Form::Bit:
        return readLevel(characters, field.form);
    case Form::Switch:
        return readSwitch(characters);
    case Form::Hex:
        return readHex(characters, field.values);
    case Form::LowBits:
    case Form::FirstBit:
    case Form::SecondBit:
        return readBits(characters, field.form);
    case Form::Decimal:
        return readDecimal(characters);
    case Form::MaybeDecimal:
        return isDecimal(characters) ? readDecimal(characters) : Reading();
    case Form::Digits:
        return isUpperHex(characters) ? textReading(latin(characters), latin(characters)) : unfit();
    case Form::Text:
        return textReading(latin(characters), shown(characters));
    case Form::Padded:
        return textReading(latin(characters).trimmed(), latin(characters).trimmed());
    case Form::Zeros:
        break;
    }
    return characters.count('0') == characters.size()
               ? Reading()
               : unfit(QStringLiteral("should end with %1 zeros").arg(field.width));
}

/// For data without a meaning; meaningOf() then shows them as they are.
Meaning complaint(const QString &why)
{
    Meaning meaning;
    meaning.complaint = why;
    return meaning;
}

Meaning refused(const QString &why)
{
    return complaint(QStringLiteral("%1: the keypad answers NA").arg(why));
}

bool hasSize(const Layout &layout, const QByteArray &data)
{
    return layout.size == AnySize || layout.size == data.size();
}

/// Why the data fit no layout of the message.
Meaning misfit(const Message &message, const QByteArray &data)
{
    const Layout &first = message.layouts.front();
    if (message.sender == Sender::Keypad && first.size == 0)
        return complaint(QStringLiteral("%1 carries no data").arg(QLatin1String(message.name)));
    if (message.sender == Sender::Keypad)
        return complaint(QStringLiteral("should be ") + QLatin1String(first.wanted));
    if (!hasSize(first, data))
        return complaint(QStringLiteral("%1 data characters, should be %2: the keypad answers %3")
                             .arg(data.size())
                             .arg(first.size)
                             .arg(typeName(message.answers.wrongLength)));
    QStringList starts;
    for (const Layout &layout : message.layouts) {
        const QString means = QLatin1String(layout.meaning ? layout.meaning : layout.text);
        starts.append(message.layouts.size() == 1
                          ? QString::fromLatin1(layout.start)
                          : QStringLiteral("%1 (%2)").arg(QLatin1String(layout.start), means));
    }
    const bool isWhole = first.size == static_cast<int>(qstrlen(first.start));
    return refused((isWhole ? QStringLiteral("should be ") : QStringLiteral("should begin with ")) +
                   starts.join(QStringLiteral(" or ")));
}

/// The text of a reply, with what its fields say in their places.
QString filled(const QString &text, const QMap<QString, QString> &said)
{
    static const QRegularExpression place(QStringLiteral("\\{([a-z.]+)\\}"));
    QString whole;
    int from = 0;
    auto places = place.globalMatch(text);
    while (places.hasNext()) {
        const QRegularExpressionMatch match = places.next();
        const int start = static_cast<int>(match.capturedStart());
        whole += text.mid(from, start - from) + said.value(match.captured(1));
        from = static_cast<int>(match.capturedEnd());
    }
    return whole + text.mid(from);
}

Meaning meaningBy(const Message &message, const Layout &layout, const QByteArray &data)
{
    Meaning meaning;
    QMap<QString, QString> said;
    for (const Field &field : layout.fields) {
        const Reading reading = read(field, data.mid(field.place, field.width));
        if (!reading.fits && !reading.complaint.isEmpty())
            return complaint(reading.complaint);
        if (!reading.fits && field.form == Form::Bit)
            return refused(QStringLiteral("%1 is 00 or 01").arg(QLatin1String(layout.meaning)));
        if (!reading.fits)
            return misfit(message, data);
        if (meaning.complaint.isEmpty())
            meaning.complaint = reading.complaint;
        if (!reading.value.isValid())
            continue;
        const QString name = QLatin1String(field.name);
        meaning.fields[name] = reading.value;
        said[name] = reading.text;
        if (field.values)
            said[name + QLatin1String(".name")] =
                QLatin1String(field.values->names[size_t(reading.value.toInt())]);
    }
    meaning.text = filled(QLatin1String(layout.text), said);
    if (message.sender == Sender::Keypad)
        return meaning;
    for (const Field &field : layout.typedFields()) {
        const QString text = said.value(QLatin1String(field.name));
        meaning.text += text.isEmpty() ? text : QLatin1Char(' ') + text;
    }
    return meaning;
}

Meaning meaningIn(const Message &message, const QByteArray &data)
{
    for (const Layout &layout : message.layouts) {
        if (hasSize(layout, data) && data.startsWith(layout.start))
            return meaningBy(message, layout, data);
    }
    return misfit(message, data);
}

} // namespace

Meaning meaningOf(const Frame &frame)
{
    const Message *message = messageOf(frame.type);
    Meaning meaning = message ? meaningIn(*message, frame.data) : Meaning();
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
