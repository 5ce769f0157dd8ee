#include "bench/common/jsonvalues.h"

QString textIn(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

std::optional<double> numberIn(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isDouble() ? std::optional<double>(value.toDouble()) : std::nullopt;
}
