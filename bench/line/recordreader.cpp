#include "bench/line/recordreader.h"

#include <QJsonArray>

namespace
{

QString textIn(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

QDateTime timeIn(const QJsonObject &object, const char *key)
{
    return QDateTime::fromString(textIn(object, key), Qt::ISODateWithMs);
}

QStringList textsIn(const QJsonObject &object, const char *key)
{
    QStringList texts;
    const QJsonArray values = object.value(QLatin1String(key)).toArray();
    for (const QJsonValue &value : values)
        texts.append(value.toString());
    return texts;
}

std::optional<double> limitIn(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isDouble() ? std::optional<double>(value.toDouble()) : std::nullopt;
}

Measurement measurementFrom(const QJsonObject &object)
{
    Measurement measured;
    measured.name = textIn(object, "name");
    const QJsonValue value = object.value(QStringLiteral("value"));
    if (!value.isNull())
        measured.value = value.toVariant();
    measured.unit = textIn(object, "unit");
    measured.min = limitIn(object, "min");
    measured.max = limitIn(object, "max");
    measured.limits = textIn(object, "limits");
    measured.good = object.value(QStringLiteral("good")).toBool();
    return measured;
}

CheckRecord checkFrom(const QJsonObject &object)
{
    CheckRecord check;
    check.what = check.brief = textIn(object, "check");
    const QString result = textIn(object, "result");
    if (result == QLatin1String("held"))
        check.result = CheckRecord::Held;
    else if (result == QLatin1String("broken"))
        check.result = CheckRecord::Broken;
    check.found = textIn(object, "found");
    return check;
}

void readAttempt(const QJsonObject &object, AttemptRecord *attempt)
{
    attempt->outcome = outcomeFromName(textIn(object, "outcome"));
    attempt->start = timeIn(object, "start");
    attempt->seconds = object.value(QStringLiteral("seconds")).toDouble();
    attempt->sent = textIn(object, "sent");
    attempt->received = textsIn(object, "received");
    const QJsonArray measured = object.value(QStringLiteral("measured")).toArray();
    for (const QJsonValue &each : measured)
        attempt->measured.append(measurementFrom(each.toObject()));
    const QJsonArray checks = object.value(QStringLiteral("checks")).toArray();
    for (const QJsonValue &each : checks)
        attempt->checks.append(checkFrom(each.toObject()));
    attempt->reason = textIn(object, "reason");
    attempt->expected = textIn(object, "expected");
    attempt->came = textIn(object, "came");
    attempt->raw = textIn(object, "raw").toLatin1();
    attempt->notes = textsIn(object, "notes");
}

StepRecord stepFrom(const QJsonObject &object)
{
    StepRecord step;
    readAttempt(object, &step);
    step.number = object.value(QStringLiteral("step")).toInt();
    step.name = textIn(object, "name");
    step.group = textIn(object, "group");
    step.tries = object.value(QStringLiteral("tries")).toInt();
    step.picture = textIn(object, "picture");
    const QJsonArray attempts = object.value(QStringLiteral("attempts")).toArray();
    for (const QJsonValue &each : attempts) {
        step.attempts.append(AttemptRecord());
        readAttempt(each.toObject(), &step.attempts.last());
    }
    return step;
}

} // namespace

Outcome outcomeFromName(const QString &name)
{
    for (const Outcome outcome :
         {Outcome::Pass, Outcome::Fail, Outcome::TimeOut, Outcome::Error, Outcome::Interrupted}) {
        if (name == outcomeName(outcome))
            return outcome;
    }
    return Outcome::NotRun;
}

UnitRecord recordFromJson(const QJsonObject &object)
{
    UnitRecord unit;
    unit.plan = textIn(object, "plan");
    unit.planTitle = textIn(object, "title");
    unit.planFile = textIn(object, "plan_file");
    unit.number = object.value(QStringLiteral("number")).toInt();
    unit.id = textIn(object, "id");
    unit.planSha256 = textIn(object, "plan_sha256");
    unit.variant = textIn(object, "variant");
    unit.attempt = object.value(QStringLiteral("attempt")).toInt(1);
    unit.operatorName = textIn(object, "operator");
    unit.benchVersion = textIn(object, "bench_version");
    unit.serialNumber = textIn(object, "serial_number");
    unit.station = textIn(object, "station");
    unit.fixture = textIn(object, "fixture");
    unit.unit = textIn(object, "unit");
    unit.faults = textsIn(object, "faults");
    unit.toolVersion = textIn(object, "tool_version");
    unit.start = timeIn(object, "start");
    unit.end = timeIn(object, "end");
    unit.ended = object.value(QStringLiteral("ended")).toBool();
    unit.outcome = outcomeFromName(textIn(object, "outcome"));
    unit.reason = textIn(object, "reason");
    const QJsonArray steps = object.value(QStringLiteral("steps")).toArray();
    for (const QJsonValue &each : steps)
        unit.steps.append(stepFrom(each.toObject()));
    return unit;
}
