#include "bench/line/linerun.h"

#include "bench/line/afterunit.h"
#include "bench/line/fault.h"
#include "bench/line/jsontext.h"
#include "bench/line/realunit.h"
#include "bench/line/runner.h"
#include "bench/line/vmunit.h"

#include <QUuid>

#include <algorithm>

namespace
{

/// For changing the unit on the line; nobody waits longer.
const int NextUnitLimitMs = 3600000;

QString noOperator()
{
    return QStringLiteral("there is no operator: standard input is closed");
}

/// "on 2026-11-22 at 14:03".
QString shownTime(const QDateTime &time)
{
    return time.toLocalTime().toString(QStringLiteral("'on' yyyy-MM-dd 'at' HH:mm"));
}

} // namespace

LineRun::LineRun(const Plan &plan, const LineOptions &options, LineWatcher *watcher,
                 OperatorDesk *desk)
    : m_plan(plan), m_options(options), m_watcher(watcher), m_desk(desk),
      m_store(options.outDir, options.store), m_passed(plan.name, options.outDir, &m_store),
      m_operatorName(options.operatorName)
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
    const bool asks = asksAtOnce() || (!m_options.port.isEmpty() && wantsAnswers());
    if (asks && m_desk->isDeserted()) {
        *error = QStringLiteral("the plan asks an operator, and standard input is closed");
        return Outcome::Error;
    }
    if (!askOperator(error))
        return Outcome::Error;
    const bool isBatch = m_options.units > 1 || m_plan.retest.times > 0;
    if (m_options.part)
        m_folder.join(m_options.part->folder, isBatch);
    else if (!m_folder.create(m_options.outDir, isBatch, error))
        return Outcome::Error;
    runUnits(error);
    Outcome worst = error->isEmpty() ? Outcome::NotRun : Outcome::Error;
    const QList<bool> areLast = lastAttempts(m_records);
    for (int i = 0; i < m_records.size(); ++i) {
        const Outcome outcome = m_records.at(i).outcome;
        if (areLast.at(i))
            worst = std::max(worst, outcome == Outcome::NotRun ? Outcome::Error : outcome);
    }
    QString unwritten;
    if (m_options.part) { // the batch's process sums it up
        m_watcher->summary(m_records, QString());
    } else if (isBatch) {
        const bool written = m_folder.writeSummary(m_records, &unwritten);
        m_watcher->summary(m_records, written ? m_folder.path() : QString());
    }
    const QString stored =
        m_options.part ? m_store.complaint() : m_store.finish(StoreFeed::LimitMs);
    if (!stored.isEmpty())
        m_watcher->told(QStringLiteral("store"), stored);
    if (unwritten.isEmpty())
        return worst;
    *error = error->isEmpty() ? unwritten : *error + QStringLiteral("; ") + unwritten;
    return std::max(worst, Outcome::Error);
}

void LineRun::runUnits(QString *error)
{
    QString why;
    const int first = m_options.part ? m_options.part->unit : 1;
    const int last = m_options.part ? first : m_options.units;
    for (int number = first; number <= last; ++number) {
        if (why.isEmpty() && isInterrupted())
            why = m_options.interrupt->reason();
        m_serialNumber = m_options.countsUp ? countedUp(m_options.serialNumber, number - 1)
                                            : m_options.serialNumber;
        QString notThisOne;
        if (why.isEmpty() && identify(number, &notThisOne, &why) && notThisOne.isEmpty())
            connectNext(number, &why);
        if (isInterrupted() && !why.isEmpty())
            why = m_options.interrupt->reason();
        if (!why.isEmpty() || !notThisOne.isEmpty()) {
            leaveOut(number, why.isEmpty() ? notThisOne : why);
            continue;
        }
        runUnit(number, error);
        if (!error->isEmpty())
            why = QStringLiteral("the record of unit %1 could not be written").arg(number);
    }
}

/// Whether an operator is asked before anything is tested, even with virtual keypads.
bool LineRun::asksAtOnce() const
{
    return m_options.asksSerialNumber || (m_plan.wantsOperator && m_operatorName.isEmpty());
}

/// Whether there is an answer; *why is set when there is none.
bool LineRun::isAnswer(OperatorDesk::Reply reply, const QString &missing, QString *why) const
{
    if (reply == OperatorDesk::Yes || reply == OperatorDesk::No)
        return true;
    *why = reply == OperatorDesk::Nobody ? noOperator() : missing;
    if (reply == OperatorDesk::Interrupted && isInterrupted())
        *why = m_options.interrupt->reason();
    return false;
}

bool LineRun::askOperator(QString *error)
{
    while (m_plan.wantsOperator && m_operatorName.isEmpty()) {
        const OperatorDesk::Reply reply =
            m_desk->ask(QStringLiteral("Name of who is testing"), NextUnitLimitMs, &m_operatorName);
        if (!isAnswer(reply, QStringLiteral("nobody said who is testing"), error))
            return false;
    }
    return true;
}

/// Finds out the serial number of a unit.
/// @param notThisOne  set when this unit is not to be tested
/// @param why         set, with false, when no further one can be
bool LineRun::identify(int number, QString *notThisOne, QString *why)
{
    for (;;) {
        if (m_options.asksSerialNumber && !askSerialNumber(number, why))
            return false;
        QString refusal;
        if (!mayBeTested(&refusal, why))
            return false;
        if (refusal.isEmpty())
            return true;
        if (!m_options.asksSerialNumber) {
            *notThisOne = refusal;
            return true;
        }
    }
}

bool LineRun::askSerialNumber(int number, QString *why)
{
    QString text = QStringLiteral("Serial number");
    if (m_options.units > 1)
        text += QStringLiteral(" of unit %1 of %2").arg(number).arg(m_options.units);
    for (;;) {
        m_serialNumber.clear();
        if (!isAnswer(m_desk->ask(text, NextUnitLimitMs, &m_serialNumber),
                      QStringLiteral("nobody gave the serial number of unit %1").arg(number), why))
            return false;
        if (m_serialNumber.isEmpty())
            continue;
        if (m_plan.takesSerialNumber(m_serialNumber) &&
            !hasControlCharacters(m_serialNumber, false))
            return true;
        m_desk->tell(
            QStringLiteral("%1 is not a serial number of this plan.").arg(visible(m_serialNumber)));
    }
}

/// A unit that has passed before is tested again only if the operator says so.
/// @param refusal  set when the operator does not
bool LineRun::mayBeTested(QString *refusal, QString *why)
{
    const bool hasOperator = m_options.asksSerialNumber || !m_options.port.isEmpty();
    if (!hasOperator || m_serialNumber.isEmpty())
        return true;
    const QDateTime passed = m_passed.when(m_serialNumber);
    if (!passed.isValid())
        return true;
    const QString told =
        QStringLiteral("%1 has passed already, %2").arg(m_serialNumber, shownTime(passed));
    const OperatorDesk::Reply reply =
        m_desk->question(told + QStringLiteral(". Test it again?"), NextUnitLimitMs);
    if (reply == OperatorDesk::No)
        *refusal = told;
    return isAnswer(reply, told, why);
}

/// Whether a person has to do more than act.
bool LineRun::wantsAnswers() const
{
    const auto asks = [](const Plan::Step &step) {
        return !step.look.isEmpty() || step.isConfirmed();
    };
    return needsConnecting(m_options.units) ||
           std::any_of(m_plan.steps.begin(), m_plan.steps.end(), asks);
}

/// Every unit that was asked for counts, even if it was never begun.
void LineRun::leaveOut(int number, const QString &reason)
{
    UnitRecord record = newRecord(number);
    record.reason = reason;
    record.ended = true;
    m_records.append(record);
}

/// The first unit is there already.
bool LineRun::needsConnecting(int number) const
{
    return !m_options.port.isEmpty() && (m_options.part ? m_options.part->connects : number > 1);
}

bool LineRun::connectNext(int number, QString *error)
{
    if (!needsConnecting(number))
        return true;
    QString text = QStringLiteral("Connect unit %1 of %2").arg(number).arg(m_options.units);
    if (!m_serialNumber.isEmpty())
        text += QStringLiteral(", serial number %1").arg(m_serialNumber);
    return isAnswer(m_desk->confirm(text + QStringLiteral(", switched off."), NextUnitLimitMs),
                    QStringLiteral("nobody connected unit %1").arg(number), error);
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

UnitRecord LineRun::newRecord(int number, int attempt) const
{
    UnitRecord record;
    record.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    record.plan = m_plan.name;
    record.planTitle = m_plan.title;
    record.planFile = m_plan.file;
    record.planSha256 = m_plan.sha256;
    for (const Plan::Source &source : m_plan.includes)
        record.planIncludes.insert(source.file, source.sha256);
    record.variant = m_plan.variant;
    record.variables = m_plan.variables;
    record.number = number;
    record.attempt = attempt;
    record.serialNumber = m_serialNumber;
    record.operatorName = m_operatorName;
    record.station = m_options.station;
    record.fixture = m_options.fixture;
    record.benchVersion = QStringLiteral(MFTOOL_VERSION);
    const QList<const Fault *> faults = faultsOf(number);
    for (const Fault *fault : faults)
        record.faults.append(QLatin1String(fault->name));
    // A real unit does not say which tool it runs.
    if (m_options.port.isEmpty())
        record.toolVersion = QStringLiteral(MFTOOL_VERSION);
    record.start = record.end = QDateTime::currentDateTime();
    return record;
}

bool LineRun::isInterrupted() const
{
    return m_options.interrupt != nullptr && m_options.interrupt->isRaised();
}

/// All attempts at a unit.
void LineRun::runUnit(int number, QString *error)
{
    int attempt = 1;
    do
        runAttempt(number, attempt, error);
    while (error->isEmpty() && isTestedAgain(m_records.last(), attempt++));
}

bool LineRun::isTestedAgain(const UnitRecord &record, int attempt)
{
    const bool hasFailed = record.outcome == Outcome::Fail || record.outcome == Outcome::TimeOut ||
                           record.outcome == Outcome::Error;
    // One that could not be reached at all was not tested the first time.
    if (!hasFailed || record.steps.isEmpty() || attempt > m_plan.retest.times || isInterrupted())
        return false;
    if (!m_plan.retest.byHand)
        return true;
    const QString name = record.serialNumber.isEmpty()
                             ? QStringLiteral("Unit %1").arg(record.number)
                             : record.serialNumber;
    const QString text =
        QStringLiteral("%1: %2. Test it again?").arg(name, outcomeName(record.outcome));
    return m_desk->question(text, NextUnitLimitMs) == OperatorDesk::Yes;
}

void LineRun::runAttempt(int number, int attempt, QString *error)
{
    const std::unique_ptr<Unit> unit = makeUnit(number);
    UnitRecord record = newRecord(number, attempt);
    record.unit = unit->description();
    m_watcher->begin(m_plan, record, m_options.units);
    const QString dir = m_folder.unitPath(number, attempt);
    m_store.enter(RecordFolder::recordPath(dir));
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
    m_passed.note(record);
    const bool written = m_folder.write(record, station.transcript(), unit->log(), error);
    if (written)
        *error = station.transcript().logError();
    const QString lost = record.lostPicture();
    if (error->isEmpty() && !lost.isEmpty())
        *error = dir + QStringLiteral(": ") + lost;
    m_watcher->end(record, written ? dir : QString());
    tellOthers(dir);
}

/// What other programs do with a record does not change a verdict.
void LineRun::tellOthers(const QString &dir)
{
    m_store.release();
    if (!m_options.part) // the batch's process brings them
        m_store.bring();
    if (m_options.after.isEmpty())
        return;
    const QString failure = runAfterUnit(m_options.after, RecordFolder::recordPath(dir),
                                         DefaultAfterLimitMs, m_options.interrupt);
    if (!failure.isEmpty())
        m_watcher->told(QStringLiteral("after"), failure);
}

void LineRun::test(Unit *unit, Station *station, UnitRecord *record)
{
    if (!unit->attach(station, &record->reason)) {
        record->outcome = Outcome::Error;
        // If an interrupt ended it together with us, it did not fail by itself.
        if (isInterrupted()) {
            record->outcome = Outcome::Interrupted;
            record->reason = m_options.interrupt->reason();
        }
        record->ended = true;
        return;
    }
    RunOptions options;
    options.pictureDir = m_folder.unitPath(record->number, record->attempt);
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
