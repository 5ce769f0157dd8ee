/// Values of a JSON object that may lack them.
#ifndef BENCH_COMMON_JSONVALUES_H
#define BENCH_COMMON_JSONVALUES_H

#include <QJsonObject>
#include <QString>

#include <optional>

/// Empty for what is not a text.
QString textIn(const QJsonObject &object, const char *key);
/// Nothing for what is not a number.
std::optional<double> numberIn(const QJsonObject &object, const char *key);

#endif
