#include "tests/bench/line/schema.h"

#include <QJsonArray>
#include <QRegularExpression>

#include <cmath>

namespace
{

bool hasType(const QString &type, const QJsonValue &value)
{
    if (type == QLatin1String("object"))
        return value.isObject();
    if (type == QLatin1String("array"))
        return value.isArray();
    if (type == QLatin1String("string"))
        return value.isString();
    if (type == QLatin1String("boolean"))
        return value.isBool();
    if (type == QLatin1String("integer"))
        return value.isDouble() && std::floor(value.toDouble()) == value.toDouble();
    return type == QLatin1String("number") && value.isDouble();
}

bool hasAll(const QJsonArray &names, const QJsonObject &object)
{
    for (const QJsonValue &name : names) {
        if (!object.contains(name.toString()))
            return false;
    }
    return true;
}

} // namespace

bool Schema::isValid(const QJsonValue &value)
{
    return holds(m_root, value);
}

bool Schema::holds(const QJsonObject &schema, const QJsonValue &value)
{
    if (schema.contains(QStringLiteral("$ref"))) {
        const QString name = schema.value(QStringLiteral("$ref")).toString();
        const QString prefix = QStringLiteral("#/definitions/");
        const QJsonObject definitions = m_root.value(QStringLiteral("definitions")).toObject();
        const QJsonValue definition = definitions.value(name.mid(prefix.size()));
        if (!name.startsWith(prefix) || !definition.isObject())
            m_unknown = name;
        return holds(definition.toObject(), value);
    }
    const QStringList names = schema.keys();
    bool good = true;
    for (const QString &name : names)
        good = keyword(name, schema, value) && good;
    return good;
}

bool Schema::keyword(const QString &name, const QJsonObject &schema, const QJsonValue &value)
{
    const QJsonValue wanted = schema.value(name);
    if (name == QLatin1String("type"))
        return hasType(wanted.toString(), value);
    if (name == QLatin1String("required"))
        return !value.isObject() || hasAll(wanted.toArray(), value.toObject());
    if (name == QLatin1String("properties"))
        return !value.isObject() || properties(schema, value.toObject());
    if (name == QLatin1String("additionalProperties"))
        return schema.contains(QStringLiteral("properties")) || !value.isObject() ||
               properties(schema, value.toObject());
    if (name == QLatin1String("dependencies")) {
        const QJsonObject dependencies = wanted.toObject();
        for (auto it = dependencies.begin(); it != dependencies.end(); ++it) {
            if (value.toObject().contains(it.key()) &&
                !hasAll(it.value().toArray(), value.toObject()))
                return false;
        }
        return true;
    }
    if (name == QLatin1String("items"))
        return !value.isArray() || items(wanted, value.toArray());
    if (name == QLatin1String("minItems"))
        return !value.isArray() || value.toArray().size() >= wanted.toInt();
    if (name == QLatin1String("maxItems"))
        return !value.isArray() || value.toArray().size() <= wanted.toInt();
    if (name == QLatin1String("minLength"))
        return !value.isString() || value.toString().size() >= wanted.toInt();
    if (name == QLatin1String("pattern"))
        return !value.isString() ||
               QRegularExpression(wanted.toString()).match(value.toString()).hasMatch();
    if (name == QLatin1String("minimum"))
        return !value.isDouble() || value.toDouble() >= wanted.toDouble();
    if (name == QLatin1String("maximum"))
        return !value.isDouble() || value.toDouble() <= wanted.toDouble();
    if (name == QLatin1String("enum"))
        return wanted.toArray().contains(value);
    if (name == QLatin1String("const"))
        return wanted == value;
    if (name == QLatin1String("anyOf"))
        return countHolding(wanted.toArray(), value) > 0;
    if (name == QLatin1String("oneOf"))
        return countHolding(wanted.toArray(), value) == 1;
    if (name == QLatin1String("not"))
        return !holds(wanted.toObject(), value);
    static const QStringList remarks = {QStringLiteral("$schema"), QStringLiteral("title"),
                                        QStringLiteral("description"),
                                        QStringLiteral("definitions")};
    if (!remarks.contains(name))
        m_unknown = name;
    return true;
}

bool Schema::properties(const QJsonObject &schema, const QJsonObject &object)
{
    const QJsonObject known = schema.value(QStringLiteral("properties")).toObject();
    const QJsonValue others = schema.value(QStringLiteral("additionalProperties"));
    bool good = true;
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (known.contains(it.key()))
            good = holds(known.value(it.key()).toObject(), it.value()) && good;
        else if (others.isObject())
            good = holds(others.toObject(), it.value()) && good;
        else if (others.isBool())
            good = others.toBool() && good;
    }
    return good;
}

bool Schema::items(const QJsonValue &schema, const QJsonArray &array)
{
    bool good = true;
    for (int i = 0; i < array.size(); ++i) {
        const QJsonValue one = schema.isArray() ? schema.toArray().at(i) : schema;
        good = holds(one.toObject(), array.at(i)) && good;
    }
    return good;
}

int Schema::countHolding(const QJsonArray &schemas, const QJsonValue &value)
{
    int count = 0;
    for (const QJsonValue &schema : schemas)
        count += holds(schema.toObject(), value) ? 1 : 0;
    return count;
}
