#include "bench/line/runner.h"

#include "bench/line/recordfolder.h"
#include "bench/station/escape.h"
#include "bench/station/messages.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>

namespace
{

const int SliceMs = 50;      ///< between two looks at what sends no event
const int CheckEveryMs = 10; ///< between two looks at the board
const int SettleMs = 200;    ///< of silence end a failed attempt
const int LongestSettleMs = 1000;
const int MostWordsKept = 20; ///< of a unit that does not stop talking
const int LastWordsMs = 100;  ///< what a tool said before it ended has come by then

QString seconds(qint64 milliseconds)
{
    return QStringLiteral("%1 s").arg(static_cast<double>(milliseconds) / 1000);
}

QString joined(const QList<Plan::Expected> &expected, int from)
{
    QStringList all;
    for (int i = from; i < expected.size(); ++i)
        all.append(expected.at(i).describe());
    return all.join(QStringLiteral(", then "));
}

} // namespace

/// One try of a step.
struct Runner::Attempt {
    AttemptRecord *record = nullptr;
    QDeadlineTimer deadline;
    qint64 limitMs = 0;
    bool heard = false; ///< anything came
    bool alone = false; ///< nobody was there to act
    int answers = 0;    ///< to a poll
    int risen = 0;      ///< the rising field's last value
    QByteArray last;    ///< data of the last answer
    QElapsedTimer same; ///< since when it has been the same

    bool fail(Outcome outcome, const QString &reason)
    {
        record->outcome = outcome;
        record->reason = reason;
        return false;
    }

    bool differs(const QString &expected, const QString &came, const QByteArray &raw)
    {
        record->expected = expected;
        record->came = came;
        record->raw = escaped(raw);
        return fail(Outcome::Fail, QStringLiteral("expected %1; came %2").arg(expected, came));
    }
};

Runner::Runner(const Plan &plan, Unit *unit, Station *station, RunWatcher *watcher,
               const RunOptions &options)
    : m_plan(plan), m_unit(unit), m_station(station), m_watcher(watcher), m_options(options)
{
    connect(station, SIGNAL(received(Station::Received)), SLOT(take(Station::Received)));
}

void Runner::take(const Station::Received &received)
{
    m_inbox.push_back(received);
}

bool Runner::isInterrupted() const
{
    return m_options.interrupt != nullptr && m_options.interrupt->isRaised();
}

void Runner::pause(const QDeadlineTimer &deadline)
{
    const qint64 left = std::min<qint64>(SliceMs, deadline.remainingTime());
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    timer.start(static_cast<int>(std::max<qint64>(1, left)));
    QEventLoop().processEvents(QEventLoop::WaitForMoreEvents);
}

/// What comes next; nothing when the limit passed, the line failed, the tool ended or the
/// run was interrupted. A limit that passes in the middle of a frame does not cut it
/// short, unless the rest does not follow.
std::optional<Station::Received> Runner::next(const QDeadlineTimer &deadline)
{
    QDeadlineTimer limit = deadline;
    bool extended = false;
    for (;;) {
        m_station->clear();
        if (!m_inbox.empty()) {
            const Station::Received received = m_inbox.front();
            m_inbox.pop_front();
            return received;
        }
        if (!m_station->isOpen() || m_station->isHungUp() || isInterrupted())
            return std::nullopt;
        const bool ended = !m_unit->end().isEmpty();
        if (!limit.hasExpired() && !(ended && !extended)) {
            pause(limit);
        } else if (!extended && (ended || !m_station->pending().isEmpty())) {
            extended = true;
            limit.setRemainingTime(LastWordsMs);
        } else if (!m_station->pending().isEmpty()) {
            m_station->receive(1); // hands over what there is as damaged
        } else {
            return std::nullopt;
        }
    }
}

void Runner::run(UnitRecord *record)
{
    record->start = QDateTime::currentDateTime();
    m_time.start();
    m_station->clear();
    m_inbox.clear();
    m_points.clear();
    QString interruptedBefore;
    for (int i = 0; i < m_plan.steps.size(); ++i) {
        const Plan::Step &step = m_plan.steps.at(i);
        if (m_over.isEmpty() && isInterrupted()) {
            m_over = m_options.interrupt->reason();
            interruptedBefore =
                QStringLiteral("before step %1 \"%2\": %3").arg(i + 1).arg(step.name, m_over);
        }
        if (m_over.isEmpty()) {
            record->steps.append(runStep(step, i + 1));
            keep(record);
            if (m_options.paceMs > 0 && m_over.isEmpty() && i + 1 < m_plan.steps.size()) {
                const QDeadlineTimer pace(m_options.paceMs);
                while (!pace.hasExpired() && !isInterrupted())
                    pause(pace);
            }
            continue;
        }
        StepRecord skipped;
        skipped.number = i + 1;
        skipped.name = step.name;
        skipped.group = step.group;
        skipped.reason = m_over;
        record->steps.append(skipped);
        m_watcher->stepEnded(skipped);
    }
    record->end = QDateTime::currentDateTime();
    record->time = m_time.spent();
    record->conclude();
    if (interruptedBefore.isEmpty())
        return;
    record->outcome = Outcome::Interrupted;
    record->reason = interruptedBefore;
}

void Runner::keep(UnitRecord *record)
{
    record->end = QDateTime::currentDateTime();
    record->time = m_time.spent();
    if (m_options.keep)
        m_options.keep(*record);
}

StepRecord Runner::runStep(const Plan::Step &step, int number)
{
    m_watcher->stepStarted(step, number);
    m_station->transcript().note(QStringLiteral("step %1: %2").arg(number).arg(step.name));
    StepRecord record;
    record.number = number;
    record.name = step.name;
    record.group = step.group;
    QElapsedTimer clock;
    clock.start();
    Attempt attempt;
    for (;;) {
        attempt = Attempt();
        record.attempts.append(tryStep(step, &attempt));
        ++record.tries;
        static_cast<AttemptRecord &>(record) = record.attempts.last();
        const bool again = record.outcome == Outcome::Fail || record.outcome == Outcome::TimeOut;
        if (!again || record.tries == step.tries)
            break;
        if (isInterrupted()) {
            record.outcome = Outcome::Interrupted;
            record.reason = m_options.interrupt->reason();
            break;
        }
    }
    record.start = record.attempts.first().start;
    record.seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    takePicture(step, &record);

    if (record.outcome >= Outcome::Error)
        m_over = record.reason;
    else if (record.outcome == Outcome::TimeOut && !attempt.heard)
        m_over = QStringLiteral("the %1 gave no sign in step %2")
                     .arg(QLatin1String(attempt.alone ? "operator" : "unit"))
                     .arg(number);
    else if (record.outcome > Outcome::Pass && step.required)
        m_over = QStringLiteral("step %1 is required").arg(number);
    m_watcher->stepEnded(record);
    return record;
}

AttemptRecord Runner::tryStep(const Plan::Step &step, Attempt *attempt)
{
    AttemptRecord record;
    if (step.request)
        record.sent = wire::meaningOf(*step.request).text;
    else if (!step.raw.isEmpty())
        record.sent = QString::fromLatin1(escaped(step.raw));
    record.start = QDateTime::currentDateTime();
    record.outcome = Outcome::Pass;
    QElapsedTimer clock;
    clock.start();
    attempt->record = &record;
    this->attempt(step, attempt);
    // What an interrupt has cut short may look like a failure of the unit.
    if (record.outcome != Outcome::Pass && isInterrupted())
        attempt->fail(Outcome::Interrupted, m_options.interrupt->reason());
    else if (record.outcome != Outcome::Pass)
        settle(attempt);
    else if (!hasTested(step, record))
        attempt->fail(Outcome::NotRun, QStringLiteral("not tested: nobody could look"));
    record.seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    attempt->record = nullptr;
    return record;
}

void Runner::attempt(const Plan::Step &step, Attempt *attempt)
{
    m_station->clear();
    if (!m_inbox.empty()) {
        const Station::Received first = m_inbox.front();
        m_inbox.clear();
        attempt->heard = true;
        attempt->record->received.append(first.describe());
        attempt->differs(QStringLiteral("nothing before the step"), first.describe(), first.raw);
        return;
    }
    m_unit->beginStep();
    if (!operate(step, attempt))
        return;
    attempt->limitMs = m_unit->limitFor(step.limitMs);
    if (step.operation && m_unit->hasOperator())
        attempt->limitMs += m_plan.operatorLimitMs + step.operation->bootMs;
    attempt->deadline.setRemainingTime(attempt->limitMs);
    if (!send(step, attempt))
        return;
    const bool came = step.poll ? expectPolling(step, attempt) : expectFrames(step, attempt);
    if (came && checkPoints(step, attempt) && runChecks(step, attempt) && look(step, attempt))
        keepsQuiet(step, attempt);
}

bool Runner::operate(const Plan::Step &step, Attempt *attempt)
{
    if (!step.operation)
        return true;
    if (m_station->isHungUp()) // a person need not act for nothing
        return attempt->fail(Outcome::Error, QStringLiteral("the line hung up"));
    const TimeBook::Visit visit(&m_time, handShare());
    QString error;
    const Unit::Done done =
        m_unit->operate(*step.operation, step.isConfirmed(), m_plan.operatorLimitMs, &error);
    attempt->record->notes.append(step.operation->ask);
    if (done == Unit::Performed)
        return true;
    attempt->alone = true;
    return attempt->fail(done == Unit::TooLate ? Outcome::TimeOut : Outcome::Error, error);
}

/// Whose time it counts as when somebody acts or looks.
TimeBook::Share Runner::handShare() const
{
    return m_unit->hasOperator() ? TimeBook::Operator : TimeBook::Bench;
}

bool Runner::send(const Plan::Step &step, Attempt *attempt)
{
    if (step.request)
        return sent(m_station->send(step.request->type, step.request->data), attempt);
    return step.raw.isEmpty() || sent(m_station->sendRaw(step.raw), attempt);
}

bool Runner::sent(bool good, Attempt *attempt)
{
    return good ||
           attempt->fail(Outcome::Error, m_station->isHungUp() ? QStringLiteral("the line hung up")
                                                               : m_station->errorString());
}

/// Why what was expected did not come.
bool Runner::missing(const QString &expected, Attempt *attempt)
{
    attempt->record->expected = expected;
    attempt->record->came = QStringLiteral("nothing");
    const QString end = m_unit->end();
    if (!end.isEmpty())
        return attempt->fail(Outcome::Error, end);
    if (!m_station->isOpen() || m_station->isHungUp())
        return attempt->fail(Outcome::Error, QStringLiteral("the line hung up"));
    return attempt->fail(
        Outcome::TimeOut,
        QStringLiteral("expected %1; nothing came in %2").arg(expected, seconds(attempt->limitMs)));
}

bool Runner::expectFrames(const Plan::Step &step, Attempt *attempt)
{
    // When a person acts without saying so, the first frame shows it.
    const bool isHand = step.operation && !step.request && step.raw.isEmpty();
    for (int i = 0; i < step.expected.size(); ++i) {
        const TimeBook::Visit visit(&m_time, isHand && i == 0 && m_unit->hasOperator()
                                                 ? TimeBook::Operator
                                                 : TimeBook::Tool);
        const std::optional<Station::Received> received = next(attempt->deadline);
        if (!received)
            return missing(joined(step.expected, i), attempt);
        if (!compare(step.expected.at(i), *received, attempt))
            return false;
    }
    return true;
}

bool Runner::compare(const Plan::Expected &expected, const Station::Received &received,
                     Attempt *attempt)
{
    AttemptRecord *record = attempt->record;
    attempt->heard = true;
    record->received.append(received.describe());
    const auto differs = [&] {
        return attempt->differs(expected.describe(), received.describe(), received.raw);
    };
    if (!expected.isFrame) {
        const QString line = QString::fromLatin1(received.line());
        if (received.kind != Station::Received::Text ||
            (expected.text && !matches(*expected.text, line)))
            return differs();
        return true;
    }
    if (!received.isFrame() || received.frame.type != expected.type)
        return differs();
    takeCalibrationPoint(received.frame, &m_points);
    const wire::Meaning meaning = wire::meaningOf(received.frame);
    const bool measured = measure(expected.fields, meaning, &record->measured);
    const bool fits = expected.text
                          ? matches(*expected.text, QString::fromLatin1(received.frame.data))
                          : meaning.complaint.isEmpty();
    return (measured && fits) || differs();
}

/// @return whether all of them are within their limits
bool Runner::measure(const QList<Plan::Limit> &limits, const wire::Meaning &meaning,
                     QList<Measurement> *measured)
{
    bool good = true;
    for (const Plan::Limit &limit : limits) {
        Measurement measurement;
        measurement.name = limit.field;
        measurement.unit = limit.unit;
        measurement.min = limit.min;
        measurement.max = limit.max;
        measurement.limits = limit.describe();
        measurement.value = meaning.fields.value(limit.field);
        bool isNumber = false;
        const double number = measurement.value.toDouble(&isNumber);
        if (limit.text)
            measurement.good =
                measurement.value.isValid() && matches(*limit.text, measurement.value.toString());
        else
            measurement.good = isNumber && number >= limit.min.value_or(number) &&
                               number <= limit.max.value_or(number);
        good = good && measurement.good;
        measured->append(measurement);
    }
    return good;
}

/// Sends the poll's request again and again, one at a time, until all that the step
/// expects has come. The last request may be answered with NA, because what it asks about
/// has just ended.
bool Runner::expectPolling(const Plan::Step &step, Attempt *attempt)
{
    const Plan::Poll &poll = *step.poll;
    const std::optional<wire::Answers> answers = wire::answersTo(poll.request.type);
    const quint16 answerType = answers ? answers->reply : quint16(0);
    const bool isFlash = wire::typeNamed(QStringLiteral("flash status")) == answerType;
    const TimeBook::Visit visit(&m_time, isFlash ? TimeBook::Flash : TimeBook::Tool);
    QDeadlineTimer ask(0);
    bool asked = false;
    int came = 0;
    while (came < step.expected.size() || asked) {
        // What has come already may be the end of what the poll asks about.
        m_station->clear();
        if (!asked && m_inbox.empty() && ask.hasExpired()) {
            if (!sent(m_station->send(poll.request.type, poll.request.data), attempt))
                return false;
            asked = true;
            ask.setRemainingTime(poll.everyMs);
        }
        const std::optional<Station::Received> received =
            next(asked ? attempt->deadline : std::min(attempt->deadline, ask));
        if (!received && !asked && !attempt->deadline.hasExpired() && !isInterrupted() &&
            m_station->isOpen() && !m_station->isHungUp() && m_unit->end().isEmpty())
            continue;
        if (!received)
            return missing(came < step.expected.size() ? joined(step.expected, came)
                                                       : wire::typeName(answerType),
                           attempt);
        const bool isLate = asked && came == step.expected.size();
        if (asked && received->isFrame() && received->frame.type == answerType) {
            asked = false;
            if (!takeAnswer(poll, received->frame, attempt))
                return false;
        } else if (isLate && received->isFrame() && received->frame.type == wire::NotApplicable) {
            asked = false;
        } else if (came == step.expected.size()) {
            return attempt->differs(wire::typeName(answerType), received->describe(),
                                    received->raw);
        } else if (!compare(step.expected.at(came++), *received, attempt)) {
            return false;
        }
    }
    if (attempt->answers >= poll.atLeast)
        return true;
    return attempt->differs(QStringLiteral("at least %1 answers while waiting").arg(poll.atLeast),
                            QString::number(attempt->answers), QByteArray());
}

/// One answer to a poll; each must be right by itself.
bool Runner::takeAnswer(const Plan::Poll &poll, const wire::Frame &frame, Attempt *attempt)
{
    attempt->heard = true;
    ++attempt->answers;
    const wire::Meaning meaning = wire::meaningOf(frame);
    m_watcher->progressed(meaning.text);
    const int rising = meaning.fields.value(poll.rising).toInt();
    QList<Measurement> measured;
    if (!meaning.complaint.isEmpty() || !measure(poll.fields, meaning, &measured)) {
        attempt->record->measured += measured;
        QStringList wanted;
        for (const Plan::Limit &limit : poll.fields)
            wanted.append(limit.field + QLatin1Char(' ') + limit.describe());
        return attempt->differs(wanted.join(QStringLiteral(", ")), meaning.text, frame.data);
    }
    if (!poll.rising.isEmpty() && rising < attempt->risen)
        return attempt->differs(
            QStringLiteral("%1 at least %2, as before").arg(poll.rising).arg(attempt->risen),
            meaning.text, frame.data);
    attempt->risen = rising;
    if (frame.data != attempt->last)
        attempt->same.start();
    attempt->last = frame.data;
    const int stallMs = m_unit->limitFor(poll.stallMs);
    if (stallMs == 0 || attempt->same.elapsed() < stallMs)
        return true;
    attempt->record->expected = QStringLiteral("progress every %1").arg(seconds(stallMs));
    attempt->record->came = meaning.text;
    return attempt->fail(
        Outcome::TimeOut,
        QStringLiteral("no progress in %1, still %2").arg(seconds(stallMs), meaning.text));
}

bool Runner::checkPoints(const Plan::Step &step, Attempt *attempt)
{
    if (!step.calibration)
        return true;
    const CalibrationResult result =
        checkCalibration(m_points, *step.calibration, m_unit->hasOperator());
    attempt->record->measured.append(result.error);
    return result.complaint.isEmpty() ||
           attempt->differs(QStringLiteral("calibration error ") + result.error.limits,
                            result.complaint, QByteArray());
}

bool Runner::runChecks(const Plan::Step &step, Attempt *attempt)
{
    if (step.checks.isEmpty())
        return true;
    const TimeBook::Visit visit(&m_time, TimeBook::Tool);
    bool good = true;
    for (const Plan::Check &check : step.checks) {
        good = runCheck(check, attempt) && good;
        if (isInterrupted() && !good)
            break;
    }
    return good;
}

bool Runner::runCheck(const Plan::Check &check, Attempt *attempt)
{
    CheckRecord record;
    record.what = check.describe();
    record.brief = check.brief();
    Unit::Difference difference;
    Unit::Finding finding = m_unit->check(check, &difference);
    // Once the step has failed nothing is waited for.
    while (finding == Unit::NotYet && attempt->record->outcome == Outcome::Pass &&
           !attempt->deadline.hasExpired() && !isInterrupted()) {
        pause(std::min(attempt->deadline, QDeadlineTimer(CheckEveryMs)));
        finding = m_unit->check(check, &difference);
    }
    if (finding == Unit::NotYet && isInterrupted()) // nobody knows
        return attempt->fail(Outcome::Interrupted, m_options.interrupt->reason());
    if (finding == Unit::CannotLook && !m_unit->hasOperator()) // its display has gone
        return attempt->fail(Outcome::Error,
                             QStringLiteral("it could not be looked at: ") + record.what);
    if (finding == Unit::Holds)
        record.result = CheckRecord::Held;
    else if (finding != Unit::CannotLook)
        record.result = CheckRecord::Broken;
    if (record.result == CheckRecord::Broken)
        record.found = difference.found;
    attempt->record->checks.append(record);
    // The first one that is broken gives the step's reason.
    if (record.result != CheckRecord::Broken || attempt->record->outcome != Outcome::Pass)
        return record.result != CheckRecord::Broken;
    const QString wanted = difference.wanted.isEmpty() ? record.what : difference.wanted;
    return attempt->differs(wanted, difference.found, QByteArray());
}

bool Runner::look(const Plan::Step &step, Attempt *attempt)
{
    if (step.look.isEmpty())
        return true;
    if (!m_unit->hasOperator()) {
        if (step.checks.isEmpty()) // else these have looked
            attempt->record->checks.append({step.look, step.look, CheckRecord::Skipped, QString()});
        return true;
    }
    const TimeBook::Visit visit(&m_time, handShare());
    QString error;
    switch (m_unit->look(step.look, m_plan.operatorLimitMs, &error)) {
    case Unit::Performed:
        attempt->record->notes.append(QStringLiteral("%1 Yes.").arg(step.look));
        return true;
    case Unit::Refused:
        return attempt->differs(QStringLiteral("yes to \"%1\"").arg(step.look),
                                QStringLiteral("no"), QByteArray());
    case Unit::TooLate:
        return attempt->fail(Outcome::TimeOut, error);
    case Unit::Impossible:
        break;
    }
    return attempt->fail(Outcome::Error, error);
}

/// Whether a step that went well has shown anything about the unit.
bool Runner::hasTested(const Plan::Step &step, const AttemptRecord &record) const
{
    const bool hasLooked =
        std::any_of(record.checks.begin(), record.checks.end(),
                    [](const CheckRecord &check) { return check.result != CheckRecord::Skipped; });
    return hasLooked || !step.expected.isEmpty() || step.calibration || step.quietMs > 0 ||
           (!step.look.isEmpty() && m_unit->hasOperator());
}

bool Runner::keepsQuiet(const Plan::Step &step, Attempt *attempt)
{
    if (!heardNothing(QDeadlineTimer(step.quietMs), attempt))
        return false;
    const QString silent = step.quietMs > 0 ? silencedBy(step) : QString();
    return silent.isEmpty() || attempt->fail(Outcome::Error, silent);
}

/// Why a silent unit could not speak at all; empty when it could.
QString Runner::silencedBy(const Plan::Step &step)
{
    if (isInterrupted())
        return m_options.interrupt->reason();
    const bool shallEnd =
        std::any_of(step.checks.begin(), step.checks.end(),
                    [](const Plan::Check &check) { return check.kind == Plan::Check::Exit; });
    const QString end = m_unit->end();
    if (!end.isEmpty())
        return shallEnd ? QString() : end;
    return m_station->isOpen() && !m_station->isHungUp() ? QString()
                                                         : QStringLiteral("the line hung up");
}

bool Runner::heardNothing(const QDeadlineTimer &deadline, Attempt *attempt)
{
    const std::optional<Station::Received> received = next(deadline);
    if (!received)
        return true;
    attempt->heard = true;
    attempt->record->received.append(received->describe());
    return attempt->differs(QStringLiteral("nothing more"), received->describe(), received->raw);
}

/// Waits for further answers to a failed attempt, so that they are not taken for those to
/// the next one.
void Runner::settle(Attempt *attempt)
{
    const QDeadlineTimer longest(LongestSettleMs);
    for (int more = 0; !longest.hasExpired(); ++more) {
        const std::optional<Station::Received> received =
            next(std::min(longest, QDeadlineTimer(SettleMs)));
        if (!received)
            break;
        attempt->heard = true;
        if (more < MostWordsKept)
            attempt->record->received.append(received->describe());
    }
    m_inbox.clear();
}

void Runner::takePicture(const Plan::Step &step, StepRecord *record)
{
    const bool failed = record->outcome > Outcome::Pass;
    if (m_options.pictureDir.isEmpty() || (step.picture.isEmpty() && !failed) ||
        record->outcome == Outcome::Interrupted)
        return;
    const QString name = step.picture.isEmpty() ? QStringLiteral("step-%1.png").arg(record->number)
                                                : step.picture + QStringLiteral(".png");
    const QImage screen = m_unit->screen();
    if (screen.isNull())
        return;
    QBuffer png;
    screen.save(&png, "PNG");
    QString error;
    if (saveWhole(m_options.pictureDir + QLatin1Char('/') + name, png.data(), &error))
        record->picture = name;
    else
        record->lostPicture = QStringLiteral("%1 could not be written: %2").arg(name, error);
}
