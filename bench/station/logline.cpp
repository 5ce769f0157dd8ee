#include "bench/station/logline.h"

#include "bench/station/escape.h"
#include "bench/station/meaning.h"
#include "bench/station/messages.h"

#include <QVector>

#include <algorithm>

namespace wire
{

namespace
{

const int markSize = 2;
const int smallestFrame = 18;
const int trailerSize = 6; ///< checksum and end mark
const int lengthBias = 8;  ///< characters of a frame that its length leaves out

bool isMark(const QByteArray &line, int at, char letter)
{
    return at + markSize <= line.size() && line.at(at) == '7' &&
           (line.at(at + 1) & ~0x20) == letter;
}

QVector<int> marksIn(const QByteArray &line, char letter)
{
    QVector<int> places;
    for (int at = 0; at + markSize <= line.size(); ++at) {
        if (isMark(line, at, letter))
            places.append(at);
    }
    return places;
}

/// Checks a piece of a line as a frame from the side that sends its type.
Report checkAnySender(const QByteArray &characters)
{
    const Report asStation = checkFrame(Sender::Station, characters);
    const std::optional<Sender> sender = senderOf(asStation.frame.type);
    if (sender == Sender::Station)
        return asStation;
    const Report asKeypad = checkFrame(Sender::Keypad, characters);
    if (sender == Sender::Keypad || (asKeypad.ok() && !asStation.ok()))
        return asKeypad;
    return asStation;
}

QList<Report> rightFrames(const QByteArray &line)
{
    const QVector<int> ends = marksIn(line, 'F');
    QList<Report> found;
    int from = 0;
    for (int start : marksIn(line, 'E')) {
        if (start < from)
            continue;
        for (int end : ends) {
            const int size = end + markSize - start;
            if (size < smallestFrame)
                continue;
            const Report report = checkAnySender(line.mid(start, size));
            if (!report.ok())
                continue;
            found.append(report);
            from = start + size;
            break;
        }
    }
    return found;
}

/// The line without what a log or transcript puts after a frame: white space, a line end
/// written out, a closing quote with what follows it.
QByteArray withoutTail(QByteArray line)
{
    line = line.trimmed();
    const auto written = line.indexOf("\\r");
    if (written >= 0)
        line.truncate(written);
    const auto quote = line.lastIndexOf('"');
    if (quote > 0 && line.indexOf('"') != quote)
        line.truncate(quote);
    return line.trimmed();
}

/// The longest run of hexadecimal digits that ends with an end mark, for a frame whose
/// start mark is damaged.
QByteArray hexRun(const QByteArray &line)
{
    QByteArray best;
    QByteArray run;
    for (char c : line + ' ') {
        const bool isDigit = (c >= '0' && c <= '9') || ((c & ~0x20) >= 'A' && (c & ~0x20) <= 'Z');
        if (isDigit) {
            run += c;
            continue;
        }
        if (run.size() >= smallestFrame && run.size() > best.size() &&
            run.right(markSize).toUpper() == "7F")
            best = run;
        run.clear();
    }
    return best;
}

/// In a line without a right frame, the piece that was most likely meant as one.
QByteArray likelyFrame(const QByteArray &wholeLine)
{
    const QByteArray line = withoutTail(wholeLine);
    const QVector<int> starts = marksIn(line, 'E');
    const QVector<int> ends = marksIn(line, 'F');
    QByteArray best;
    int fewest = 0;
    for (int start : starts) {
        // Up to each end mark, and to the end of the line in case the mark is damaged.
        QVector<int> sizes;
        for (int end : ends)
            sizes.append(end + markSize - start);
        sizes.append(static_cast<int>(line.size()) - start);
        for (int size : sizes) {
            if (size < markSize)
                continue;
            const Report report = checkAnySender(line.mid(start, size));
            const int problems = static_cast<int>(report.problems.size());
            if (best.isEmpty() || problems < fewest) {
                best = report.raw;
                fewest = problems;
            }
        }
    }
    if (best.size() >= smallestFrame)
        return best;
    const QByteArray run = hexRun(line);
    return run.isEmpty() ? best : run;
}

QString verdictOf(const Report &report)
{
    if (report.sender == Sender::Keypad)
        return QString();
    const bool isHarmless = report.problems.size() == 1 && report.problems.first().harmless;
    return isHarmless ? QStringLiteral("keypad:  takes it all the same\n")
                      : QStringLiteral("keypad:  answers NAK\n");
}

/// The side that sends the type; for a type that nobody sends, the side whose sums are
/// right.
QString senderText(const Report &report)
{
    const QString side =
        report.sender == Sender::Station ? QStringLiteral("station") : QStringLiteral("keypad");
    if (senderOf(report.frame.type))
        return side;
    const bool asStation = checkFrame(Sender::Station, report.raw).ok();
    const bool asKeypad = checkFrame(Sender::Keypad, report.raw).ok();
    if (asStation != asKeypad)
        return side + QStringLiteral(", by its sums");
    return QStringLiteral("unknown; checked as the %1's").arg(side);
}

QString fieldsOf(const QVariantMap &fields)
{
    QString text;
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        const QString value = QString::fromLatin1(escaped(field.value().toString().toLatin1()));
        text += QStringLiteral("field:   %1 = %2\n").arg(field.key(), value);
    }
    return text;
}

/// The size of a frame that lost its end, by its length field; 0 when its end is there.
int sizeBeforeTheCut(const Report &report)
{
    bool isNumber = false;
    const int announced = report.raw.mid(markSize, 4).toInt(&isNumber, 16) + lengthBias;
    const bool isCut = isNumber && report.fails(Problem::EndMark) &&
                       !report.fails(Problem::StartMark) && announced > report.raw.size();
    return isCut ? announced : 0;
}

QByteArray withoutBlanks(QByteArray line)
{
    return line.replace(' ', QByteArray()).replace('\t', QByteArray());
}

QString typeLine(quint16 type)
{
    return QStringLiteral("type:    %1 (%2)\n").arg(typeNumber(type), typeName(type));
}

QString contentOf(const Report &report)
{
    const Meaning meaning = meaningOf(report.frame);
    QString text = QStringLiteral("sender:  %1\n").arg(senderText(report)) +
                   typeLine(report.frame.type) + QStringLiteral("meaning: %1\n").arg(meaning.text) +
                   fieldsOf(meaning.fields);
    if (!meaning.complaint.isEmpty())
        text += QStringLiteral("data:    %1\n").arg(meaning.complaint);
    return text;
}

/// The right frame for @p report. Empty when it is not known what was meant: if the
/// keypad refuses a frame with right sums, this one was not.
QByteArray rightFrameOf(const Report &report)
{
    if (!meaningOf(report.frame).complaint.isEmpty())
        return QByteArray();
    return rightFrame(report.sender, report.raw);
}

/// Without a right frame to compare with, only the marks are shown as they should be.
QString problemLine(const Problem &problem, bool hasRight)
{
    const bool isSure =
        hasRight ||
        (problem.check != Problem::LengthField && problem.check != Problem::HeaderCheck &&
         problem.check != Problem::Checksum && problem.check != Problem::UpperCase);
    return QStringLiteral("wrong:   %1\n").arg(isSure ? problem.text() : problem.finding());
}

QString rightLine(const QByteArray &right)
{
    if (right.isEmpty())
        return QString();
    return QStringLiteral("right:   %1\n").arg(QString::fromLatin1(escaped(right)));
}

/// A frame that lost its end. Everything that its length field counts may be there, up to
/// the checksum.
QString explainCutOff(const Report &report, int wholeSize)
{
    const int missing = wholeSize - static_cast<int>(report.raw.size());
    const bool hasData = missing <= trailerSize;
    const QString cut = QStringLiteral("wrong:   cut off, most likely: its length field tells of "
                                       "%1 characters, here are %2\n")
                            .arg(wholeSize)
                            .arg(report.raw.size());
    if (!hasData)
        return (report.frame.type != 0 ? typeLine(report.frame.type) : QString()) + cut;
    const QByteArray whole = report.raw.left(wholeSize - trailerSize) + "00007F";
    const Report meant = checkAnySender(whole);
    const QByteArray right = rightFrameOf(meant);
    QString text = contentOf(meant) + cut;
    for (const Problem &problem : meant.problems) {
        if (problem.check != Problem::Checksum)
            text += problemLine(problem, !right.isEmpty());
    }
    return text + rightLine(right);
}

} // namespace

QList<Report> framesInLogLine(const QByteArray &line)
{
    const QList<Report> right = rightFrames(line);
    if (!right.isEmpty())
        return right;
    // Many pages and logs put blanks between the fields or bytes of a frame.
    const QList<Report> setApart = rightFrames(withoutBlanks(line));
    if (!setApart.isEmpty())
        return setApart;
    const QByteArray likely = likelyFrame(line);
    if (likely.isEmpty())
        return {};
    return {checkAnySender(likely)};
}

QString explain(const Report &report)
{
    QString text = QStringLiteral("frame:   %1\n").arg(QString::fromLatin1(escaped(report.raw)));
    const int wholeSize = sizeBeforeTheCut(report);
    if (wholeSize > 0)
        return text + explainCutOff(report, wholeSize) + verdictOf(report);
    if (report.raw.size() >= smallestFrame && !report.fails(Problem::TypeField))
        text += contentOf(report);
    else if (report.frame.type != 0)
        text += typeLine(report.frame.type);
    if (report.ok())
        return text + QStringLiteral("checks:  all right\n");
    const QByteArray right = rightFrameOf(report);
    for (const Problem &problem : report.problems)
        text += problemLine(problem, !right.isEmpty());
    return text + rightLine(right) + verdictOf(report);
}

} // namespace wire
