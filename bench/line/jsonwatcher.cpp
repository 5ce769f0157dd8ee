#include "bench/line/jsonwatcher.h"

#include <QJsonArray>

void JsonWatcher::begin(const Plan &plan, const UnitRecord &unit, int units)
{
    m_unit = unit.number;
    m_stream->say("unit begun",
                  {{QStringLiteral("unit"), unit.number},
                   {QStringLiteral("attempt"), unit.attempt},
                   {QStringLiteral("units"), units},
                   {QStringLiteral("title"), plan.title},
                   {QStringLiteral("steps"), static_cast<int>(plan.steps.size())},
                   {QStringLiteral("on"), unit.unit},
                   {QStringLiteral("serial_number"), unit.serialNumber},
                   {QStringLiteral("faults"), QJsonArray::fromStringList(unit.faults)}});
}

void JsonWatcher::stepStarted(const Plan::Step &step, int number)
{
    m_step = number;
    m_stream->say("step started", {{QStringLiteral("unit"), m_unit},
                                   {QStringLiteral("step"), number},
                                   {QStringLiteral("name"), step.name}});
}

void JsonWatcher::progressed(const QString &text)
{
    m_stream->say("progress", {{QStringLiteral("unit"), m_unit},
                               {QStringLiteral("step"), m_step},
                               {QStringLiteral("text"), text}});
}

void JsonWatcher::stepEnded(const StepRecord &step)
{
    m_stream->say("step ended", {{QStringLiteral("unit"), m_unit},
                                 {QStringLiteral("step"), step.number},
                                 {QStringLiteral("name"), step.name},
                                 {QStringLiteral("outcome"), outcomeName(step.outcome)},
                                 {QStringLiteral("seconds"), step.seconds},
                                 {QStringLiteral("value"), step.value()},
                                 {QStringLiteral("reason"), step.reason}});
}

void JsonWatcher::end(const UnitRecord &unit, const QString &files)
{
    m_stream->say("unit ended", {{QStringLiteral("unit"), unit.number},
                                 {QStringLiteral("attempt"), unit.attempt},
                                 {QStringLiteral("outcome"), outcomeName(unit.outcome)},
                                 {QStringLiteral("reason"), unit.reason},
                                 {QStringLiteral("files"), files},
                                 {QStringLiteral("record"), toJson(unit)}});
}

void JsonWatcher::summary(const QList<UnitRecord> &units, const QString &files)
{
    QJsonArray list;
    for (const UnitRecord &unit : units) {
        list.append(QJsonObject{{QStringLiteral("unit"), unit.number},
                                {QStringLiteral("attempt"), unit.attempt},
                                {QStringLiteral("serial_number"), unit.serialNumber},
                                {QStringLiteral("outcome"), outcomeName(unit.outcome)},
                                {QStringLiteral("reason"), unit.reason},
                                {QStringLiteral("seconds"), unit.seconds()}});
    }
    m_stream->say("summary", {{QStringLiteral("units"), list},
                              {QStringLiteral("passed"), Yield::of(units).finalPass},
                              {QStringLiteral("files"), files}});
}

void JsonWatcher::told(const QString &about, const QString &text)
{
    m_stream->say("note", {{QStringLiteral("about"), about}, {QStringLiteral("text"), text}});
}
