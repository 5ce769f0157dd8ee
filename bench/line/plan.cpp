#include "bench/line/plan.h"

#include "bench/line/jsontext.h"
#include "bench/line/planreader.h"
#include "bench/station/messages.h"

#include <QFile>
#include <QRegularExpression>

#include <algorithm>

namespace
{

QString number(double value)
{
    return QString::number(value, 'g', 10);
}

/// "gpio62/value": enough to tell one attribute from another.
QString lastTwo(const QString &path)
{
    return path.section(QLatin1Char('/'), -2);
}

} // namespace

bool matches(const QString &pattern, const QString &text)
{
    // Where to go on when the characters after a star do not fit.
    qsizetype star = -1;
    qsizetype resume = 0;
    qsizetype p = 0;
    qsizetype t = 0;
    const auto at = [](const QString &s, qsizetype i) { return s.at(static_cast<int>(i)); };
    while (t < text.size()) {
        if (p < pattern.size() && at(pattern, p) == QLatin1Char('*')) {
            star = p++;
            resume = t;
        } else if (p < pattern.size() &&
                   (at(pattern, p) == QLatin1Char('?') || at(pattern, p) == at(text, t))) {
            ++p;
            ++t;
        } else if (star >= 0) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && at(pattern, p) == QLatin1Char('*'))
        ++p;
    return p == pattern.size();
}

std::optional<quint16> messageType(const QString &nameOrNumber)
{
    static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{4}$"));
    if (form.match(nameOrNumber).hasMatch())
        return static_cast<quint16>(nameOrNumber.toUInt(nullptr, 16));
    return wire::typeNamed(nameOrNumber);
}

QString Plan::Limit::describe() const
{
    QString range;
    if (text)
        range = QStringLiteral("'%1'").arg(*text);
    else if (min && max && *min == *max)
        range = number(*min);
    else if (min && max)
        range = QStringLiteral("%1 to %2").arg(number(*min), number(*max));
    else if (min)
        range = QStringLiteral("at least %1").arg(number(*min));
    else
        range = QStringLiteral("at most %1").arg(number(max.value_or(0)));
    return unit.isEmpty() ? range : range + QLatin1Char(' ') + unit;
}

QString Plan::Expected::describe() const
{
    if (!isFrame)
        return QStringLiteral("the unframed line \"%1\"").arg(text.value_or(QString()));
    QString description = wire::typeName(type);
    if (text && !text->isEmpty())
        description += QStringLiteral(" with data %1").arg(*text);
    for (const Limit &limit : fields)
        description += QStringLiteral(", %1 %2").arg(limit.field, limit.describe());
    return description;
}

QString Plan::Calibration::describe() const
{
    return QStringLiteral("at most %1 px").arg(number(maxErrorPx));
}

QString Plan::Store::describe() const
{
    return QStringLiteral("%1 to %2").arg(visible(text), path);
}

QString Plan::Check::describe() const
{
    switch (kind) {
    case Stores: {
        QStringList list;
        for (const Store &store : stores)
            list.append(store.describe());
        return QStringLiteral("store ") + list.join(QStringLiteral(", then "));
    }
    case Attribute:
        return QStringLiteral("%1 reads %2").arg(path, visible(text.value_or(QString())));
    case Pixel:
        return QStringLiteral("pixel %1,%2 is %3").arg(point.x()).arg(point.y()).arg(colour.name());
    case File:
        if (!exists)
            return QStringLiteral("no file %1").arg(path);
        return text ? QStringLiteral("file %1 holds '%2'").arg(path, visible(*text))
                    : QStringLiteral("file %1").arg(path);
    case Log:
        return QStringLiteral("log line \"%1\"").arg(text.value_or(QString()));
    case Exit:
        return QStringLiteral("the tool ends with exit status %1").arg(status);
    }
    return QString();
}

QString Plan::Check::brief() const
{
    switch (kind) {
    case Stores: {
        QStringList list;
        QString last;
        for (const Store &store : stores) {
            const QString stored = visible(store.text);
            list.append(store.path == last
                            ? stored
                            : QStringLiteral("%1=%2").arg(lastTwo(store.path), stored));
            last = store.path;
        }
        return list.join(QLatin1Char(' '));
    }
    case Attribute:
        return QStringLiteral("%1 reads %2").arg(lastTwo(path), visible(text.value_or(QString())));
    case Pixel:
        return QStringLiteral("pixel %1").arg(colour.name());
    case File:
        return exists ? path : QStringLiteral("no %1").arg(path);
    case Log:
        return QStringLiteral("logged");
    case Exit:
        return QStringLiteral("exit status %1").arg(status);
    }
    return QString();
}

std::optional<Plan> Plan::load(const QString &file, QString *error, const PlanSettings &settings)
{
    QFile opened(file);
    if (!opened.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(file, opened.errorString());
        return std::nullopt;
    }
    return readPlan(opened.readAll(), file, settings, error);
}

std::optional<Plan> Plan::fromJson(const QByteArray &json, const QString &file, QString *error,
                                   const PlanSettings &settings)
{
    return readPlan(json, file, settings, error);
}

bool Plan::takesSerialNumber(const QString &text) const
{
    return serialNumber.pattern().isEmpty() || serialNumber.match(text).hasMatch();
}

bool Plan::needsDisplay() const
{
    return std::any_of(steps.begin(), steps.end(), [](const Step &step) {
        const bool pixel =
            std::any_of(step.checks.begin(), step.checks.end(),
                        [](const Check &check) { return check.kind == Check::Pixel; });
        const bool touch =
            step.operation &&
            std::any_of(step.operation->actions.begin(), step.operation->actions.end(),
                        [](const Action &action) { return action.kind == Action::Touch; });
        return pixel || touch || !step.picture.isEmpty();
    });
}
