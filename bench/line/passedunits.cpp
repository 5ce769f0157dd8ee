#include "bench/line/passedunits.h"

#include "bench/common/jsonvalues.h"

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
    // In this order: what waits for the store may be in it a moment later, but never the
    // other way round.
    const QDateTime waiting = inWaiting(serialNumber);
    const std::optional<QDateTime> stored = m_store->whenPassed(m_plan, serialNumber, StoreLimitMs);
    return stored ? std::max(*stored, waiting) : inFolder(serialNumber);
}

/// What another fixture has tested just now.
QDateTime PassedUnits::inWaiting(const QString &serialNumber) const
{
    QDateTime last;
    const QStringList files = m_store->waiting();
    for (const QString &file : files)
        last = std::max(last, inRecord(file, serialNumber));
    return last;
}

QDateTime PassedUnits::inFolder(const QString &serialNumber) const
{
    QDateTime last;
    QDirIterator files(m_outDir, {QStringLiteral("record.json")}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext())
        last = std::max(last, inRecord(files.next(), serialNumber));
    return last;
}

/// When the unit has passed as a record says; invalid when it does not.
QDateTime PassedUnits::inRecord(const QString &path, const QString &serialNumber) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QDateTime();
    const QByteArray bytes = file.readAll();
    if (!bytes.contains(serialNumber.toUtf8())) // most are of other units
        return QDateTime();
    const QJsonObject record = QJsonDocument::fromJson(bytes).object();
    if (textIn(record, "serial_number") != serialNumber || textIn(record, "plan") != m_plan ||
        textIn(record, "outcome") != outcomeName(Outcome::Pass))
        return QDateTime();
    return QDateTime::fromString(textIn(record, "end"), Qt::ISODateWithMs);
}
