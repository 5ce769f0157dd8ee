#include "bench/records/recordsreport.h"

#include <QFile>
#include <QMap>

#include <algorithm>
#include <cmath>
#include <functional>

#include <kainjow/mustache.hpp>

/// The template's resource is in a static library, and nothing else would link it.
/// Outside of any namespace, like the resource compiler's function.
static void initialiseResource()
{
    Q_INIT_RESOURCE(records);
}

namespace
{

using kainjow::mustache::data;

const int SlowestShown = 15;
const int FailuresShown = 20;
const int MostDaysShown = 31; ///< more are put together in months
const int FewPoints = 4;      ///< of the trend, each with its label and no wider than a quarter

const int LimitDigits = 12; ///< as a plan has them
const int DeviationDigits = 6;

// Of the drawings, in their own units; the page scales them.
const double ChartWidth = 600;
const double ChartHeight = 120;

data text(const QString &value)
{
    return data(value.toStdString());
}

QString percent(qint64 part, qint64 whole)
{
    if (whole == 0)
        return QStringLiteral("–");
    return QString::number(100.0 * static_cast<double>(part) / static_cast<double>(whole), 'f', 1) +
           QStringLiteral(" %");
}

double share(qint64 part, qint64 whole)
{
    return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

/// How many digits tell the values of a quantity apart, and show its whole numbers whole.
int digitsOf(const QuantityAnswer &answer)
{
    const int fewest = 6;
    const int most = 12;
    const double largest = std::max(std::abs(answer.values.least), std::abs(answer.values.most));
    const double spread = answer.values.most - answer.values.least;
    int digits = fewest;
    if (spread > 0)
        digits = std::max(digits, 3 + static_cast<int>(std::ceil(std::log10(largest / spread))));
    if (largest >= 1)
        digits = std::max(digits, 1 + static_cast<int>(std::floor(std::log10(largest))));
    return std::min(digits, most);
}

QString shown(double value, int digits)
{
    return QString::number(value, 'g', digits);
}

QString coordinate(double value)
{
    return QString::number(value, 'f', 1);
}

/// The capability, as far as it says something: one in the thousands only means that the
/// limits are far too wide.
QString orDash(const std::optional<double> &value)
{
    if (!value)
        return QStringLiteral("–");
    return std::abs(*value) < 1000 ? QString::number(*value, 'f', 2)
                                   : QString::number(*value, 'g', 3);
}

UnitCount total(const QList<UnitGroup> &groups)
{
    UnitCount all;
    for (const UnitGroup &group : groups)
        all.add(group.count);
    return all;
}

QMap<QString, UnitCount> countedBy(const QList<UnitGroup> &groups,
                                   const std::function<QString(const UnitGroup &)> &key)
{
    QMap<QString, UnitCount> counts;
    for (const UnitGroup &group : groups)
        counts[key(group)].add(group.count);
    return counts;
}

data countValues(const QString &name, const UnitCount &count)
{
    data values;
    values.set("name", text(name.isEmpty() ? QStringLiteral("(none)") : name));
    values.set("units", text(QString::number(count.units)));
    values.set("first", text(percent(count.firstPass, count.units)));
    values.set("final", text(percent(count.finalPass, count.units)));
    values.set("failed", text(QString::number(count.units - count.finalPass)));
    values.set("retested", text(QString::number(count.retested)));
    return values;
}

/// One of the tables of yields.
data yieldTable(const QString &title, const QMap<QString, UnitCount> &counts)
{
    data rows{data::type::list};
    for (auto it = counts.begin(); it != counts.end(); ++it)
        rows << countValues(it.key(), it.value());
    data table;
    table.set("title", text(title));
    table.set("rows", rows);
    return table;
}

/// A table with a single row is left out: the page's head says the same.
data yieldTables(const QList<UnitGroup> &groups)
{
    const QList<QPair<QString, std::function<QString(const UnitGroup &)>>> tables = {
        {QStringLiteral("station"), [](const UnitGroup &group) { return group.station; }},
        {QStringLiteral("plan"), [](const UnitGroup &group) { return group.plan; }},
        {QStringLiteral("variant"), [](const UnitGroup &group) { return group.variant; }},
    };
    data list{data::type::list};
    for (const auto &table : tables) {
        const QMap<QString, UnitCount> counts = countedBy(groups, table.second);
        if (counts.size() > 1)
            list << yieldTable(table.first, counts);
    }
    return list;
}

/// How many characters of a date tell the points of the trend apart: days, or months when
/// there are many.
int trendDigits(const QList<UnitGroup> &groups)
{
    const auto days = countedBy(groups, [](const UnitGroup &group) { return group.day; });
    return days.size() <= MostDaysShown ? 10 : 7;
}

/// The trend as two lines over bars of how many units there were.
data trend(const QList<UnitGroup> &groups)
{
    const int digits = trendDigits(groups);
    const QMap<QString, UnitCount> points =
        countedBy(groups, [digits](const UnitGroup &group) { return group.day.left(digits); });
    qint64 most = 1;
    double low = 0.9; // where the scale of the yields begins: most of them are near the top
    for (const UnitCount &count : points) {
        most = std::max(most, count.units);
        low = std::min(low, std::floor(10 * share(count.firstPass, count.units)) / 10);
        low = std::min(low, std::floor(10 * share(count.finalPass, count.units)) / 10);
    }
    const auto height = [low](double yield) { return ChartHeight * (1 - yield) / (1 - low); };
    const auto count = static_cast<double>(points.size());
    const double step = ChartWidth / std::max(count, double(FewPoints));
    const bool areFew = points.size() <= FewPoints;
    data bars{data::type::list};
    data rows{data::type::list};
    data labels{data::type::list};
    QString first;
    QString last;
    int index = 0;
    for (auto it = points.begin(); it != points.end(); ++it, ++index) {
        const double x = step * index;
        const double tall = ChartHeight * share(it->units, most);
        data bar;
        bar.set("x", text(coordinate(x + step * 0.1)));
        bar.set("y", text(coordinate(ChartHeight - tall)));
        bar.set("width", text(coordinate(step * 0.8)));
        bar.set("height", text(coordinate(tall)));
        bar.set("label", text(QStringLiteral("%1: %2 units, first pass %3, final %4")
                                  .arg(it.key())
                                  .arg(it->units)
                                  .arg(percent(it->firstPass, it->units),
                                       percent(it->finalPass, it->units))));
        bars << bar;
        // A line through one point would not be seen: it is as wide as its bar.
        const QList<double> across = points.size() == 1
                                         ? QList<double>{x + step * 0.1, x + step * 0.9}
                                         : QList<double>{x + step / 2};
        for (const double at : across) {
            first += coordinate(at) + QLatin1Char(',') +
                     coordinate(height(share(it->firstPass, it->units))) + QLatin1Char(' ');
            last += coordinate(at) + QLatin1Char(',') +
                    coordinate(height(share(it->finalPass, it->units))) + QLatin1Char(' ');
        }
        rows << countValues(it.key(), it.value());
        if (areFew || index == 0 || index + 1 == points.size())
            labels << data("label", text(it.key()));
    }
    data values;
    values.set("areFew", data(areFew));
    values.set("labels", labels);
    values.set("period", text(digits == 10 ? QStringLiteral("Day") : QStringLiteral("Month")));
    values.set("low", text(QString::number(std::lround(100 * low))));
    values.set("bars", bars);
    values.set("first", text(first.trimmed()));
    values.set("final", text(last.trimmed()));
    values.set("most", text(QString::number(most)));
    values.set("rows", rows);
    return values;
}

/// Most first, with the share that they and all before them have.
data pareto(const QList<StepFailures> &steps)
{
    qint64 all = 0;
    for (const StepFailures &step : steps)
        all += step.records;
    qint64 soFar = 0;
    data rows{data::type::list};
    for (const StepFailures &step : steps.mid(0, FailuresShown)) {
        soFar += step.records;
        data row;
        row.set("plan", text(step.plan));
        row.set("step", text(step.step));
        row.set("records", text(QString::number(step.records)));
        row.set("share", text(percent(step.records, all)));
        row.set("sum", text(percent(soFar, all)));
        row.set("width", text(coordinate(100 * share(step.records,
                                                     std::max<qint64>(1, steps.first().records)))));
        rows << row;
    }
    return rows;
}

data limitLine(const QuantityAnswer &answer, const std::optional<double> &limit)
{
    data lines{data::type::list};
    if (limit && *limit >= answer.bins.from && *limit <= answer.bins.to()) {
        data line;
        line.set("x", text(coordinate(ChartWidth * (*limit - answer.bins.from) /
                                      (answer.bins.to() - answer.bins.from))));
        lines << line;
    }
    return lines;
}

data histogram(const QuantityAnswer &answer)
{
    qint64 most = 1;
    for (const qint64 bar : answer.bars)
        most = std::max(most, bar);
    const double width = ChartWidth / answer.bins.count;
    const int digits = digitsOf(answer);
    data bars{data::type::list};
    for (int i = 0; i < answer.bars.size(); ++i) {
        const double height = ChartHeight * share(answer.bars.at(i), most);
        data bar;
        bar.set("x", text(coordinate(width * i + 1)));
        bar.set("y", text(coordinate(ChartHeight - height)));
        bar.set("width", text(coordinate(std::max(1.0, width - 2))));
        bar.set("height", text(coordinate(height)));
        bar.set("label", text(QStringLiteral("%1 to %2: %3")
                                  .arg(shown(answer.bins.edge(i), digits),
                                       shown(answer.bins.edge(i + 1), digits))
                                  .arg(answer.bars.at(i))));
        bars << bar;
    }
    return bars;
}

QString limits(const QuantityAnswer &answer)
{
    if (answer.minimum && answer.maximum)
        return QStringLiteral("%1 to %2")
            .arg(shown(*answer.minimum, LimitDigits), shown(*answer.maximum, LimitDigits));
    if (answer.minimum)
        return QStringLiteral("at least %1").arg(shown(*answer.minimum, LimitDigits));
    if (answer.maximum)
        return QStringLiteral("at most %1").arg(shown(*answer.maximum, LimitDigits));
    return QStringLiteral("none");
}

data quantityValues(const QuantityAnswer &answer)
{
    const int digits = digitsOf(answer);
    data values;
    values.set("plan", text(answer.plan));
    values.set("step", text(answer.step));
    values.set("name", text(answer.name));
    values.set("unit", text(answer.unit));
    values.set("limits", text(limits(answer)));
    values.set("count", text(QString::number(answer.values.count)));
    values.set("outside", text(QString::number(answer.outside)));
    values.set("mean", text(shown(answer.values.mean, digits)));
    values.set("deviation", text(shown(answer.values.deviation, DeviationDigits)));
    values.set("least", text(shown(answer.values.least, digits)));
    values.set("most", text(shown(answer.values.most, digits)));
    values.set("cp", text(orDash(answer.values.cp(answer.minimum, answer.maximum))));
    values.set("cpk", text(orDash(answer.values.cpk(answer.minimum, answer.maximum))));
    values.set("bars", histogram(answer));
    values.set("low", limitLine(answer, answer.minimum));
    values.set("high", limitLine(answer, answer.maximum));
    values.set("from", text(shown(answer.bins.from, digits)));
    values.set("to", text(shown(answer.bins.to(), digits)));
    return values;
}

data slowestRows(const QList<StepTime> &steps)
{
    data rows{data::type::list};
    for (const StepTime &step : steps) {
        data row;
        row.set("plan", text(step.plan));
        row.set("step", text(step.step));
        row.set("runs", text(QString::number(step.runs)));
        row.set("mean", text(QString::number(step.mean, 'f', 2)));
        row.set("most", text(QString::number(step.most, 'f', 2)));
        rows << row;
    }
    return rows;
}

} // namespace

bool askAll(const Questions &questions, RecordsAnswer *answer, QString *error)
{
    return questions.units(&answer->units, error) && questions.failures(&answer->failures, error) &&
           questions.slowest(SlowestShown, &answer->slowest, error) &&
           questions.quantities(&answer->quantities, error);
}

QByteArray recordsReport(const RecordsAnswer &answer)
{
    initialiseResource();
    QFile file(QStringLiteral(":/records/records.html"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the report's template is missing");

    const UnitCount all = total(answer.units);
    data quantities{data::type::list};
    for (const QuantityAnswer &quantity : answer.quantities)
        quantities << quantityValues(quantity);
    data values;
    values.set("which",
               text(answer.which.isEmpty() ? QStringLiteral("all records") : answer.which));
    values.set("time", text(answer.time.toString(QStringLiteral("yyyy-MM-dd HH:mm"))));
    values.set("units", text(QString::number(all.units)));
    values.set("attempts", text(QString::number(all.attempts)));
    values.set("first", text(percent(all.firstPass, all.units)));
    values.set("final", text(percent(all.finalPass, all.units)));
    values.set("retested", text(QString::number(all.retested)));
    values.set("any", data(all.units > 0));
    values.set("trend", trend(answer.units));
    values.set("tables", yieldTables(answer.units));
    values.set("failures", pareto(answer.failures));
    values.set("anyFailures", data(!answer.failures.isEmpty()));
    values.set("quantities", quantities);
    values.set("anyQuantities", data(!answer.quantities.isEmpty()));
    values.set("slowest", slowestRows(answer.slowest));

    kainjow::mustache::mustache page(file.readAll().toStdString());
    if (!page.is_valid())
        qFatal("the report's template is wrong: %s", page.error_message().c_str());
    return QByteArray::fromStdString(page.render(values));
}
