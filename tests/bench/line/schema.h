/// Enough of JSON Schema (draft 7) to hold the published schema of plans against
/// the reader of plans. A keyword it does not know is an error of the schema, so
/// that nothing in it can be without effect.
#ifndef TESTS_BENCH_LINE_SCHEMA_H
#define TESTS_BENCH_LINE_SCHEMA_H

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

class Schema
{
public:
    explicit Schema(const QJsonObject &schema) : m_root(schema) {}

    bool isValid(const QJsonValue &value);
    /// A keyword of the schema that is not known here; empty when all are.
    QString unknownKeyword() const { return m_unknown; }

private:
    bool holds(const QJsonObject &schema, const QJsonValue &value);
    bool keyword(const QString &name, const QJsonObject &schema, const QJsonValue &value);
    bool properties(const QJsonObject &schema, const QJsonObject &object);
    bool items(const QJsonValue &schema, const QJsonArray &array);
    int countHolding(const QJsonArray &schemas, const QJsonValue &value);

    const QJsonObject m_root;
    QString m_unknown;
};

#endif
