#include "bench/line/linerun.h"

#include "bench/line/fault.h"
#include "bench/line/operatordesk.h"
#include "bench/line/realunit.h"
#include "bench/line/runner.h"

#include <algorithm>

namespace
{

/// For changing the unit on the line; nobody waits longer.
const int NextUnitLimitMs = 3600000;

} // namespace

LineRun::LineRun(const Plan &plan, const LineOptions &options, Console *console, OperatorDesk *desk)
    : m_plan(plan), m_options(options), m_console(console), m_desk(desk)
{
}

QString LineRun::countedUp(const QString &serialNumber, int by)
{
    if (by == 0 || serialNumber.isEmpty())
        return serialNumber;
    int digits = 0;
    while (digits < serialNumber.size() && digits < 9 &&
           serialNumber.at(serialNumber.size() - 1 - digits).isDigit())
        ++digits;
    if (digits == 0)
        return QStringLiteral("%1-%2").arg(serialNumber).arg(by + 1);
    const int number = serialNumber.right(digits).toInt() + by;
    return serialNumber.left(serialNumber.size() - digits) +
           QStringLiteral("%1").arg(number, digits, 10, QLatin1Char('0'));
}

Outcome LineRun::run(QString *error)
{
    if (!m_folder.create(m_options.outDir, m_options.units, error))
        return Outcome::Error;
    for (int number = 1; number <= m_options.units; ++number) {
        if (isInterrupted() || !connectNext(number, error))
            break;
        if (!runUnit(number, error))
            return Outcome::Error;
    }
    Outcome worst =
        static_cast<int>(m_records.size()) < m_options.units ? Outcome::Error : Outcome::NotRun;
    for (const UnitRecord &record : m_records)
        worst = std::max(worst, record.outcome);
    if (m_options.units > 1 && !m_records.isEmpty()) {
        if (!m_folder.writeSummary(m_records, error))
            return Outcome::Error;
        m_console->summary(m_records, m_folder.path());
    }
    return worst;
}

bool LineRun::connectNext(int number, QString *error)
{
    if (m_options.port.isEmpty() || number == 1)
        return true;
    const QString text =
        QStringLiteral("Connect unit %1 of %2, switched off.").arg(number).arg(m_options.units);
    if (m_desk->confirm(text, NextUnitLimitMs) == OperatorDesk::Yes)
        return true;
    *error = QStringLiteral("nobody connected unit %1").arg(number);
    return false;
}

QList<const Fault *> LineRun::faultsOf(int number) const
{
    return m_options.faults.value(0) + m_options.faults.value(number);
}

std::unique_ptr<Unit> LineRun::makeUnit(int number) const
{
    if (!m_options.port.isEmpty())
        return std::make_unique<RealUnit>(m_options.port, m_options.baudRate, m_desk);
    VirtualUnitOptions options;
    options.display = m_options.display;
    options.flashSeconds = m_options.flashSeconds;
    options.faults = faultsOf(number);
    return std::make_unique<VirtualUnit>(options);
}

UnitRecord LineRun::newRecord(int number) const
{
    UnitRecord record;
    record.plan = m_plan.name;
    record.planTitle = m_plan.title;
    record.planFile = m_plan.file;
    record.number = number;
    record.serialNumber = countedUp(m_options.serialNumber, number - 1);
    record.station = m_options.station;
    const QList<const Fault *> faults = faultsOf(number);
    for (const Fault *fault : faults)
        record.faults.append(QLatin1String(fault->name));
    // Which tool a real unit runs it does not tell.
    if (m_options.port.isEmpty())
        record.toolVersion = QStringLiteral(MFTOOL_VERSION);
    record.start = record.end = QDateTime::currentDateTime();
    return record;
}

bool LineRun::isInterrupted() const
{
    return m_options.interrupted != nullptr && *m_options.interrupted != 0;
}

bool LineRun::runUnit(int number, QString *error)
{
    const std::unique_ptr<Unit> unit = makeUnit(number);
    UnitRecord record = newRecord(number);
    record.unit = unit->description();
    m_console->begin(m_plan, record, m_options.units);
    const QString dir = m_folder.unitPath(number);
    Station station;
    if (!station.transcript().logTo(dir + QLatin1Char('/') + RecordFolder::transcriptName(), error))
        return false;
    if (unit->attach(&station, &record.reason)) {
        RunOptions options;
        options.pictureDir = dir;
        options.paceMs = m_options.paceMs;
        options.interrupted = m_options.interrupted;
        Runner(m_plan, unit.get(), &station, m_console, options).run(&record);
    } else {
        record.outcome = Outcome::Error;
        // What a keyboard's interrupt has ended with us did not fail by itself.
        if (isInterrupted())
            record.reason = QStringLiteral("interrupted");
    }
    m_records.append(record);
    const bool written = m_folder.write(record, station.transcript(), unit->log(), error);
    if (written)
        *error = station.transcript().logError();
    m_console->end(record, written ? dir : QString());
    return error->isEmpty();
}
