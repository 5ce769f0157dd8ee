/// JSON as people write it: what is wrong with a file is told in their words, with
/// line and column.
#ifndef BENCH_LINE_JSONTEXT_H
#define BENCH_LINE_JSONTEXT_H

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <optional>

/// Reads an object or a list.
/// @param mistakes  gets why nothing is returned; or, with a value, a line for each key
///                  that an object has twice, where the value has its last
std::optional<QJsonValue> readJson(const QByteArray &bytes, QStringList *mistakes);

/// The text with each control character as JSON writes it (`\u001b`), so that it can be
/// shown on a terminal.
QString visible(const QString &text);

/// Whether one is in there.
/// @param lines  line ends and tabs do not count
bool hasControlCharacters(const QString &text, bool lines);

#endif
