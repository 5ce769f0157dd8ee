/// JSON as people write it: mistakes in a file are reported in their words, with line and
/// column.
#ifndef BENCH_LINE_JSONTEXT_H
#define BENCH_LINE_JSONTEXT_H

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <optional>

/// Reads an object or a list.
/// @param mistakes  the reason when nothing is returned; otherwise a line for each key
///                  that an object has twice, of which the last value counts
std::optional<QJsonValue> readJson(const QByteArray &bytes, QStringList *mistakes);

/// The text with each control character as JSON writes it (`\u001b`), so that it can be
/// shown on a terminal.
QString visible(const QString &text);

/// Whether there is one in it.
/// @param lines  line ends and tabs do not count
bool hasControlCharacters(const QString &text, bool lines);

#endif
