#include "protocol/replydata.h"

#include <QRegExp>
#include <QStringList>

namespace
{

const int versionTextWidth = 14;

QByteArray hexField(int value, int width)
{
    // Through 32 unsigned bits: how a negative number looks in base 16 differs between
    // versions of Qt.
    return QByteArray::number(static_cast<uint>(value), 16).toUpper().rightJustified(width, '0');
}

QByteArray decimalField(int value, int width)
{
    return QString::fromLatin1("%1").arg(value, width, 10, QLatin1Char('0')).toLatin1();
}

/// Upper case for the ASCII letters only: anything else stays the byte it is.
QByteArray upperCase(QByteArray text)
{
    for (int i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (c >= 'a' && c <= 'z')
            text[i] = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

/// The parts of the version number, at least two.
QStringList versionParts(const QString &version)
{
    const QRegExp dated(QLatin1String("^\\d{8} (.*)"));
    const bool isDated = dated.indexIn(version) == 0;
    QStringList parts = (isDated ? dated.cap(1) : version).split(QLatin1Char('.'));
    if (parts.size() == 1)
        parts.append(QLatin1String("0"));
    return parts;
}

} // namespace

QByteArray verdictData(bool good)
{
    return good ? "01" : "00";
}

QByteArray calibrationPointData(int index, const QPoint &p)
{
    return hexField(index, 2) + decimalField(p.x(), 5) + decimalField(p.y(), 5);
}

QByteArray touchData(const QPoint &p)
{
    return decimalField(p.x(), 3) + decimalField(p.y(), 3);
}

QByteArray flashStatusData(int stage, int percent)
{
    return hexField(stage, 2) + hexField(percent, 2);
}

QByteArray buttonsData(uint state)
{
    return hexField(static_cast<int>(state), 2);
}

QByteArray voltageData(const QByteArray &reading)
{
    return reading.rightJustified(8, '0', true);
}

QByteArray versionData(const QString &version)
{
    const QStringList parts = versionParts(version);
    const QByteArray text = version.toLatin1().leftJustified(versionTextWidth, ' ', true);
    return upperCase(hexField(parts.at(0).toInt() & 0xFF, 2) +
                     hexField(parts.at(1).toInt() & 0xFF, 2) + text + "0000000000000000");
}

QString sdCardResponse(int timeout, int portNum, int status, const int (&values)[10])
{
    QByteArray response =
        hexField(1, 2) + hexField(timeout, 2) + hexField(portNum, 2) + hexField(status, 2);
    for (const int value : values)
        response += hexField(value, 2);
    return QString::fromLatin1(response);
}
