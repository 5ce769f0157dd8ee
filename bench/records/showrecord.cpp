#include "bench/records/showrecord.h"

#include "bench/records/recordfile.h"

#include <QDateTime>
#include <QStringList>

namespace
{

QString shown(const RecordFile::Measurement &measured)
{
    const QString value =
        measured.value ? QString::number(*measured.value, 'g', 12) : measured.text;
    return QStringLiteral("%1 %2 %3").arg(measured.name, value, measured.unit).trimmed();
}

} // namespace

QString listLine(const ListedRecord &record)
{
    const QString time = QDateTime::fromMSecsSinceEpoch(record.start)
                             .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    QStringList parts = {
        time,           record.serialNumber.isEmpty() ? QStringLiteral("-") : record.serialNumber,
        record.outcome, record.plan,
        record.station, QString::number(record.seconds, 'f', 1) + QStringLiteral(" s")};
    if (!record.variant.isEmpty())
        parts.insert(4, record.variant);
    if (record.attempt > 1)
        parts.append(QStringLiteral("attempt %1").arg(record.attempt));
    if (!record.reason.isEmpty())
        parts.append(record.reason);
    return parts.join(QStringLiteral("  "));
}

QString stepLines(const QByteArray &json)
{
    QString error;
    const std::optional<RecordFile> record = RecordFile::fromJson(json, &error);
    if (!record)
        return error + QLatin1Char('\n');
    QString lines;
    for (const RecordFile::Step &step : record->steps) {
        QStringList values;
        for (const RecordFile::Measurement &measured : step.measured)
            values.append(shown(measured));
        lines += QStringLiteral("%1  %2  %3  %4 s  %5\n")
                     .arg(step.number, 4)
                     .arg(step.name.leftJustified(32), step.outcome.leftJustified(8))
                     .arg(step.seconds, 7, 'f', 2)
                     .arg(values.join(QStringLiteral(", ")));
    }
    return lines;
}
