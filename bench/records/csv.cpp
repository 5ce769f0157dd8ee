#include "bench/records/csv.h"

#include <QDateTime>

namespace
{

QString field(QString text)
{
    static const QString formulas = QStringLiteral("=+-@\t\r");
    bool isNumber = false;
    text.toDouble(&isNumber);
    if (!text.isEmpty() && !isNumber && formulas.contains(text.at(0)))
        text.prepend(QLatin1Char('\''));
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) &&
        !text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')))
        return text;
    return QLatin1Char('"') + text.replace(QLatin1String("\""), QLatin1String("\"\"")) +
           QLatin1Char('"');
}

QString isoTime(qint64 start)
{
    return QDateTime::fromMSecsSinceEpoch(start, Qt::UTC).toString(Qt::ISODateWithMs);
}

QString orEmpty(const std::optional<double> &number)
{
    return number ? QString::number(*number, 'g', 15) : QString();
}

bool put(QIODevice *output, const QStringList &fields, QString *error)
{
    const QByteArray line = csvLine(fields) + "\r\n";
    if (output->write(line) == line.size())
        return true;
    *error = output->errorString();
    return false;
}

} // namespace

QByteArray csvLine(const QStringList &fields)
{
    QStringList quoted;
    for (const QString &each : fields)
        quoted.append(field(each));
    return quoted.join(QLatin1Char(',')).toUtf8();
}

bool writeRecords(const Questions &questions, QIODevice *output, QString *error)
{
    bool good =
        put(output,
            {QStringLiteral("start"), QStringLiteral("serial_number"), QStringLiteral("plan"),
             QStringLiteral("variant"), QStringLiteral("station"), QStringLiteral("fixture"),
             QStringLiteral("operator"), QStringLiteral("attempt"), QStringLiteral("seconds"),
             QStringLiteral("outcome"), QStringLiteral("reason")},
            error);
    const auto take = [&](const ListedRecord &record) {
        good = good && put(output,
                           {isoTime(record.start), record.serialNumber, record.plan, record.variant,
                            record.station, record.fixture, record.operatorName,
                            QString::number(record.attempt), QString::number(record.seconds),
                            record.outcome, record.reason},
                           error);
    };
    return questions.each(take, error) && good && error->isEmpty();
}

bool writeValues(const Questions &questions, QIODevice *output, QString *error)
{
    bool good = put(output,
                    {QStringLiteral("start"), QStringLiteral("serial_number"),
                     QStringLiteral("plan"), QStringLiteral("step"), QStringLiteral("name"),
                     QStringLiteral("value"), QStringLiteral("unit"), QStringLiteral("min"),
                     QStringLiteral("max"), QStringLiteral("good")},
                    error);
    const auto take = [&](const ListedValue &value) {
        good = good &&
               put(output,
                   {isoTime(value.start), value.serialNumber, value.plan, value.step, value.name,
                    value.value, value.unit, orEmpty(value.minimum), orEmpty(value.maximum),
                    value.good ? QStringLiteral("1") : QStringLiteral("0")},
                   error);
    };
    return questions.eachValue(take, error) && good && error->isEmpty();
}
