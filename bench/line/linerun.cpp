#include "bench/line/linerun.h"

#include "bench/line/fault.h"
#include "bench/line/operatordesk.h"
#include "bench/line/realunit.h"
#include "bench/line/runner.h"
#include "bench/line/vmunit.h"

#include <algorithm>

namespace
{

/// For changing the unit on the line; nobody waits longer.
const int NextUnitLimitMs = 3600000;

} // namespace

LineRun::LineRun(const Plan &plan, const LineOptions &options, LineWatcher *watcher,
                 OperatorDesk *desk)
    : m_plan(plan), m_options(options), m_watcher(watcher), m_desk(desk)
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
    if (!m_options.port.isEmpty() && wantsAnswers() && m_desk->isDeserted()) {
        *error = QStringLiteral("the plan asks an operator, and standard input is closed");
        return Outcome::Error;
    }
    if (!m_folder.create(m_options.outDir, m_options.units, error))
        return Outcome::Error;
    runUnits(error);
    Outcome worst = error->isEmpty() ? Outcome::NotRun : Outcome::Error;
    for (const UnitRecord &record : m_records) {
        const bool wasTested = record.outcome != Outcome::NotRun;
        worst = std::max(worst, wasTested ? record.outcome : Outcome::Error);
    }
    if (m_options.units == 1)
        return worst;
    QString unwritten;
    const bool written = m_folder.writeSummary(m_records, &unwritten);
    m_watcher->summary(m_records, written ? m_folder.path() : QString());
    if (written)
        return worst;
    *error = error->isEmpty() ? unwritten : *error + QStringLiteral("; ") + unwritten;
    return std::max(worst, Outcome::Error);
}

void LineRun::runUnits(QString *error)
{
    QString why;
    for (int number = 1; number <= m_options.units; ++number) {
        if (why.isEmpty() && isInterrupted())
            why = m_options.interrupt->reason();
        if (why.isEmpty() && !connectNext(number, &why) && isInterrupted())
            why = m_options.interrupt->reason();
        if (!why.isEmpty()) {
            leaveOut(number, why);
            continue;
        }
        runUnit(number, error);
        if (!error->isEmpty())
            why = QStringLiteral("the record of unit %1 could not be written").arg(number);
    }
}

/// Whether a person has more to do than to act.
bool LineRun::wantsAnswers() const
{
    const auto asks = [](const Plan::Step &step) {
        return !step.look.isEmpty() || step.isConfirmed();
    };
    return m_options.units > 1 || std::any_of(m_plan.steps.begin(), m_plan.steps.end(), asks);
}

/// Every unit that was asked for counts, those that nobody came to as well.
void LineRun::leaveOut(int number, const QString &reason)
{
    UnitRecord record = newRecord(number);
    record.reason = reason;
    record.ended = true;
    m_records.append(record);
}

bool LineRun::connectNext(int number, QString *error)
{
    if (m_options.port.isEmpty() || number == 1)
        return true;
    const QString text =
        QStringLiteral("Connect unit %1 of %2, switched off.").arg(number).arg(m_options.units);
    switch (m_desk->confirm(text, NextUnitLimitMs)) {
    case OperatorDesk::Yes:
        return true;
    case OperatorDesk::Nobody:
        *error = QStringLiteral("there is no operator: standard input is closed");
        return false;
    default:
        *error = QStringLiteral("nobody connected unit %1").arg(number);
        return false;
    }
}

QList<const Fault *> LineRun::faultsOf(int number) const
{
    return m_options.faults.value(0) + m_options.faults.value(number);
}

std::unique_ptr<Unit> LineRun::makeUnit(int number) const
{
    if (!m_options.port.isEmpty())
        return std::make_unique<RealUnit>(m_options.port, m_options.baudRate, m_desk);
    if (m_options.board) {
        VmBoardOptions options = *m_options.board;
        options.isInterrupted = [this] { return isInterrupted(); };
        return std::make_unique<VmUnit>(options, faultsOf(number));
    }
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
    record.fixture = m_options.fixture;
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
    return m_options.interrupt != nullptr && m_options.interrupt->isRaised();
}

void LineRun::runUnit(int number, QString *error)
{
    const std::unique_ptr<Unit> unit = makeUnit(number);
    UnitRecord record = newRecord(number);
    record.unit = unit->description();
    m_watcher->begin(m_plan, record, m_options.units);
    const QString dir = m_folder.unitPath(number);
    Station station;
    if (!station.transcript().logTo(dir + QLatin1Char('/') + RecordFolder::transcriptName(),
                                    error) ||
        !m_folder.keep(record, error)) {
        record.reason = *error; // what cannot be recorded is not begun
        record.ended = true;
        m_watcher->end(record, QString());
        m_records.append(record);
        return;
    }
    test(unit.get(), &station, &record);
    m_records.append(record);
    const bool written = m_folder.write(record, station.transcript(), unit->log(), error);
    if (written)
        *error = station.transcript().logError();
    const QString lost = record.lostPicture();
    if (error->isEmpty() && !lost.isEmpty())
        *error = dir + QStringLiteral(": ") + lost;
    m_watcher->end(record, written ? dir : QString());
}

void LineRun::test(Unit *unit, Station *station, UnitRecord *record)
{
    if (!unit->attach(station, &record->reason)) {
        record->outcome = Outcome::Error;
        // What an interrupt has ended with us did not fail by itself.
        if (isInterrupted()) {
            record->outcome = Outcome::Interrupted;
            record->reason = m_options.interrupt->reason();
        }
        record->ended = true;
        return;
    }
    RunOptions options;
    options.pictureDir = m_folder.unitPath(record->number);
    options.paceMs = m_options.paceMs;
    options.interrupt = m_options.interrupt;
    options.keep = [this](const UnitRecord &soFar) {
        QString error; // the disk may have room again when it is written for good
        m_folder.keep(soFar, &error);
    };
    Runner(m_plan, unit, station, m_watcher, options).run(record);
    const QString missed = unit->missedFault();
    if (missed.isEmpty() || record->outcome >= Outcome::Error)
        return;
    record->outcome = Outcome::Error;
    record->reason = missed;
}
