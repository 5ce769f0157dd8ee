#include "bench/line/objectreader.h"

#include "bench/line/jsontext.h"

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

ObjectReader::ObjectReader(const QJsonObject &object, const QString &place, QStringList *mistakes)
    : m_object(object), m_place(place), m_mistakes(mistakes)
{
}

void ObjectReader::refuse(const QString &reason)
{
    if (m_isMute)
        return;
    m_mistakes->append(
        visible(m_place.isEmpty() ? reason : m_place + QLatin1String(": ") + reason));
}

void ObjectReader::miss(const QString &what)
{
    refuse(what + QLatin1String(" is missing"));
}

bool ObjectReader::take(const QString &key, Presence presence)
{
    m_known.insert(key);
    if (m_object.contains(key))
        return true;
    if (presence == Required)
        miss(quoted(key));
    return false;
}

/// They would control the terminal.
void ObjectReader::checkCharacters(const QString &key, const QString &text, Characters characters)
{
    if (characters != AnyCharacter && hasControlCharacters(text, characters == Lines))
        refuse(QStringLiteral("%1 holds a control character: %2").arg(quoted(key), text));
}

QString ObjectReader::text(const QString &key, Presence presence, Characters characters)
{
    if (!take(key, presence))
        return QString();
    const QString text = m_object.value(key).toString();
    if (text.isEmpty())
        refuse(QStringLiteral("%1 must be a text that is not empty").arg(quoted(key)));
    checkCharacters(key, text, characters);
    return text;
}

std::optional<QString> ObjectReader::anyText(const QString &key, Presence presence,
                                             Characters characters)
{
    if (!take(key, presence))
        return std::nullopt;
    const QString text = m_object.value(key).toString();
    if (!m_object.value(key).isString())
        refuse(QStringLiteral("%1 must be a text").arg(quoted(key)));
    checkCharacters(key, text, characters);
    return text;
}

int ObjectReader::choice(const QString &key, const QStringList &words)
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

int ObjectReader::integer(const QString &key, int least, int most, int otherwise)
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

int ObjectReader::requiredInteger(const QString &key, int least, int most)
{
    return take(key, Required) ? integer(key, least, most, least) : least;
}

std::optional<double> ObjectReader::number(const QString &key)
{
    if (!take(key, Optional))
        return std::nullopt;
    if (!m_object.value(key).isDouble()) {
        refuse(QStringLiteral("%1 must be a number").arg(quoted(key)));
        return std::nullopt;
    }
    return m_object.value(key).toDouble();
}

bool ObjectReader::boolean(const QString &key, bool otherwise)
{
    if (!take(key, Optional))
        return otherwise;
    if (!m_object.value(key).isBool())
        refuse(QStringLiteral("%1 must be true or false").arg(quoted(key)));
    return m_object.value(key).toBool();
}

QJsonObject ObjectReader::object(const QString &key)
{
    if (!take(key, Optional))
        return QJsonObject();
    if (!m_object.value(key).isObject())
        refuse(QStringLiteral("%1 must be an object").arg(quoted(key)));
    return m_object.value(key).toObject();
}

QJsonArray ObjectReader::list(const QString &key, Presence presence)
{
    if (!take(key, presence))
        return QJsonArray();
    const QJsonArray list = m_object.value(key).toArray();
    if (list.isEmpty())
        refuse(QStringLiteral("%1 must be a list that is not empty").arg(quoted(key)));
    return list;
}

QJsonValue ObjectReader::value(const QString &key)
{
    take(key, Optional);
    return m_object.value(key);
}

ObjectReader ObjectReader::element(const QJsonValue &value, const QString &what)
{
    ObjectReader reader = inner(value.toObject(), what);
    if (!value.isObject())
        reader.refuse(QStringLiteral("must be an object"));
    reader.m_isMute = m_isMute || !value.isObject();
    return reader;
}

ObjectReader ObjectReader::inner(const QJsonObject &object, const QString &what) const
{
    const QString place = m_place.isEmpty() ? what : m_place + QLatin1String(": ") + what;
    ObjectReader reader(object, place, m_mistakes);
    reader.m_isMute = m_isMute;
    return reader;
}

void ObjectReader::finish()
{
    const QStringList keys = m_object.keys();
    for (const QString &key : keys) {
        if (!m_known.contains(key))
            refuse(QStringLiteral("%1 is not known here").arg(quoted(key)));
    }
}
