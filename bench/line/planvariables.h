/// The variables of a plan: values that another factory, or another model of the unit,
/// can set without editing the plan.
#ifndef BENCH_LINE_PLANVARIABLES_H
#define BENCH_LINE_PLANVARIABLES_H

#include "bench/line/objectreader.h"

#include <QJsonObject>
#include <QJsonValue>

/// What is set in a plan from the outside.
struct PlanSettings {
    QString variant;    ///< name of the file that has set variables; empty for none
    QJsonObject values; ///< numbers and texts by the variable's name

    /// Takes the variables of a file, which is one JSON object. False with *error.
    bool load(const QString &file, QString *error);
    /// Takes "NAME=VALUE". False with *error.
    bool set(const QString &assignment, QString *error);
};

class PlanVariables
{
public:
    /// Reads the member "variables" of a plan, with the defaults, and sets what
    /// @p settings say. A variable keeps the kind of its default, number or text.
    void read(ObjectReader &reader, const PlanSettings &settings);

    /// @p value with the variables in all its texts: `${name}`. A text that is nothing
    /// but one variable takes its value, which may be a number. `$${` stands for `${`
    /// itself.
    /// @param reader  gets a mistake for each variable that does not exist
    QJsonValue filledIn(const QJsonValue &value, ObjectReader &reader) const;

    /// Those that were set from the outside.
    QJsonObject settings() const { return m_set; }

private:
    void take(const QString &name, const QJsonValue &value, ObjectReader &reader);
    QJsonValue filledInText(const QString &text, ObjectReader &reader) const;
    QString known() const;

    QJsonObject m_values;
    QJsonObject m_set;
};

#endif
