#include "bench/records/recordfile.h"

#include "bench/common/jsonvalues.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QUuid>

namespace
{

const char NotRun[] = "not run";

RecordFile::Measurement measurementFrom(const QJsonObject &object)
{
    RecordFile::Measurement measured;
    measured.name = textIn(object, "name");
    measured.value = numberIn(object, "value");
    measured.text = textIn(object, "value");
    measured.unit = textIn(object, "unit");
    measured.minimum = numberIn(object, "min");
    measured.maximum = numberIn(object, "max");
    measured.good = object.value(QLatin1String("good")).toBool();
    return measured;
}

RecordFile::Step stepFrom(const QJsonObject &object)
{
    RecordFile::Step step;
    step.number = object.value(QLatin1String("step")).toInt();
    step.name = textIn(object, "name");
    step.outcome = textIn(object, "outcome");
    step.seconds = object.value(QLatin1String("seconds")).toDouble();
    step.tries = object.value(QLatin1String("tries")).toInt();
    const QJsonArray measured = object.value(QLatin1String("measured")).toArray();
    for (const QJsonValue &each : measured)
        step.measured.append(measurementFrom(each.toObject()));
    return step;
}

/// "NAME=VALUE, NAME=VALUE" in the order of the names.
QString variantFrom(const QJsonObject &variables)
{
    QStringList parts;
    for (auto it = variables.begin(); it != variables.end(); ++it)
        parts.append(it.key() + QLatin1Char('=') + it.value().toVariant().toString());
    return parts.join(QStringLiteral(", "));
}

/// Records of an older bench have none, so it is made from what tells them apart.
QString madeId(const RecordFile &record, int number)
{
    const QString parts = QStringLiteral("%1\n%2\n%3\n%4\n%5")
                              .arg(record.station, record.plan, record.serialNumber)
                              .arg(record.start)
                              .arg(number);
    return QUuid::createUuidV5(QUuid(), parts).toString(QUuid::WithoutBraces);
}

/// The first step with the outcome of the whole decided.
QString failedStepOf(const RecordFile &record)
{
    if (record.outcome == QLatin1String("pass"))
        return QString();
    for (const RecordFile::Step &step : record.steps) {
        if (step.outcome == record.outcome)
            return step.name;
    }
    return QString();
}

} // namespace

std::optional<RecordFile> RecordFile::fromJson(const QByteArray &json, QString *error)
{
    QJsonParseError parsed;
    const QJsonObject object = QJsonDocument::fromJson(json, &parsed).object();
    if (parsed.error != QJsonParseError::NoError) {
        *error = parsed.errorString();
        return std::nullopt;
    }
    const QDateTime start = QDateTime::fromString(textIn(object, "start"), Qt::ISODateWithMs);
    if (!object.contains(QLatin1String("record")) || !start.isValid()) {
        *error = QStringLiteral("not a record of a unit");
        return std::nullopt;
    }

    RecordFile record;
    record.serialNumber = textIn(object, "serial_number");
    record.plan = textIn(object, "plan");
    record.title = textIn(object, "title");
    record.planSum = textIn(object, "plan_sha256");
    record.variant = textIn(object, "variant");
    if (record.variant.isEmpty())
        record.variant = variantFrom(object.value(QLatin1String("variables")).toObject());
    record.station = textIn(object, "station");
    record.fixture = textIn(object, "fixture");
    record.operatorName = textIn(object, "operator");
    record.unit = textIn(object, "unit");
    record.toolVersion = textIn(object, "tool_version");
    record.benchVersion = textIn(object, "bench_version");
    record.start = start.toMSecsSinceEpoch();
    record.day = start.date().toString(Qt::ISODate);
    record.seconds = object.value(QLatin1String("seconds")).toDouble();
    record.attempt = object.value(QLatin1String("attempt")).toInt(1);
    record.outcome = textIn(object, "outcome");
    if (!object.value(QLatin1String("ended")).toBool(true))
        record.outcome = notEnded();
    record.reason = textIn(object, "reason");
    const QJsonArray steps = object.value(QLatin1String("steps")).toArray();
    for (const QJsonValue &each : steps) {
        const Step step = stepFrom(each.toObject());
        if (step.outcome != QLatin1String(NotRun))
            record.steps.append(step);
    }
    record.failedStep = failedStepOf(record);
    record.id = textIn(object, "id");
    if (record.id.isEmpty())
        record.id = madeId(record, object.value(QLatin1String("number")).toInt());
    record.json = json;
    return record;
}

std::optional<RecordFile> RecordFile::load(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    std::optional<RecordFile> record = fromJson(file.readAll(), error);
    if (!record)
        *error = QStringLiteral("%1: %2").arg(path, *error);
    return record;
}
