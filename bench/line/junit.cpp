#include "bench/line/junit.h"

#include <QXmlStreamWriter>

namespace
{

QString plainSeconds(double seconds)
{
    return QString::number(seconds, 'f', 3);
}

/// XML allows no other control characters, escaped or not.
QString printable(QString text)
{
    for (QChar &character : text) {
        if (character < QLatin1Char(' ') && character != QLatin1Char('\n'))
            character = QLatin1Char('?');
    }
    return text;
}

void writeProblem(QXmlStreamWriter &xml, const StepRecord &step)
{
    xml.writeStartElement(step.outcome == Outcome::Fail ? QStringLiteral("failure")
                                                        : QStringLiteral("error"));
    xml.writeAttribute(QStringLiteral("type"), outcomeName(step.outcome));
    xml.writeAttribute(QStringLiteral("message"), printable(step.reason));
    QStringList lines;
    if (!step.expected.isEmpty())
        lines.append(QStringLiteral("expected: ") + step.expected);
    if (!step.came.isEmpty())
        lines.append(QStringLiteral("came: ") + step.came);
    if (!step.raw.isEmpty())
        lines.append(QStringLiteral("raw: ") + QString::fromLatin1(step.raw));
    xml.writeCharacters(printable(lines.join(QLatin1Char('\n'))));
    xml.writeEndElement();
}

void writeStep(QXmlStreamWriter &xml, const UnitRecord &unit, const StepRecord &step)
{
    xml.writeStartElement(QStringLiteral("testcase"));
    QString name = unit.plan;
    if (!step.group.isEmpty())
        name += QLatin1Char('.') + step.group;
    xml.writeAttribute(QStringLiteral("classname"), name);
    xml.writeAttribute(QStringLiteral("name"), step.name);
    xml.writeAttribute(QStringLiteral("time"), plainSeconds(step.seconds));
    if (step.outcome == Outcome::NotRun) {
        xml.writeStartElement(QStringLiteral("skipped"));
        xml.writeAttribute(QStringLiteral("message"), printable(step.reason));
        xml.writeEndElement();
    } else if (step.outcome != Outcome::Pass) {
        writeProblem(xml, step);
    }
    xml.writeEndElement();
}

/// What testsuite and testsuites both have; only testsuite has "skipped".
void writeCounts(QXmlStreamWriter &xml, const QList<UnitRecord> &units)
{
    int tests = 0;
    int failures = 0;
    int errors = 0;
    double seconds = 0;
    for (const UnitRecord &unit : units) {
        tests += static_cast<int>(unit.steps.size());
        failures += unit.count(Outcome::Fail);
        errors += unit.count(Outcome::TimeOut) + unit.count(Outcome::Error) +
                  unit.count(Outcome::Interrupted);
        seconds += unit.seconds();
    }
    xml.writeAttribute(QStringLiteral("tests"), QString::number(tests));
    xml.writeAttribute(QStringLiteral("failures"), QString::number(failures));
    xml.writeAttribute(QStringLiteral("errors"), QString::number(errors));
    xml.writeAttribute(QStringLiteral("time"), plainSeconds(seconds));
}

void writeProperty(QXmlStreamWriter &xml, const char *name, const QString &value)
{
    if (value.isEmpty())
        return;
    xml.writeEmptyElement(QStringLiteral("property"));
    xml.writeAttribute(QStringLiteral("name"), QLatin1String(name));
    xml.writeAttribute(QStringLiteral("value"), printable(value));
}

/// Whoever counts first and final passes must be able to tell a unit's attempts apart.
void writeAttempt(QXmlStreamWriter &xml, const UnitRecord &unit, bool isLast)
{
    xml.writeStartElement(QStringLiteral("properties"));
    writeProperty(xml, "attempt", QString::number(unit.attempt));
    writeProperty(xml, "last_attempt", isLast ? QStringLiteral("true") : QStringLiteral("false"));
    writeProperty(xml, "outcome", outcomeName(unit.outcome));
    writeProperty(xml, "operator", unit.operatorName);
    xml.writeEndElement();
}

void writeUnit(QXmlStreamWriter &xml, const UnitRecord &unit, bool isLast)
{
    xml.writeStartElement(QStringLiteral("testsuite"));
    QString name = QStringLiteral("%1 unit %2").arg(unit.plan).arg(unit.number);
    if (!unit.serialNumber.isEmpty())
        name = QStringLiteral("%1 %2").arg(unit.plan, unit.serialNumber);
    if (unit.attempt > 1)
        name += QStringLiteral(" attempt %1").arg(unit.attempt);
    xml.writeAttribute(QStringLiteral("name"), name);
    xml.writeAttribute(QStringLiteral("timestamp"), unit.start.toString(Qt::ISODate));
    xml.writeAttribute(QStringLiteral("hostname"), unit.station);
    writeCounts(xml, {unit});
    xml.writeAttribute(QStringLiteral("skipped"), QString::number(unit.count(Outcome::NotRun)));
    writeAttempt(xml, unit, isLast);
    for (const StepRecord &step : unit.steps)
        writeStep(xml, unit, step);
    xml.writeEndElement();
}

} // namespace

QByteArray toJunit(const QList<UnitRecord> &units)
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("testsuites"));
    writeCounts(xml, units);
    const QList<bool> areLast = lastAttempts(units);
    for (int i = 0; i < units.size(); ++i)
        writeUnit(xml, units.at(i), areLast.at(i));
    xml.writeEndElement();
    xml.writeEndDocument();
    return bytes;
}
