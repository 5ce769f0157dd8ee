#include "bench/line/passedunits.h"

#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace
{

const int StoreLimitMs = 2000; ///< an operator waits for it

} // namespace

void PassedUnits::note(const UnitRecord &record)
{
    if (record.outcome == Outcome::Pass && !record.serialNumber.isEmpty())
        m_noted.insert(record.serialNumber, record.end);
}

QDateTime PassedUnits::when(const QString &serialNumber) const
{
    const QDateTime noted = m_noted.value(serialNumber);
    if (noted.isValid())
        return noted;
    const std::optional<QDateTime> stored = m_store->whenPassed(m_plan, serialNumber, StoreLimitMs);
    return stored ? *stored : inFolder(serialNumber);
}

QDateTime PassedUnits::inFolder(const QString &serialNumber) const
{
    QDateTime last;
    const QByteArray number = serialNumber.toUtf8();
    QDirIterator files(m_outDir, {QStringLiteral("record.json")}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray bytes = file.readAll();
        if (!bytes.contains(number)) // most are of other units
            continue;
        const QJsonObject record = QJsonDocument::fromJson(bytes).object();
        const auto text = [&record](const char *key) {
            return record.value(QLatin1String(key)).toString();
        };
        if (text("serial_number") == serialNumber && text("plan") == m_plan &&
            text("outcome") == outcomeName(Outcome::Pass))
            last = std::max(last, QDateTime::fromString(text("end"), Qt::ISODateWithMs));
    }
    return last;
}
