/// Values that a JSON object may have or not.
#ifndef BENCH_COMMON_JSONVALUES_H
#define BENCH_COMMON_JSONVALUES_H

#include <QJsonObject>
#include <QString>

#include <optional>

/// Empty when it is not a text.
QString textIn(const QJsonObject &object, const char *key);
/// Nothing when it is not a number.
std::optional<double> numberIn(const QJsonObject &object, const char *key);

#endif
