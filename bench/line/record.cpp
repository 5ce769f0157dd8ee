#include "bench/line/record.h"

#include "bench/common/command.h"

#include <QJsonArray>
#include <QMap>

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace
{

const int MostShown = 3; ///< replies in one line

QString resultName(CheckRecord::Result result)
{
    switch (result) {
    case CheckRecord::Held:
        return QStringLiteral("held");
    case CheckRecord::Broken:
        return QStringLiteral("broken");
    case CheckRecord::Skipped:
        break;
    }
    return QStringLiteral("skipped");
}

QString isoTime(const QDateTime &time)
{
    return time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

double rounded(double seconds)
{
    return static_cast<double>(qRound64(seconds * 1e6)) / 1e6;
}

void insertText(QJsonObject *object, const QString &key, const QString &text)
{
    if (!text.isEmpty())
        object->insert(key, text);
}

void insertObject(QJsonObject *object, const QString &key, const QJsonObject &value)
{
    if (!value.isEmpty())
        object->insert(key, value);
}

QJsonObject toJson(const Measurement &measured)
{
    QJsonObject object;
    object.insert(QStringLiteral("name"), measured.name);
    object.insert(QStringLiteral("value"), QJsonValue::fromVariant(measured.value));
    if (measured.min)
        object.insert(QStringLiteral("min"), *measured.min);
    if (measured.max)
        object.insert(QStringLiteral("max"), *measured.max);
    insertText(&object, QStringLiteral("unit"), measured.unit);
    insertText(&object, QStringLiteral("limits"), measured.limits);
    object.insert(QStringLiteral("good"), measured.good);
    return object;
}

QJsonObject toJson(const CheckRecord &check)
{
    QJsonObject object;
    object.insert(QStringLiteral("check"), check.what);
    object.insert(QStringLiteral("result"), resultName(check.result));
    insertText(&object, QStringLiteral("found"), check.found);
    return object;
}

/// What steps and attempts have in common.
void insertAttempt(QJsonObject *object, const AttemptRecord &attempt)
{
    object->insert(QStringLiteral("outcome"), outcomeName(attempt.outcome));
    object->insert(QStringLiteral("start"), isoTime(attempt.start));
    object->insert(QStringLiteral("seconds"), rounded(attempt.seconds));
    insertText(object, QStringLiteral("sent"), attempt.sent);
    object->insert(QStringLiteral("received"), QJsonArray::fromStringList(attempt.received));
    QJsonArray measured;
    for (const Measurement &each : attempt.measured)
        measured.append(toJson(each));
    object->insert(QStringLiteral("measured"), measured);
    QJsonArray checks;
    for (const CheckRecord &each : attempt.checks)
        checks.append(toJson(each));
    object->insert(QStringLiteral("checks"), checks);
    insertText(object, QStringLiteral("reason"), attempt.reason);
    insertText(object, QStringLiteral("expected"), attempt.expected);
    insertText(object, QStringLiteral("came"), attempt.came);
    insertText(object, QStringLiteral("raw"), QString::fromLatin1(attempt.raw));
    if (!attempt.notes.isEmpty())
        object->insert(QStringLiteral("notes"), QJsonArray::fromStringList(attempt.notes));
}

QJsonObject toJson(const StepRecord &step)
{
    QJsonObject object;
    object.insert(QStringLiteral("step"), step.number);
    object.insert(QStringLiteral("name"), step.name);
    insertText(&object, QStringLiteral("group"), step.group);
    if (step.tries == 0) {
        object.insert(QStringLiteral("outcome"), outcomeName(step.outcome));
        return object;
    }
    insertAttempt(&object, step);
    object.insert(QStringLiteral("tries"), step.tries);
    QJsonArray attempts;
    for (const AttemptRecord &each : step.attempts) {
        QJsonObject attempt;
        insertAttempt(&attempt, each);
        attempts.append(attempt);
    }
    if (!attempts.isEmpty())
        object.insert(QStringLiteral("attempts"), attempts);
    insertText(&object, QStringLiteral("picture"), step.picture);
    insertText(&object, QStringLiteral("lost_picture"), step.lostPicture);
    return object;
}

} // namespace

QString outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Pass:
        return QStringLiteral("pass");
    case Outcome::Fail:
        return QStringLiteral("fail");
    case Outcome::TimeOut:
        return QStringLiteral("time-out");
    case Outcome::Error:
        return QStringLiteral("error");
    case Outcome::Interrupted:
        return QStringLiteral("interrupted");
    case Outcome::NotRun:
        break;
    }
    return QStringLiteral("not run");
}

QString Measurement::shown() const
{
    const QString text = value.isValid() ? value.toString() : QStringLiteral("nothing");
    return unit.isEmpty() ? text : text + QLatin1Char(' ') + unit;
}

QString StepRecord::value() const
{
    QStringList values;
    for (const Measurement &each : measured)
        values.append(each.name + QLatin1Char(' ') + each.shown());
    if (measured.isEmpty())
        values += received.size() > MostShown ? QStringList(received.last()) : received;
    return values.join(QStringLiteral(", "));
}

QString StepRecord::shownByBoard() const
{
    QStringList shown;
    for (const CheckRecord &check : checks) {
        if (check.result == CheckRecord::Held)
            shown.append(check.brief);
    }
    return shown.join(QStringLiteral(", "));
}

QString StepRecord::limits() const
{
    QStringList limits;
    for (const Measurement &each : measured)
        limits.append(measured.size() == 1 ? each.limits
                                           : each.name + QLatin1Char(' ') + each.limits);
    return limits.join(QStringLiteral(", "));
}

bool UnitRecord::wasBegun() const
{
    return outcome != Outcome::NotRun || !steps.isEmpty();
}

double UnitRecord::seconds() const
{
    return static_cast<double>(start.msecsTo(end)) / 1000;
}

QString UnitRecord::lostPicture() const
{
    const auto lost = std::find_if(steps.begin(), steps.end(), [](const StepRecord &step) {
        return !step.lostPicture.isEmpty();
    });
    return lost == steps.end() ? QString() : lost->lostPicture;
}

int UnitRecord::count(Outcome wanted) const
{
    return static_cast<int>(std::count_if(
        steps.begin(), steps.end(), [wanted](const StepRecord &s) { return s.outcome == wanted; }));
}

void UnitRecord::conclude()
{
    ended = true;
    if (!steps.isEmpty() && count(Outcome::NotRun) == steps.size())
        reason = QStringLiteral("nothing of it could be tested");
    for (const StepRecord &step : steps) {
        if (step.outcome <= outcome)
            continue;
        outcome = step.outcome;
        reason.clear();
        if (outcome != Outcome::Pass)
            reason =
                QStringLiteral("step %1 \"%2\": %3").arg(step.number).arg(step.name, step.reason);
    }
}

QString TimeSpent::shown() const
{
    const std::initializer_list<std::pair<const char *, double>> parts = {
        {"tool", tool}, {"flash", flash}, {"operator", operatorAt}, {"bench", bench}};
    QStringList all;
    for (const auto &part : parts) {
        if (part.second > 0)
            all.append(QLatin1String(part.first) + QLatin1Char(' ') + shownSeconds(part.second));
    }
    return all.join(QStringLiteral(", "));
}

QString Yield::percent(int part) const
{
    return QString::number(100.0 * part / std::max(1, units), 'f', 1);
}

Yield Yield::of(const QList<UnitRecord> &records)
{
    Yield yield;
    for (const UnitRecord &record : records) {
        const bool isFirst = record.attempt == 1;
        const bool passed = record.outcome == Outcome::Pass;
        yield.units += isFirst ? 1 : 0;
        yield.tested += isFirst && record.outcome != Outcome::NotRun ? 1 : 0;
        yield.firstPass += isFirst && passed ? 1 : 0;
        yield.finalPass += passed ? 1 : 0; // which ends the attempts
        yield.retested += isFirst ? 0 : 1;
    }
    return yield;
}

QList<bool> lastAttempts(const QList<UnitRecord> &records)
{
    const auto unitOf = [](const UnitRecord &record) {
        return std::make_pair(record.fixture, record.number);
    };
    QMap<std::pair<QString, int>, int> last;
    for (const UnitRecord &record : records) {
        int &attempt = last[unitOf(record)];
        attempt = std::max(attempt, record.attempt);
    }
    QList<bool> are;
    for (const UnitRecord &record : records)
        are.append(record.attempt == last.value(unitOf(record)));
    return are;
}

QJsonObject toJson(const UnitRecord &unit)
{
    QJsonObject object;
    object.insert(QStringLiteral("record"), 1);
    insertText(&object, QStringLiteral("id"), unit.id);
    object.insert(QStringLiteral("plan"), unit.plan);
    object.insert(QStringLiteral("title"), unit.planTitle);
    object.insert(QStringLiteral("plan_file"), unit.planFile);
    insertText(&object, QStringLiteral("plan_sha256"), unit.planSha256);
    insertObject(&object, QStringLiteral("plan_includes"), unit.planIncludes);
    insertText(&object, QStringLiteral("variant"), unit.variant);
    insertObject(&object, QStringLiteral("variables"), unit.variables);
    object.insert(QStringLiteral("number"), unit.number);
    object.insert(QStringLiteral("attempt"), unit.attempt);
    object.insert(QStringLiteral("serial_number"), unit.serialNumber);
    insertText(&object, QStringLiteral("operator"), unit.operatorName);
    object.insert(QStringLiteral("station"), unit.station);
    insertText(&object, QStringLiteral("fixture"), unit.fixture);
    object.insert(QStringLiteral("unit"), unit.unit);
    if (!unit.faults.isEmpty())
        object.insert(QStringLiteral("faults"), QJsonArray::fromStringList(unit.faults));
    object.insert(QStringLiteral("tool_version"), unit.toolVersion);
    insertText(&object, QStringLiteral("bench_version"), unit.benchVersion);
    object.insert(QStringLiteral("start"), isoTime(unit.start));
    object.insert(QStringLiteral("end"), isoTime(unit.end));
    object.insert(QStringLiteral("seconds"), rounded(unit.seconds()));
    object.insert(QStringLiteral("time"),
                  QJsonObject{{QStringLiteral("tool"), rounded(unit.time.tool)},
                              {QStringLiteral("flash"), rounded(unit.time.flash)},
                              {QStringLiteral("operator"), rounded(unit.time.operatorAt)},
                              {QStringLiteral("bench"), rounded(unit.time.bench)}});
    object.insert(QStringLiteral("ended"), unit.ended);
    object.insert(QStringLiteral("outcome"),
                  outcomeName(unit.ended ? unit.outcome : Outcome::Interrupted));
    insertText(&object, QStringLiteral("reason"),
               unit.ended ? unit.reason : QStringLiteral("the run has not ended"));
    QJsonArray steps;
    for (const StepRecord &step : unit.steps)
        steps.append(toJson(step));
    object.insert(QStringLiteral("steps"), steps);
    return object;
}

int exitStatus(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Pass:
        return BenchExit::Good;
    case Outcome::Fail:
        return BenchExit::Failed;
    case Outcome::TimeOut:
        return BenchExit::NoAnswer;
    case Outcome::Error:
    case Outcome::Interrupted:
    case Outcome::NotRun:
        break;
    }
    return BenchExit::Unable;
}

QString shownSeconds(double seconds)
{
    if (seconds < 1)
        return QStringLiteral("%1 ms").arg(seconds * 1000, 0, 'f', seconds < 0.01 ? 1 : 0);
    return QStringLiteral("%1 s").arg(seconds, 0, 'f', seconds < 10 ? 2 : 1);
}
