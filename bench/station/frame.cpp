#include "bench/station/frame.h"

#include "bench/station/escape.h"

#include <QStringList>

#include <algorithm>

namespace wire
{

namespace
{

const int markSize = 2;
const int headerSize = 10;     ///< start mark, length and type
const int dataStart = 12;      ///< after the header check
const int trailerSize = 6;     ///< checksum and end mark
const int smallestFrame = 18;  ///< DataStart + TrailerSize
const int lengthOverhead = 10; ///< what the length field counts besides the data
const int lengthBias = 8;      ///< characters of a frame that the length field leaves out

QByteArray hex(uint value, int digits)
{
    return QByteArray::number(value, 16).rightJustified(digits, '0').toUpper();
}

uint sum(const QByteArray &characters)
{
    uint total = 0;
    for (char character : characters)
        total += static_cast<unsigned char>(character);
    return total;
}

bool isHex(const QByteArray &field)
{
    return std::all_of(field.begin(), field.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    });
}

/// Header or header check in the case that @p sender adds up. The start mark
/// is not a number that the keypad formats: it is summed in upper case.
QByteArray summedHeader(Sender sender, const QByteArray &header)
{
    if (sender == Sender::Station)
        return header;
    return header.left(markSize).toUpper() + header.mid(markSize).toLower();
}

QByteArray summedCheck(Sender sender, const QByteArray &check)
{
    return sender == Sender::Station ? check : check.toLower();
}

QByteArray headerCheck(Sender sender, const QByteArray &header)
{
    return hex(sum(summedHeader(sender, header)) & 0xFF, 2);
}

QByteArray checksum(Sender sender, const QByteArray &header, const QByteArray &check,
                    const QByteArray &data)
{
    const uint total =
        sum(summedHeader(sender, header)) + sum(summedCheck(sender, check)) + sum(data);
    return hex(total & 0xFFFF, 4);
}

/// How a station's author may have written a field, in upper or lower case, before adding
/// it up.
QList<QByteArray> casings(const QByteArray &field)
{
    return {field, field.toLower(), field.toUpper(), field.left(markSize) + field.mid(2).toLower()};
}

bool isHeaderCheckOfOtherCase(const QByteArray &header, const QByteArray &found)
{
    const QList<QByteArray> headers = casings(header);
    return std::any_of(headers.begin(), headers.end(), [&](const QByteArray &candidate) {
        return hex(sum(candidate) & 0xFF, 2) == found;
    });
}

bool isChecksumOfOtherCase(const QByteArray &header, const QByteArray &check,
                           const QByteArray &data, const QByteArray &found)
{
    const QList<QByteArray> headers = casings(header);
    const QList<QByteArray> checks = casings(check);
    for (const QByteArray &candidate : headers) {
        for (const QByteArray &digits : checks) {
            if (hex((sum(candidate) + sum(digits) + sum(data)) & 0xFFFF, 4) == found)
                return true;
        }
    }
    return false;
}

/// Collects the problems of one frame.
class Findings
{
public:
    explicit Findings(Report *report) : m_report(report) {}

    Problem &add(Problem::Check check, const QByteArray &expected, const QByteArray &found)
    {
        Problem problem;
        problem.check = check;
        problem.sender = m_report->sender;
        problem.expected = expected;
        problem.found = found;
        m_report->problems.append(problem);
        return m_report->problems.last();
    }

private:
    Report *m_report;
};

QByteArray checkOf(const QByteArray &characters)
{
    return characters.mid(headerSize, dataStart - headerSize);
}

QByteArray dataOf(const QByteArray &characters)
{
    return characters.mid(dataStart, characters.size() - smallestFrame);
}

QByteArray sumOf(const QByteArray &characters)
{
    return characters.mid(characters.size() - trailerSize, 4);
}

/// @param right  the frame that was meant; empty when that is not known
void checkSums(const QByteArray &characters, const QByteArray &right, Report *report)
{
    Findings findings(report);
    const QByteArray header = characters.left(headerSize);
    const QByteArray check = checkOf(characters);
    const QByteArray found = sumOf(characters).toUpper();

    // With the header check that is there, right or wrong: it is part of the sum.
    const bool sumFits = found == checksum(report->sender, header, check, report->frame.data);
    const bool checkFits = check.toUpper() == headerCheck(report->sender, header);
    if (!checkFits && check.toUpper() != checkOf(right).toUpper()) {
        Problem &problem = findings.add(Problem::HeaderCheck, checkOf(right), check);
        problem.wrongCase = isHeaderCheckOfOtherCase(header, check.toUpper());
        problem.harmless = sumFits && report->sender == Sender::Station;
    }
    if (!sumFits && found != sumOf(right).toUpper()) {
        Problem &problem = findings.add(Problem::Checksum, sumOf(right), sumOf(characters));
        problem.wrongCase = isChecksumOfOtherCase(header, check, report->frame.data, found);
    }
}

void checkMark(Problem::Check check, const QByteArray &found, Report *report)
{
    const QByteArray right = check == Problem::StartMark ? "7E" : "7F";
    if (found.toUpper() != right)
        Findings(report).add(check, right, found);
}

/// Too few characters: only the ends can be checked, and the type if it is there.
void checkFragment(Report *report)
{
    const QByteArray &characters = report->raw;
    Findings(report).add(Problem::Size, QByteArray::number(smallestFrame),
                         QByteArray::number(characters.size()));
    checkMark(Problem::StartMark, characters.left(markSize), report);
    checkMark(Problem::EndMark, characters.right(markSize), report);
    const QByteArray type = characters.mid(6, 4);
    if (type.size() == 4 && isHex(type))
        report->frame.type = static_cast<quint16>(type.toUInt(nullptr, 16));
}

/// The frame with all its own fields in upper case and the data unchanged.
QByteArray withUpperFields(const QByteArray &characters)
{
    return characters.left(dataStart).toUpper() +
           characters.mid(dataStart, characters.size() - dataStart - trailerSize) +
           characters.right(trailerSize).toUpper();
}

QByteArray lengthOf(const QByteArray &characters)
{
    return hex(static_cast<uint>(characters.size() - lengthBias) & 0xFFFF, 4);
}

/// A field that is left as it is when it is right in either case.
QByteArray corrected(const QByteArray &field, const QByteArray &right, bool isLower)
{
    if (field.toUpper() == right)
        return field;
    return isLower ? right.toLower() : right;
}

void checkWhole(Report *report)
{
    Findings findings(report);
    const QByteArray &characters = report->raw;
    const QByteArray right = rightFrame(report->sender, characters);
    checkMark(Problem::StartMark, characters.left(markSize), report);

    const QByteArray length = characters.mid(markSize, 4);
    const QByteArray rightLength = lengthOf(characters);
    if (length.toUpper() != rightLength)
        findings.add(Problem::LengthField, rightLength, length);

    const QByteArray type = characters.mid(6, 4);
    if (isHex(type))
        report->frame.type = static_cast<quint16>(type.toUInt(nullptr, 16));
    else
        findings.add(Problem::TypeField, "four hexadecimal digits", type);

    report->frame.data = dataOf(characters);
    checkSums(characters, right, report);
    checkMark(Problem::EndMark, characters.right(markSize), report);
    if (report->sender == Sender::Keypad && withUpperFields(characters) != characters)
        findings.add(Problem::UpperCase, right, characters);
}

QString sumsExplained(Sender sender)
{
    if (sender == Sender::Station)
        return QStringLiteral("wrong case summed: a station sums the characters exactly as it "
                              "sends them");
    return QStringLiteral("wrong case summed: the keypad sums length, type and header check with "
                          "lower-case digits, though it sends them in upper case");
}

QString shown(const QByteArray &bytes)
{
    return QString::fromLatin1(escaped(bytes));
}

} // namespace

QByteArray buildFrame(Sender sender, quint16 type, const QByteArray &data)
{
    const auto length = static_cast<uint>(data.size()) + lengthOverhead;
    const QByteArray header = "7E" + hex(length & 0xFFFF, 4) + hex(type, 4);
    const QByteArray check = headerCheck(sender, header);
    return header + check + data + checksum(sender, header, check, data) + "7F";
}

QByteArray rightFrame(Sender sender, const QByteArray &characters)
{
    const QByteArray type = characters.mid(markSize + 4, 4);
    if (characters.size() < smallestFrame || !isHex(type))
        return QByteArray();
    const QByteArray data = dataOf(characters);
    if (sender == Sender::Keypad)
        return buildFrame(sender, static_cast<quint16>(type.toUInt(nullptr, 16)), data);
    // A station's sums are those of its digits in the case in which it sends them.
    const bool isLower = withUpperFields(characters) != characters;
    const QByteArray header =
        corrected(characters.left(markSize), "7E", isLower) +
        corrected(characters.mid(markSize, 4), lengthOf(characters), isLower) + type;
    const QByteArray check = corrected(checkOf(characters), headerCheck(sender, header), isLower);
    const QByteArray sum =
        corrected(sumOf(characters), checksum(sender, header, check, data), isLower);
    return header + check + data + sum + corrected(characters.right(markSize), "7F", isLower);
}

QString Problem::text() const
{
    const QString wanted = shown(expected);
    switch (check) {
    case Size:
        return QStringLiteral("%1, a frame has at least %2").arg(place(), wanted);
    case LineEnd:
        return QStringLiteral("%1, should be \"%2\"").arg(place(), wanted);
    default:
        break;
    }
    if (expected.isEmpty())
        return finding();
    return QStringLiteral("%1, should be %2%3").arg(place(), wanted, hint());
}

QString Problem::finding() const
{
    return place() + hint();
}

/// Which part is where.
QString Problem::place() const
{
    const QString is = shown(found);
    switch (check) {
    case Size:
        return QStringLiteral("%1 characters").arg(is);
    case StartMark:
        return QStringLiteral("start mark is \"%1\"").arg(is);
    case EndMark:
        return QStringLiteral("end mark is \"%1\"").arg(is);
    case LengthField:
        return QStringLiteral("length field is %1").arg(is);
    case TypeField:
        return QStringLiteral("type field is \"%1\"").arg(is);
    case HeaderCheck:
        return QStringLiteral("header check is %1").arg(is);
    case Checksum:
        return QStringLiteral("checksum is %1").arg(is);
    case UpperCase:
        return QStringLiteral("lower-case digits");
    case LineEnd:
        return QStringLiteral("line end is \"%1\"").arg(is);
    }
    return QString();
}

/// Why a sum is wrong, or that it does not matter.
QString Problem::hint() const
{
    if (wrongCase)
        return QStringLiteral(" (%1)").arg(sumsExplained(sender));
    if (harmless)
        return QStringLiteral(" (the keypad does not look at it)");
    return QString();
}

bool Report::fails(Problem::Check check) const
{
    return std::any_of(problems.begin(), problems.end(),
                       [check](const Problem &problem) { return problem.check == check; });
}

QString Report::text() const
{
    QStringList texts;
    for (const Problem &problem : problems)
        texts.append(problem.text());
    return texts.join(QStringLiteral("; "));
}

Report checkFrame(Sender sender, const QByteArray &characters)
{
    Report report;
    report.sender = sender;
    report.raw = characters;
    if (characters.size() < smallestFrame)
        checkFragment(&report);
    else
        checkWhole(&report);
    return report;
}

Report checkLine(Sender sender, const QByteArray &line)
{
    if (sender == Sender::Station)
        return checkFrame(sender, line.trimmed());

    auto size = line.size();
    while (size > 0 && (line.at(size - 1) == '\n' || line.at(size - 1) == '\r'))
        --size;
    Report report = checkFrame(sender, line.left(size));
    const QByteArray lineEnd = line.mid(size);
    if (lineEnd != "\r\n")
        Findings(&report).add(Problem::LineEnd, "\r\n", lineEnd);
    return report;
}

} // namespace wire
