#include "bench/line/planreader.h"

#include <cmath>

namespace
{

QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

bool isWhole(const QJsonValue &value)
{
    return value.isDouble() && std::floor(value.toDouble()) == value.toDouble();
}

} // namespace

PlanReader::PlanReader(const QJsonObject &object, const QString &place, QString *error)
    : m_object(object), m_place(place), m_error(error)
{
}

void PlanReader::refuse(const QString &reason)
{
    if (failed())
        return;
    const QString all = m_place.isEmpty() ? reason : m_place + QLatin1String(": ") + reason;
    *m_error = all.simplified(); // a name in the plan may hold line ends
}

void PlanReader::miss(const QString &what)
{
    m_misses = m_misses || !failed();
    refuse(what + QLatin1String(" is missing"));
}

bool PlanReader::take(const QString &key, Presence presence)
{
    m_known.insert(key);
    if (m_object.contains(key))
        return true;
    if (presence == Required)
        miss(quoted(key));
    return false;
}

QString PlanReader::text(const QString &key, Presence presence)
{
    if (!take(key, presence))
        return QString();
    const QString text = m_object.value(key).toString();
    if (text.isEmpty())
        refuse(QStringLiteral("%1 must be a text that is not empty").arg(quoted(key)));
    return text;
}

std::optional<QString> PlanReader::anyText(const QString &key)
{
    if (!take(key, Optional))
        return std::nullopt;
    if (!m_object.value(key).isString())
        refuse(QStringLiteral("%1 must be a text").arg(quoted(key)));
    return m_object.value(key).toString();
}

int PlanReader::choice(const QString &key, const QStringList &words)
{
    if (!take(key, Optional))
        return -1;
    const int index = static_cast<int>(words.indexOf(m_object.value(key).toString()));
    if (index < 0)
        refuse(QStringLiteral("%1 must be %2")
                   .arg(quoted(key), QLatin1Char('"') + words.join(QStringLiteral("\" or \"")) +
                                         QLatin1Char('"')));
    return index;
}

int PlanReader::integer(const QString &key, int least, int most, int otherwise)
{
    if (!take(key, Optional))
        return otherwise;
    const QJsonValue value = m_object.value(key);
    if (!isWhole(value) || value.toDouble() < least || value.toDouble() > most) {
        refuse(QStringLiteral("%1 must be a whole number from %2 to %3")
                   .arg(quoted(key))
                   .arg(least)
                   .arg(most));
        return otherwise;
    }
    return value.toInt();
}

int PlanReader::requiredInteger(const QString &key, int least, int most)
{
    take(key, Required);
    return integer(key, least, most, least);
}

std::optional<double> PlanReader::number(const QString &key)
{
    if (!take(key, Optional))
        return std::nullopt;
    if (!m_object.value(key).isDouble())
        refuse(QStringLiteral("%1 must be a number").arg(quoted(key)));
    return m_object.value(key).toDouble();
}

bool PlanReader::boolean(const QString &key, bool otherwise)
{
    if (!take(key, Optional))
        return otherwise;
    if (!m_object.value(key).isBool())
        refuse(QStringLiteral("%1 must be true or false").arg(quoted(key)));
    return m_object.value(key).toBool();
}

QJsonObject PlanReader::object(const QString &key)
{
    if (!take(key, Optional))
        return QJsonObject();
    if (!m_object.value(key).isObject())
        refuse(QStringLiteral("%1 must be an object").arg(quoted(key)));
    return m_object.value(key).toObject();
}

QJsonArray PlanReader::list(const QString &key, Presence presence)
{
    if (!take(key, presence))
        return QJsonArray();
    const QJsonArray list = m_object.value(key).toArray();
    if (list.isEmpty())
        refuse(QStringLiteral("%1 must be a list that is not empty").arg(quoted(key)));
    return list;
}

QJsonValue PlanReader::value(const QString &key)
{
    take(key, Optional);
    return m_object.value(key);
}

PlanReader PlanReader::element(const QJsonValue &value, const QString &what)
{
    PlanReader reader = inner(value.toObject(), what);
    if (!value.isObject())
        reader.refuse(QStringLiteral("must be an object"));
    return reader;
}

PlanReader PlanReader::inner(const QJsonObject &object, const QString &what) const
{
    const QString place = m_place.isEmpty() ? what : m_place + QLatin1String(": ") + what;
    return PlanReader(object, place, m_error);
}

void PlanReader::finish()
{
    const QStringList keys = m_object.keys();
    for (const QString &key : keys) {
        if (m_known.contains(key))
            continue;
        const QString unknown = QStringLiteral("%1 is not known here").arg(quoted(key));
        // What is missing is there most likely, with its key misspelt.
        if (m_misses)
            *m_error += QLatin1String("; ") + unknown.simplified();
        else
            refuse(unknown);
    }
}
