#include "bench/line/report.h"

#include "bench/station/escape.h"

#include <QDateTime>
#include <QFile>

#include <kainjow/mustache.hpp>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <utility>

/// The template's resource is in a static library, and nothing else would link it.
/// Outside of any namespace, like the resource compiler's function.
static void initialiseResource()
{
    Q_INIT_RESOURCE(line);
}

namespace
{

using kainjow::mustache::data;

const int PlanSumShown = 12; ///< digits that tell plans apart; the record has all

/// Refuses a template name that has no value: nobody would notice the gap in the page.
class StrictContext : public kainjow::mustache::context<std::string>
{
public:
    using kainjow::mustache::context<std::string>::context;

    const data *get(const std::string &name) const override
    {
        const data *found = context<std::string>::get(name);
        if (found == nullptr)
            qFatal("the report's template wants \"%s\", which nothing is called", name.c_str());
        return found;
    }
};

/// An empty text counts as absent, so that the template can leave out what is around it.
data text(const QString &value)
{
    return value.isEmpty() ? data(false) : data(value.toStdString());
}

data number(int value)
{
    return data(std::to_string(value));
}

data object(std::initializer_list<std::pair<const char *, data>> members)
{
    data values(data::type::object);
    for (const auto &member : members)
        values.set(member.first, member.second);
    return values;
}

QString classOf(Outcome outcome)
{
    return outcomeName(outcome).remove(QLatin1Char('-')).remove(QLatin1Char(' '));
}

QString shownTime(const QDateTime &time)
{
    return time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

/// "old_version=1.2*, low=11000"; the name of the variant before it.
QString variantOf(const UnitRecord &unit)
{
    QStringList parts;
    for (auto it = unit.variables.begin(); it != unit.variables.end(); ++it)
        parts.append(it.key() + QLatin1Char('=') + it.value().toVariant().toString());
    const QString settings = parts.join(QStringLiteral(", "));
    return unit.variant.isEmpty() ? settings : QStringLiteral("%1: %2").arg(unit.variant, settings);
}

/// What the unit is called: its serial number, or else its number in the batch.
QString nameOf(const UnitRecord &unit)
{
    return unit.serialNumber.isEmpty() ? QStringLiteral("Unit %1").arg(unit.number)
                                       : unit.serialNumber;
}

data checks(const StepRecord &step)
{
    static const char *const classes[] = {"pass", "fail", "notrun"};
    static const char *const results[] = {"held", "broken", "skipped"};
    data values(data::type::list);
    for (const CheckRecord &check : step.checks) {
        values << object({{"check", text(check.what)},
                          {"result", data(results[check.result])},
                          {"checkClass", data(classes[check.result])},
                          {"found", text(check.found)}});
    }
    return values;
}

/// A path in the pieces between which a narrow page may break it.
data parts(const QString &path)
{
    data values(data::type::list);
    for (int begin = 0; begin < path.size();) {
        const auto slash = path.indexOf(QLatin1Char('/'), begin);
        const int end = slash < 0 ? static_cast<int>(path.size()) : static_cast<int>(slash) + 1;
        values << object({{"part", text(path.mid(begin, end - begin))}});
        begin = end;
    }
    return values;
}

data notes(const StepRecord &step)
{
    data values(data::type::list);
    for (const QString &note : step.notes)
        values << object({{"note", text(note)}});
    return values;
}

/// The tries before the last one, which the step itself shows.
data earlierTries(const StepRecord &step)
{
    data values(data::type::list);
    for (int i = 0; i + 1 < step.attempts.size(); ++i) {
        const AttemptRecord &attempt = step.attempts.at(i);
        values << object({{"try", number(i + 1)},
                          {"tryOutcome", text(outcomeName(attempt.outcome))},
                          {"tryTime", text(shownSeconds(attempt.seconds))},
                          {"tryReason", text(attempt.reason)},
                          {"tryRaw", text(QString::fromLatin1(attempt.raw))}});
    }
    return values;
}

data stepValues(const StepRecord &step)
{
    const bool passed = step.outcome == Outcome::Pass;
    const bool began = step.tries > 0;
    const bool untested = began && step.outcome == Outcome::NotRun;
    const bool failed = step.outcome > Outcome::Pass;
    const QString value = step.value().isEmpty() ? step.shownByBoard() : step.value();
    return object({{"outcome", text(outcomeName(step.outcome))},
                   {"class", text(classOf(step.outcome))},
                   {"number", number(step.number)},
                   {"name", text(step.name)},
                   {"sent", text(step.sent)},
                   {"value", text(untested ? step.reason : value)},
                   {"limits", text(step.limits())},
                   {"time", text(began ? shownSeconds(step.seconds) : QString())},
                   {"tries", text(step.tries > 1 ? QString::number(step.tries) : QString())},
                   {"earlierTries", earlierTries(step)},
                   {"notes", notes(step)},
                   {"checks", checks(step)},
                   {"passed", data(passed || untested)},
                   // A step that was not run is not to blame; its reason is another step.
                   {"bad", data(failed)},
                   {"reason", text(passed ? QString() : step.reason)},
                   {"expected", text(step.expected)},
                   {"came", text(step.came)},
                   {"raw", text(QString::fromLatin1(step.raw))}});
}

/// The number of the step that decided the verdict; empty when none did.
QString decisiveStep(const UnitRecord &unit)
{
    for (const StepRecord &step : unit.steps) {
        if (step.outcome == unit.outcome && step.outcome != Outcome::Pass)
            return QString::number(step.number);
    }
    return QString();
}

data pictures(const UnitRecord &unit, const QString &dir)
{
    data values(data::type::list);
    for (const StepRecord &step : unit.steps) {
        QFile file(dir + QLatin1Char('/') + step.picture);
        if (step.picture.isEmpty() || !file.open(QIODevice::ReadOnly))
            continue;
        values << object(
            {{"caption", text(QStringLiteral("%1. %2").arg(step.number).arg(step.name))},
             {"png", data(file.readAll().toBase64().toStdString())}});
    }
    return values;
}

data lines(const Transcript &transcript)
{
    static const char *const directions[] = {"station \342\206\222", "\342\206\220 keypad", ""};
    static const char *const classes[] = {"sent", "received", "note"};
    data values(data::type::list);
    for (const Transcript::Entry &entry : transcript.entries()) {
        const QDateTime time = QDateTime::fromMSecsSinceEpoch(entry.time / 1000);
        values << object({{"at", text(time.toString(QStringLiteral("HH:mm:ss.zzz")))},
                          {"direction", data(directions[entry.kind])},
                          {"lineClass", data(classes[entry.kind])},
                          {"bytes", text(QString::fromLatin1(escaped(entry.bytes)))},
                          {"meaning", text(entry.text)}});
    }
    return values;
}

/// How many steps had each outcome, without outcomes that none had.
QString countedSteps(const UnitRecord &unit)
{
    QStringList counts;
    for (const Outcome outcome : {Outcome::Pass, Outcome::Fail, Outcome::TimeOut, Outcome::Error,
                                  Outcome::Interrupted, Outcome::NotRun}) {
        if (unit.count(outcome) > 0)
            counts.append(
                QStringLiteral("%1 %2").arg(unit.count(outcome)).arg(outcomeName(outcome)));
    }
    return counts.join(QStringLiteral(", "));
}

/// How many checks of the board there were, by their results; empty for none.
QString countedChecks(const UnitRecord &unit)
{
    int counts[3] = {0, 0, 0};
    for (const StepRecord &step : unit.steps) {
        for (const CheckRecord &check : step.checks)
            ++counts[check.result];
    }
    QStringList all;
    if (counts[CheckRecord::Held] > 0)
        all.append(QStringLiteral("%1 held").arg(counts[CheckRecord::Held]));
    if (counts[CheckRecord::Broken] > 0)
        all.append(QStringLiteral("%1 broken").arg(counts[CheckRecord::Broken]));
    if (counts[CheckRecord::Skipped] > 0)
        all.append(
            QStringLiteral("%1 skipped, nobody could look").arg(counts[CheckRecord::Skipped]));
    return all.join(QStringLiteral(", "));
}

data unitValues(const UnitRecord &unit)
{
    return object({{"outcome", text(outcomeName(unit.outcome))},
                   {"class", text(classOf(unit.outcome))},
                   {"name", text(nameOf(unit))},
                   {"plan", parts(unit.planFile)},
                   {"planSum", text(unit.planSha256.left(PlanSumShown))},
                   {"variant", text(variantOf(unit))},
                   {"station", text(unit.station)},
                   {"fixture", text(unit.fixture)},
                   {"operator", text(unit.operatorName)},
                   {"attempt", text(unit.attempt > 1 ? QString::number(unit.attempt) : QString())},
                   {"bench", text(unit.benchVersion)},
                   {"spent", text(unit.time.shown())},
                   {"unit", text(unit.unit)},
                   {"unitNumber", number(unit.number)},
                   {"faults", text(unit.faults.join(QStringLiteral(", ")))},
                   {"tool", text(unit.toolVersion)},
                   {"start", text(shownTime(unit.start))},
                   {"end", text(shownTime(unit.end))},
                   {"duration", text(shownSeconds(unit.seconds()))},
                   {"reason", text(unit.reason)}});
}

QByteArray fill(const data &values)
{
    initialiseResource();
    QFile file(QStringLiteral(":/line/report.html"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the report's template is missing");
    kainjow::mustache::mustache page(file.readAll().toStdString());
    StrictContext context(&values);
    const std::string filled = page.render(context);
    if (!page.is_valid())
        qFatal("the report's template is wrong: %s", page.error_message().c_str());
    return QByteArray::fromStdString(filled);
}

} // namespace

QByteArray unitReport(const UnitRecord &unit, const QString &pictureDir,
                      const Transcript &transcript, const QByteArray &log)
{
    data steps(data::type::list);
    for (const StepRecord &step : unit.steps)
        steps << stepValues(step);
    data one = unitValues(unit);
    one.set("stepCount", text(countedSteps(unit)));
    one.set("checkCount", text(countedChecks(unit)));
    one.set("decisive", text(decisiveStep(unit)));
    one.set("steps", steps);
    one.set("pictures", pictures(unit, pictureDir));
    one.set("lostPicture", text(unit.lostPicture()));
    one.set("transcript", lines(transcript));
    one.set("lineCount", number(static_cast<int>(transcript.entries().size())));
    one.set("log", text(QString::fromUtf8(log)));
    return fill(object(
        {{"title", text(unit.planTitle)},
         {"heading", text(QStringLiteral("%1 %2, %3")
                              .arg(nameOf(unit), outcomeName(unit.outcome), unit.planTitle))},
         {"one", one},
         {"several", data(false)}}));
}

QByteArray lineReport(const QList<UnitRecord> &units, const QStringList &folders)
{
    data rows(data::type::list);
    double longest = 0;
    double total = 0;
    const QList<bool> areLast = lastAttempts(units);
    Outcome worst = Outcome::NotRun;
    QDateTime end;
    for (int i = 0; i < units.size(); ++i) {
        const UnitRecord &unit = units.at(i);
        data row = unitValues(unit);
        row.set("folder", text(folders.value(i)));
        if (unit.outcome == Outcome::NotRun) { // it has no times
            row.set("start", text(QString()));
            row.set("duration", text(QString()));
        }
        rows << row;
        longest = std::max(longest, unit.seconds());
        total += unit.seconds();
        end = std::max(end, unit.end);
        if (areLast.at(i))
            worst = std::max(worst, unit.outcome);
    }
    const Yield yield = Yield::of(units);
    if (yield.tested < yield.units) // what was asked for was not done
        worst = std::max(worst, Outcome::Error);
    const QString untested =
        yield.tested < yield.units ? QString::number(yield.units - yield.tested) : QString();
    const QString firstPass = yield.retested > 0 ? yield.percent(yield.firstPass) : QString();
    const UnitRecord first = units.value(0);
    const data several = object({{"class", text(classOf(worst))},
                                 {"yield", text(yield.percent(yield.finalPass))},
                                 {"good", number(yield.finalPass)},
                                 {"firstPass", text(firstPass)},
                                 {"firstGood", number(yield.firstPass)},
                                 {"units", number(yield.units)},
                                 {"plan", parts(first.planFile)},
                                 {"station", text(first.station)},
                                 {"unit", text(first.unit)},
                                 {"start", text(shownTime(first.start))},
                                 {"end", text(shownTime(end))},
                                 {"untested", text(untested)},
                                 {"average", text(shownSeconds(total / std::max(1, yield.tested)))},
                                 {"longest", text(shownSeconds(longest))},
                                 {"total", text(shownSeconds(total))},
                                 {"rows", rows}});
    return fill(object({{"title", text(first.planTitle)},
                        {"heading", text(QStringLiteral("%1 of %2 passed, %3")
                                             .arg(yield.finalPass)
                                             .arg(yield.units)
                                             .arg(first.planTitle))},
                        {"one", data(false)},
                        {"several", several}}));
}
