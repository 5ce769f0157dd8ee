#include "bench/line/console.h"

#include <algorithm>

#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

const int OutcomeWidth = 11; ///< of "INTERRUPTED", the longest
const int WidestName = 40;
const int WidestValue = 90;
/// In a file every line of progress stays, so there are few of them.
const int ProgressEveryMs = 2000;

const char *colourOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Pass:
        return "\033[32m";
    case Outcome::Fail:
    case Outcome::Error:
        return "\033[1;31m";
    case Outcome::TimeOut:
        return "\033[1;35m";
    case Outcome::Interrupted:
    case Outcome::NotRun:
        break;
    }
    return "\033[33m";
}

/// What is in the column of outcomes when there is no outcome.
QString outcomeColumn(const char *text = "")
{
    return QStringLiteral("%1 ").arg(QLatin1String(text), -OutcomeWidth);
}

QString lineOf(const StepRecord &step)
{
    QStringList parts = {step.value(), step.shownByBoard()};
    parts.removeAll(QString());
    return parts.join(QStringLiteral(", "));
}

QString shortened(const QString &text)
{
    return text.size() <= WidestValue ? text : text.left(WidestValue - 3) + QStringLiteral("...");
}

} // namespace

Console::Console(FILE *out, bool isTerminal, Interrupt *interrupt)
    : m_out(out), m_isTerminal(isTerminal),
      m_hasColour(isTerminal && qEnvironmentVariableIsEmpty("NO_COLOR")), m_interrupt(interrupt)
{
}

bool Console::isTerminal(FILE *out)
{
    return isatty(fileno(out)) != 0;
}

void Console::flush()
{
    if (m_interrupt != nullptr)
        m_interrupt->flush(m_out);
    else
        std::fflush(m_out);
}

void Console::line(const QString &text)
{
    eraseProgress();
    std::fprintf(m_out, "%s\n", text.toUtf8().constData());
    flush();
}

void Console::detail(const char *title, const QString &text)
{
    if (!text.isEmpty())
        line(outcomeColumn() +
             QStringLiteral("     %1 %2").arg(QLatin1String(title), -9).arg(text));
}

void Console::eraseProgress()
{
    if (m_hasProgress)
        std::fputs("\r\033[K", m_out);
    m_hasProgress = false;
}

QString Console::shown(Outcome outcome) const
{
    const QString name = QStringLiteral("%1").arg(outcomeName(outcome).toUpper(), -OutcomeWidth);
    if (!m_hasColour)
        return name;
    return QLatin1String(colourOf(outcome)) + name + QStringLiteral("\033[0m");
}

void Console::begin(const Plan &plan, const UnitRecord &unit, int units)
{
    m_steps = static_cast<int>(plan.steps.size());
    m_nameWidth = 0;
    for (const Plan::Step &step : plan.steps)
        m_nameWidth = std::max(m_nameWidth, static_cast<int>(step.name.size()));
    m_nameWidth = std::min(m_nameWidth, WidestName);
    QString title =
        QStringLiteral("%1: %2 steps on %3").arg(plan.title).arg(m_steps).arg(unit.unit);
    if (units > 1)
        title += QStringLiteral(", unit %1 of %2").arg(unit.number).arg(units);
    if (!unit.serialNumber.isEmpty())
        title += QStringLiteral(", serial number %1").arg(unit.serialNumber);
    if (unit.attempt > 1)
        title += QStringLiteral(", attempt %1").arg(unit.attempt);
    if (!unit.faults.isEmpty())
        title += QStringLiteral(", fault: %1").arg(unit.faults.join(QStringLiteral(", ")));
    line(title);
}

void Console::stepStarted(const Plan::Step &step, int number)
{
    m_running = QStringLiteral("%1 %2").arg(number, 3).arg(step.name, -m_nameWidth);
    m_sinceProgress.start();
    if (!m_isTerminal)
        return;
    showProgress(m_running);
}

/// A line wider than the terminal could not be erased.
void Console::showProgress(const QString &text)
{
    QString shown = outcomeColumn("...") + text;
    winsize size = {};
    if (ioctl(fileno(m_out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 &&
        shown.size() >= size.ws_col)
        shown = shown.left(size.ws_col - 1);
    eraseProgress();
    std::fputs(shown.toUtf8().constData(), m_out);
    flush();
    m_hasProgress = true;
}

void Console::progressed(const QString &text)
{
    if (!m_isTerminal) {
        if (m_sinceProgress.elapsed() < ProgressEveryMs)
            return;
        m_sinceProgress.restart();
        line(outcomeColumn("...") + QStringLiteral("%1  %2").arg(m_running, text));
        return;
    }
    showProgress(QStringLiteral("%1  %2").arg(m_running, text));
}

void Console::stepEnded(const StepRecord &step)
{
    if (step.tries == 0)
        return; // the unit's end says how many
    QString text =
        QStringLiteral("%1 %2 %3 %4  %5")
            .arg(shown(step.outcome))
            .arg(step.number, 3)
            .arg(step.name, -m_nameWidth)
            .arg(shownSeconds(step.seconds), 8)
            .arg(shortened(step.outcome == Outcome::NotRun ? step.reason : lineOf(step)));
    if (!step.limits().isEmpty())
        text += QStringLiteral("  [%1]").arg(step.limits());
    if (step.tries > 1)
        text += QStringLiteral("  (try %1)").arg(step.tries);
    const auto skipped =
        std::count_if(step.checks.begin(), step.checks.end(),
                      [](const CheckRecord &c) { return c.result == CheckRecord::Skipped; });
    if (skipped > 0)
        text += QStringLiteral("  (%1 check%2 skipped)")
                    .arg(skipped)
                    .arg(QLatin1String(skipped == 1 ? "" : "s"));
    line(text);
    detail("picture", step.lostPicture);
    if (step.outcome <= Outcome::Pass)
        return;
    if (step.expected.isEmpty())
        detail("reason", step.reason);
    detail("expected", step.expected);
    detail("came", step.came);
    detail("raw", QString::fromLatin1(step.raw));
    if (step.outcome == Outcome::Error && !step.expected.isEmpty())
        detail("reason", step.reason);
}

void Console::reportIn(const QString &files)
{
    if (files.isEmpty())
        line(QStringLiteral("Report:  none, it could not be written"));
    else
        line(QStringLiteral("Report:  %1/report.html").arg(files));
}

void Console::end(const UnitRecord &unit, const QString &files)
{
    if (unit.steps.isEmpty()) {
        line(QStringLiteral("%1 before the first step: %2").arg(shown(unit.outcome), unit.reason));
        reportIn(files);
        return;
    }
    QStringList counts;
    for (const Outcome outcome : {Outcome::Pass, Outcome::Fail, Outcome::TimeOut, Outcome::Error,
                                  Outcome::Interrupted, Outcome::NotRun}) {
        if (unit.count(outcome) > 0)
            counts.append(
                QStringLiteral("%1 %2").arg(unit.count(outcome)).arg(outcomeName(outcome)));
    }
    line(QStringLiteral("%1 %2 of %3 steps in %4")
             .arg(shown(unit.outcome), counts.join(QStringLiteral(", ")))
             .arg(unit.steps.size())
             .arg(shownSeconds(unit.seconds())));
    bool isOfAStep = unit.outcome == Outcome::Pass;
    for (const StepRecord &step : unit.steps) {
        if (step.outcome > Outcome::Pass)
            line(outcomeColumn() + QStringLiteral("step %1 \"%2\": %3")
                                       .arg(step.number)
                                       .arg(step.name, outcomeName(step.outcome)));
        isOfAStep = isOfAStep || step.outcome == unit.outcome;
    }
    if (!isOfAStep)
        line(outcomeColumn() + unit.reason);
    if (!unit.time.shown().isEmpty())
        line(QStringLiteral("Time:    %1").arg(unit.time.shown()));
    reportIn(files);
}

void Console::told(const QString &about, const QString &text)
{
    line(QStringLiteral("%1 %2")
             .arg(about.left(1).toUpper() + about.mid(1) + QLatin1Char(':'), -8)
             .arg(text));
}

void Console::summary(const QList<UnitRecord> &units, const QString &files)
{
    line(QString());
    double longest = 0;
    double total = 0;
    for (const UnitRecord &unit : units) {
        const bool wasTested = unit.outcome != Outcome::NotRun;
        QStringList why;
        if (unit.attempt > 1)
            why.append(QStringLiteral("attempt %1").arg(unit.attempt));
        if (!unit.reason.isEmpty())
            why.append(unit.reason);
        line(QStringLiteral("%1 unit %2 %3 %4  %5")
                 .arg(shown(unit.outcome))
                 .arg(unit.number, 3)
                 .arg(unit.serialNumber, -12)
                 .arg(wasTested ? shownSeconds(unit.seconds()) : QString(), 8)
                 .arg(why.join(QStringLiteral(": "))));
        longest = std::max(longest, unit.seconds());
        total += unit.seconds();
    }
    const Yield yield = Yield::of(units);
    QStringList parts = {QStringLiteral("Yield %1 % (%2 of %3 units)")
                             .arg(yield.percent(yield.finalPass))
                             .arg(yield.finalPass)
                             .arg(yield.units)};
    if (yield.retested > 0)
        parts.append(QStringLiteral("first pass %1 % (%2)")
                         .arg(yield.percent(yield.firstPass))
                         .arg(yield.firstPass));
    if (yield.tested < yield.units)
        parts.append(QStringLiteral("%1 not tested").arg(yield.units - yield.tested));
    if (yield.tested > 0)
        parts += {QStringLiteral("%1 a unit on average").arg(shownSeconds(total / yield.tested)),
                  QStringLiteral("%1 the longest").arg(shownSeconds(longest)),
                  QStringLiteral("%1 in all").arg(shownSeconds(total))};
    line(parts.join(QStringLiteral(", ")));
    reportIn(files);
}
