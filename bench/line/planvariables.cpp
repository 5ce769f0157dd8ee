#include "bench/line/planvariables.h"

#include "bench/line/jsontext.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>

namespace
{

bool isName(const QString &text)
{
    static const QRegularExpression form(QStringLiteral("\\A[a-z][a-z0-9_]*\\z"));
    return form.match(text).hasMatch();
}

bool isValue(const QJsonValue &value)
{
    return value.isDouble() || value.isString();
}

QString textOf(const QJsonValue &value)
{
    return value.isDouble() ? QString::number(value.toDouble(), 'g', 15) : value.toString();
}

/// A value as it can be given to a variable with such a default; undefined when it cannot.
QJsonValue alike(const QJsonValue &original, const QJsonValue &value)
{
    if (original.isString())
        return isValue(value) ? QJsonValue(textOf(value)) : QJsonValue(QJsonValue::Undefined);
    bool isNumber = value.isDouble();
    const double number = isNumber ? value.toDouble() : value.toString().toDouble(&isNumber);
    return isNumber ? QJsonValue(number) : QJsonValue(QJsonValue::Undefined);
}

} // namespace

bool PlanSettings::load(const QString &file, QString *error)
{
    QFile opened(file);
    if (!opened.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(file, opened.errorString());
        return false;
    }
    QStringList mistakes;
    const std::optional<QJsonValue> value = readJson(opened.readAll(), &mistakes);
    if (value && !value->isObject())
        mistakes.append(QStringLiteral("a variant is an object of variables: { \"name\": ... }"));
    if (!mistakes.isEmpty()) {
        *error = QStringLiteral("%1: %2").arg(file, mistakes.first());
        return false;
    }
    values = value->toObject();
    variant = QFileInfo(file).completeBaseName();
    return true;
}

bool PlanSettings::set(const QString &assignment, QString *error)
{
    const auto end = assignment.indexOf(QLatin1Char('='));
    if (end < 1) {
        *error = QStringLiteral("--set takes NAME=VALUE, not \"%1\"").arg(visible(assignment));
        return false;
    }
    values.insert(assignment.left(end), assignment.mid(end + 1));
    return true;
}

void PlanVariables::read(ObjectReader &reader, const PlanSettings &settings)
{
    const QString key = QStringLiteral("variables");
    const QJsonObject defaults = reader.object(key);
    for (auto it = defaults.begin(); it != defaults.end(); ++it) {
        if (!isName(it.key()))
            reader.refuse(QStringLiteral("\"variables\": \"%1\" must be a name of a-z, 0-9 and _")
                              .arg(it.key()));
        else if (!isValue(it.value()))
            reader.refuse(
                QStringLiteral("\"variables\": \"%1\" must be a number or a text").arg(it.key()));
        else
            m_values.insert(it.key(), it.value());
    }
    for (auto it = settings.values.begin(); it != settings.values.end(); ++it)
        take(it.key(), it.value(), reader);
}

void PlanVariables::take(const QString &name, const QJsonValue &value, ObjectReader &reader)
{
    const QJsonValue original = m_values.value(name);
    if (original.isUndefined()) {
        reader.refuse(
            QStringLiteral("no variable \"%1\" can be set; %2").arg(visible(name), known()));
        return;
    }
    const QJsonValue taken = alike(original, value);
    if (taken.isUndefined()) {
        reader.refuse(QStringLiteral("the variable \"%1\" is a %2")
                          .arg(name, original.isDouble() ? QStringLiteral("number")
                                                         : QStringLiteral("text")));
        return;
    }
    m_values.insert(name, taken);
    m_set.insert(name, taken);
}

QString PlanVariables::known() const
{
    const QStringList names = m_values.keys();
    return names.isEmpty() ? QStringLiteral("the plan has none")
                           : QStringLiteral("the plan has ") + names.join(QStringLiteral(", "));
}

QJsonValue PlanVariables::filledIn(const QJsonValue &value, ObjectReader &reader) const
{
    if (value.isString())
        return filledInText(value.toString(), reader);
    if (value.isArray()) {
        QJsonArray list = value.toArray();
        for (int i = 0; i < list.size(); ++i)
            list.replace(i, filledIn(list.at(i), reader));
        return list;
    }
    if (!value.isObject())
        return value;
    QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        it.value() = filledIn(it.value(), reader);
    return object;
}

QJsonValue PlanVariables::filledInText(const QString &text, ObjectReader &reader) const
{
    static const QRegularExpression form(
        QStringLiteral("\\$(?<escape>\\$\\{)|\\$\\{(?<name>[^}]*)(?<end>\\}?)"));
    QString filled;
    int from = 0;
    QRegularExpressionMatchIterator all = form.globalMatch(text);
    while (all.hasNext()) {
        const QRegularExpressionMatch match = all.next();
        const QString escape = match.captured(QStringLiteral("escape"));
        const QString name = match.captured(QStringLiteral("name"));
        const QJsonValue value = m_values.value(name);
        QString shown = match.captured(); // what is wrong stays, so that nothing follows from it
        if (!escape.isEmpty())
            shown = escape;
        else if (match.captured(QStringLiteral("end")).isEmpty())
            reader.refuse(QStringLiteral("\"%1\" is not closed with }").arg(shown));
        else if (value.isUndefined())
            reader.refuse(QStringLiteral("there is no variable \"%1\"; %2").arg(name, known()));
        else if (shown == text)
            return value;
        else
            shown = textOf(value);
        filled += text.mid(from, match.capturedStart() - from) + shown;
        from = static_cast<int>(match.capturedEnd());
    }
    return filled + text.mid(from);
}
