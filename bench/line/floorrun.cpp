#include "bench/line/floorrun.h"

#include "bench/line/afterunit.h"
#include "bench/line/interrupt.h"
#include "bench/line/recordreader.h"

#include <QJsonArray>
#include <QTimer>

#include <algorithm>

namespace
{

const int LookEveryMs = 50; ///< at the interrupt, which sends no event

} // namespace

FloorRun::FloorRun(const Plan &plan, const LineOptions &line, const FloorOptions &floor,
                   FloorWatcher *watcher)
    : m_plan(plan), m_line(line), m_floor(floor), m_watcher(watcher),
      m_maker(plan, line, nullptr, nullptr), m_store(line.outDir, line.store),
      m_places(static_cast<size_t>(floor.fixtures.size()))
{
    m_watcher->say = [this](int place, const QJsonObject &reply) {
        m_places.at(static_cast<size_t>(place)).fixture->say(reply);
    };
    m_watcher->hangUp = [this] {
        for (const Place &place : m_places)
            place.fixture->hangUp();
    };
    for (int i = 0; i < floor.fixtures.size(); ++i) {
        auto fixture = std::make_unique<Fixture>(floor.fixtures.at(i), floor.ports.value(i));
        connect(fixture.get(), &Fixture::heard, this,
                [this, i](const QJsonObject &event) { hear(i, event); });
        connect(fixture.get(), &Fixture::ended, this,
                [this, i](const QString &how) { end(i, how); });
        m_places.at(static_cast<size_t>(i)).fixture = std::move(fixture);
    }
}

bool FloorRun::isBatch() const
{
    return m_line.units > 1 || m_plan.retest.times > 0;
}

bool FloorRun::isInterrupted() const
{
    return m_line.interrupt != nullptr && m_line.interrupt->isRaised();
}

Outcome FloorRun::run(QString *error)
{
    if (!m_folder.create(m_line.outDir, isBatch(), error))
        return Outcome::Error;
    m_watcher->begin(m_plan, m_floor.fixtures, m_line.units);
    QTimer timer;
    connect(&timer, SIGNAL(timeout()), SLOT(passInterruptOn()));
    timer.start(LookEveryMs);
    for (int i = 0; i < m_floor.fixtures.size(); ++i)
        handOut(i);
    const auto isBusy = [](const Place &place) { return place.fixture->isBusy(); };
    while (std::any_of(m_places.begin(), m_places.end(), isBusy))
        m_loop.processEvents(QEventLoop::WaitForMoreEvents);
    return conclude(error);
}

/// The next unit, if there is one, to a fixture that is free.
void FloorRun::handOut(int index)
{
    Place &place = m_places.at(static_cast<size_t>(index));
    if (m_why.isEmpty() && isInterrupted())
        m_why = m_line.interrupt->reason();
    if (!m_why.isEmpty() || m_next > m_line.units)
        return;
    QStringList arguments = m_floor.arguments;
    arguments +=
        {QStringLiteral("--json"), QStringLiteral("--fixture=") + place.fixture->name(),
         QStringLiteral("--batch=") + m_folder.path(), QStringLiteral("--unit=%1").arg(m_next)};
    if (!place.fixture->port().isEmpty())
        arguments.append(QStringLiteral("--port=") + place.fixture->port());
    if (place.unit != 0) // the first one is there already
        arguments.append(QStringLiteral("--connect"));
    place.unit = m_next++;
    place.attempt = 1;
    place.isBegun = false;
    place.isDecided = false;
    place.fixture->start(arguments + QStringList{QStringLiteral("--"), m_floor.planFile});
}

void FloorRun::passInterruptOn()
{
    if (m_isPassedOn || !isInterrupted())
        return;
    m_isPassedOn = true;
    // Their output is still read; it is ours that broke.
    const int cause =
        m_line.interrupt->cause() == SIGPIPE ? Interrupt::OutputLost : m_line.interrupt->cause();
    for (const Place &place : m_places)
        place.fixture->signalTo(cause);
}

void FloorRun::hear(int index, const QJsonObject &event)
{
    Place &place = m_places.at(static_cast<size_t>(index));
    const QString name = event.value(QStringLiteral("event")).toString();
    if (name == QLatin1String("end")) {
        hearEnd(&place, event.value(QStringLiteral("error")).toString());
        return;
    }
    if (name == QLatin1String("summary")) {
        const QJsonObject unit = event.value(QStringLiteral("units")).toArray().at(0).toObject();
        if (place.isDecided)
            return;
        place.isDecided = true;
        leaveOut(place.unit, unit.value(QStringLiteral("reason")).toString());
        return;
    }
    if (name == QLatin1String("unit begun")) {
        place.attempt = event.value(QStringLiteral("attempt")).toInt(1);
        place.isBegun = true;
        place.isDecided = false;
    }
    if (name == QLatin1String("unit ended")) {
        place.isBegun = false;
        place.isDecided = true;
        m_records.append(recordFromJson(event.value(QStringLiteral("record")).toObject()));
        if (event.value(QStringLiteral("files")).toString().isEmpty() && m_why.isEmpty())
            m_why = QStringLiteral("the record of unit %1 could not be written").arg(place.unit);
    }
    m_watcher->heard(index, event);
}

/// @param error  why its run went wrong; empty when it did not
void FloorRun::hearEnd(Place *place, const QString &error)
{
    noteError(error);
    if (place->isDecided || place->isBegun || error.isEmpty())
        return;
    // It refused before it began, and so would the next one.
    place->isDecided = true;
    leaveOut(place->unit, error);
    if (m_why.isEmpty())
        m_why = error;
}

void FloorRun::end(int index, const QString &how)
{
    Place &place = m_places.at(static_cast<size_t>(index));
    m_watcher->idle(index);
    if (!place.isDecided && !place.isBegun && isInterrupted())
        leaveOut(place.unit, m_line.interrupt->reason());
    else if (!place.isDecided)
        concludeDead(index, how);
    place.isDecided = true;
    m_store.bring();
    handOut(index);
}

/// The process died before it gave a verdict: what it had saved becomes the record.
void FloorRun::concludeDead(int index, const QString &how)
{
    const Place &place = m_places.at(static_cast<size_t>(index));
    UnitRecord record = unknown(place.unit, place.attempt);
    record.fixture = place.fixture->name();
    record.unit = place.fixture->port();
    record.outcome = Outcome::Error;
    record.reason = QStringLiteral("the process that tested it: %1").arg(how);
    record.ended = true;
    const QString dir = m_folder.unitPath(place.unit, place.attempt);
    m_store.enter(RecordFolder::recordPath(dir));
    QString error;
    const bool written = m_folder.conclude(&record, &error);
    noteError(error);
    m_records.append(record);
    m_watcher->heard(index, {{QStringLiteral("event"), QStringLiteral("unit ended")},
                             {QStringLiteral("fixture"), record.fixture},
                             {QStringLiteral("unit"), record.number},
                             {QStringLiteral("attempt"), record.attempt},
                             {QStringLiteral("outcome"), outcomeName(record.outcome)},
                             {QStringLiteral("reason"), record.reason},
                             {QStringLiteral("files"), written ? dir : QString()},
                             {QStringLiteral("record"), toJson(record)}});
    if (written)
        tellOthers(index, dir);
    else if (m_why.isEmpty())
        m_why = QStringLiteral("the record of unit %1 could not be written").arg(place.unit);
}

/// What the process of a unit would have done itself.
void FloorRun::tellOthers(int index, const QString &dir)
{
    m_store.release();
    if (m_line.after.isEmpty())
        return;
    const QString failure = runAfterUnit(m_line.after, RecordFolder::recordPath(dir),
                                         DefaultAfterLimitMs, m_line.interrupt);
    if (!failure.isEmpty())
        m_watcher->heard(index, {{QStringLiteral("event"), QStringLiteral("note")},
                                 {QStringLiteral("fixture"),
                                  m_places.at(static_cast<size_t>(index)).fixture->name()},
                                 {QStringLiteral("about"), QStringLiteral("after")},
                                 {QStringLiteral("text"), failure}});
}

/// For a unit that no process has reported.
UnitRecord FloorRun::unknown(int number, int attempt) const
{
    UnitRecord record = m_maker.newRecord(number, attempt);
    record.serialNumber =
        m_line.countsUp ? LineRun::countedUp(m_line.serialNumber, number - 1) : m_line.serialNumber;
    return record;
}

void FloorRun::noteError(const QString &error)
{
    if (error.isEmpty() || m_error.contains(error))
        return;
    m_error += m_error.isEmpty() ? error : QStringLiteral("; ") + error;
}

/// Every unit that was asked for counts, even if it was never begun.
void FloorRun::leaveOut(int number, const QString &reason)
{
    UnitRecord record = unknown(number);
    record.reason = reason;
    record.ended = true;
    m_records.append(record);
}

Outcome FloorRun::conclude(QString *error)
{
    if (m_why.isEmpty() && isInterrupted())
        m_why = m_line.interrupt->reason();
    for (int number = m_next; number <= m_line.units; ++number)
        leaveOut(number, m_why);
    std::stable_sort(m_records.begin(), m_records.end(),
                     [](const UnitRecord &a, const UnitRecord &b) { return a.number < b.number; });
    QString unwritten;
    const bool written = !isBatch() || m_folder.writeSummary(m_records, &unwritten);
    if (isBatch())
        m_watcher->summary(m_records, written ? m_folder.path() : QString());
    noteError(unwritten);
    const QString stored = m_store.finish(StoreFeed::LimitMs);
    if (!stored.isEmpty())
        m_watcher->told(QStringLiteral("store"), stored);
    *error = m_error;
    Outcome worst = m_error.isEmpty() ? Outcome::NotRun : Outcome::Error;
    const QList<bool> areLast = lastAttempts(m_records);
    for (int i = 0; i < m_records.size(); ++i) {
        const Outcome outcome = m_records.at(i).outcome;
        if (areLast.at(i))
            worst = std::max(worst, outcome == Outcome::NotRun ? Outcome::Error : outcome);
    }
    return worst;
}
