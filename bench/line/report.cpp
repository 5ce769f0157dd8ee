#include "bench/line/report.h"

#include "bench/line/htmltemplate.h"
#include "bench/station/escape.h"

#include <QDateTime>
#include <QFile>
#include <QVariantMap>

#include <algorithm>

/// The template's resource lies in a static library, which nothing else would
/// pull in. Outside any namespace, as the resource compiler's function is.
static void initialiseResource()
{
    Q_INIT_RESOURCE(line);
}

namespace
{

QString classOf(Outcome outcome)
{
    return outcomeName(outcome).remove(QLatin1Char('-')).remove(QLatin1Char(' '));
}

QString shownTime(const QDateTime &time)
{
    return time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

/// A list of texts, each under @p name.
QVariantList texts(const QStringList &list, const QString &name)
{
    QVariantList values;
    for (const QString &text : list)
        values.append(QVariantMap{{name, text}});
    return values;
}

QVariantMap verdict(Outcome outcome)
{
    return {{QStringLiteral("outcome"), outcomeName(outcome)},
            {QStringLiteral("class"), classOf(outcome)}};
}

QVariantList checks(const StepRecord &step)
{
    static const char *const classes[] = {"pass", "fail", "notrun"};
    static const char *const results[] = {
        "board: ", "not on the board: ", "skipped, board out of sight: "};
    QVariantList values;
    for (const CheckRecord &check : step.checks) {
        values.append(
            QVariantMap{{QStringLiteral("check"), check.what},
                        {QStringLiteral("result"), QLatin1String(results[check.result])},
                        {QStringLiteral("checkClass"), QLatin1String(classes[check.result])},
                        {QStringLiteral("found"), check.found}});
    }
    return values;
}

QVariantMap stepValues(const StepRecord &step)
{
    QVariantMap values = verdict(step.outcome);
    const bool passed = step.outcome == Outcome::Pass;
    const bool ran = step.outcome != Outcome::NotRun;
    values.insert(
        {{QStringLiteral("number"), step.number},
         {QStringLiteral("name"), step.name},
         {QStringLiteral("group"), step.group},
         {QStringLiteral("sent"), step.sent},
         {QStringLiteral("value"), step.value()},
         {QStringLiteral("limits"), step.limits()},
         {QStringLiteral("time"), ran ? shownSeconds(step.seconds) : QString()},
         {QStringLiteral("tries"), step.tries > 1 ? QString::number(step.tries) : QString()},
         {QStringLiteral("notes"), texts(step.notes, QStringLiteral("note"))},
         {QStringLiteral("checks"), checks(step)},
         {QStringLiteral("reason"), passed ? QString() : step.reason},
         {QStringLiteral("expected"), step.expected},
         {QStringLiteral("came"), step.came},
         {QStringLiteral("raw"), QString::fromLatin1(step.raw)}});
    return values;
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

QVariantList pictures(const UnitRecord &unit, const QString &dir)
{
    QVariantList values;
    for (const StepRecord &step : unit.steps) {
        QFile file(dir + QLatin1Char('/') + step.picture);
        if (step.picture.isEmpty() || !file.open(QIODevice::ReadOnly))
            continue;
        values.append(QVariantMap{
            {QStringLiteral("caption"), QStringLiteral("%1. %2").arg(step.number).arg(step.name)},
            {QStringLiteral("data"), QString::fromLatin1(file.readAll().toBase64())}});
    }
    return values;
}

QVariantList lines(const Transcript &transcript)
{
    static const char *const directions[] = {"station \342\206\222", "\342\206\220 keypad", ""};
    static const char *const classes[] = {"sent", "received", "note"};
    QVariantList values;
    for (const Transcript::Entry &entry : transcript.entries()) {
        const QDateTime time = QDateTime::fromMSecsSinceEpoch(entry.time / 1000);
        values.append(
            QVariantMap{{QStringLiteral("at"), time.toString(QStringLiteral("HH:mm:ss.zzz"))},
                        {QStringLiteral("direction"), QString::fromUtf8(directions[entry.kind])},
                        {QStringLiteral("lineClass"), QLatin1String(classes[entry.kind])},
                        {QStringLiteral("bytes"), QString::fromLatin1(escaped(entry.bytes))},
                        {QStringLiteral("meaning"), entry.text}});
    }
    return values;
}

QVariantMap unitValues(const UnitRecord &unit)
{
    QVariantMap values = verdict(unit.outcome);
    values.insert({{QStringLiteral("title"), unit.planTitle},
                   {QStringLiteral("plan"), unit.planFile},
                   {QStringLiteral("serial"), unit.serialNumber},
                   {QStringLiteral("station"), unit.station},
                   {QStringLiteral("unit"), unit.unit},
                   {QStringLiteral("unitNumber"), unit.number},
                   {QStringLiteral("faults"), unit.faults.join(QStringLiteral(", "))},
                   {QStringLiteral("tool"), unit.toolVersion},
                   {QStringLiteral("start"), shownTime(unit.start)},
                   {QStringLiteral("end"), shownTime(unit.end)},
                   {QStringLiteral("duration"), shownSeconds(unit.seconds())},
                   {QStringLiteral("reason"), unit.reason}});
    return values;
}

/// How many steps had each outcome, without those that none had.
QString counted(const UnitRecord &unit)
{
    QStringList counts;
    for (const Outcome outcome :
         {Outcome::Pass, Outcome::Fail, Outcome::TimeOut, Outcome::Error, Outcome::NotRun}) {
        if (unit.count(outcome) > 0)
            counts.append(
                QStringLiteral("%1 %2").arg(unit.count(outcome)).arg(outcomeName(outcome)));
    }
    return counts.join(QStringLiteral(", "));
}

QByteArray fill(const QVariantMap &values)
{
    initialiseResource();
    QFile file(QStringLiteral(":/line/report.html"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the report's template is missing");
    QString error;
    const QString page = fillTemplate(QString::fromUtf8(file.readAll()), values, &error);
    if (!error.isEmpty())
        qFatal("the report's template is wrong: %s", qPrintable(error));
    return page.toUtf8();
}

} // namespace

QByteArray unitReport(const UnitRecord &unit, const QString &pictureDir,
                      const Transcript &transcript, const QByteArray &log)
{
    QVariantMap one = unitValues(unit);
    QVariantList steps;
    for (const StepRecord &step : unit.steps)
        steps.append(stepValues(step));
    one.insert({{QStringLiteral("count"), counted(unit)},
                {QStringLiteral("decisive"), decisiveStep(unit)},
                {QStringLiteral("steps"), steps},
                {QStringLiteral("pictures"), pictures(unit, pictureDir)},
                {QStringLiteral("transcript"), lines(transcript)},
                {QStringLiteral("log"), QString::fromUtf8(log)}});
    return fill({{QStringLiteral("heading"), unit.planTitle},
                 {QStringLiteral("one"), QVariantList{one}},
                 {QStringLiteral("several"), QVariantList()}});
}

QByteArray lineReport(const QList<UnitRecord> &units, const QStringList &folders)
{
    QVariantList rows;
    double longest = 0;
    double total = 0;
    int good = 0;
    Outcome worst = Outcome::NotRun;
    for (int i = 0; i < units.size(); ++i) {
        const UnitRecord &unit = units.at(i);
        QVariantMap row = unitValues(unit);
        row.insert(QStringLiteral("folder"), folders.value(i));
        rows.append(row);
        longest = std::max(longest, unit.seconds());
        total += unit.seconds();
        good += unit.outcome == Outcome::Pass ? 1 : 0;
        worst = std::max(worst, unit.outcome);
    }
    const double count = static_cast<double>(std::max(1, static_cast<int>(units.size())));
    QVariantMap several = verdict(worst);
    several.insert({{QStringLiteral("yield"), QString::number(100.0 * good / count, 'f', 1)},
                    {QStringLiteral("good"), good},
                    {QStringLiteral("units"), static_cast<int>(units.size())},
                    {QStringLiteral("average"), shownSeconds(total / count)},
                    {QStringLiteral("longest"), shownSeconds(longest)},
                    {QStringLiteral("total"), shownSeconds(total)},
                    {QStringLiteral("rows"), rows}});
    const QString title = units.isEmpty() ? QString() : units.first().planTitle;
    return fill({{QStringLiteral("heading"), title},
                 {QStringLiteral("one"), QVariantList()},
                 {QStringLiteral("several"), QVariantList{several}}});
}
