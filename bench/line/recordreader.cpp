#include "bench/line/recordreader.h"

#include "bench/common/jsonvalues.h"

#include <QJsonArray>

namespace
{

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

Measurement measurementFrom(const QJsonObject &object)
{
    Measurement measured;
    measured.name = textIn(object, "name");
    const QJsonValue value = object.value(QStringLiteral("value"));
    if (!value.isNull())
        measured.value = value.toVariant();
    measured.unit = textIn(object, "unit");
    measured.min = numberIn(object, "min");
    measured.max = numberIn(object, "max");
    measured.limits = textIn(object, "limits");
    measured.good = object.value(QStringLiteral("good")).toBool();
    return measured;
}

TimeSpent timeFrom(const QJsonObject &object)
{
    TimeSpent time;
    time.tool = numberIn(object, "tool").value_or(0);
    time.flash = numberIn(object, "flash").value_or(0);
    time.operatorAt = numberIn(object, "operator").value_or(0);
    time.bench = numberIn(object, "bench").value_or(0);
    return time;
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
    step.lostPicture = textIn(object, "lost_picture");
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
    unit.id = textIn(object, "id");
    unit.plan = textIn(object, "plan");
    unit.planTitle = textIn(object, "title");
    unit.planFile = textIn(object, "plan_file");
    unit.planSha256 = textIn(object, "plan_sha256");
    unit.planIncludes = object.value(QStringLiteral("plan_includes")).toObject();
    unit.variant = textIn(object, "variant");
    unit.variables = object.value(QStringLiteral("variables")).toObject();
    unit.number = object.value(QStringLiteral("number")).toInt();
    unit.attempt = object.value(QStringLiteral("attempt")).toInt(1);
    unit.serialNumber = textIn(object, "serial_number");
    unit.operatorName = textIn(object, "operator");
    unit.station = textIn(object, "station");
    unit.fixture = textIn(object, "fixture");
    unit.unit = textIn(object, "unit");
    unit.faults = textsIn(object, "faults");
    unit.toolVersion = textIn(object, "tool_version");
    unit.benchVersion = textIn(object, "bench_version");
    unit.time = timeFrom(object.value(QStringLiteral("time")).toObject());
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
