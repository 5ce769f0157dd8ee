#include "bench/keypad/keypadlog.h"

namespace
{

// Longer than one control character, since the tool logs what it receives, even junk.
const char opening[] = "\x1e<message ";
const char closing[] = "\x1e/message>";

} // namespace

QString KeypadLog::pattern()
{
    return QLatin1String(opening) + QLatin1String("%{time hh:mm:ss.zzz} %{type} %{message}") +
           QLatin1String(closing);
}

QList<KeypadLog::Line> KeypadLog::take(const QByteArray &bytes, qint64 usec)
{
    m_rest.append(bytes);
    QList<Line> lines;
    for (;;) {
        const int begin = int(m_rest.indexOf(opening));
        // Lines before the next message are complete; a line end right after a message
        // belongs to it; the empty line that it leaves does not count.
        const int foreign = begin >= 0 ? begin : int(m_rest.lastIndexOf('\n')) + 1;
        takeForeign(m_rest.left(foreign), usec, &lines);
        m_rest.remove(0, foreign);
        const int end = begin < 0 ? -1 : int(m_rest.indexOf(closing));
        if (end < 0)
            return lines;
        const int from = int(sizeof opening) - 1;
        lines.append(message(m_rest.mid(from, end - from), usec));
        m_rest.remove(0, end + int(sizeof closing) - 1);
    }
}

QList<KeypadLog::Line> KeypadLog::finish(qint64 usec)
{
    QList<Line> lines;
    takeForeign(m_rest, usec, &lines);
    m_rest.clear();
    return lines;
}

KeypadLog::Line KeypadLog::message(const QByteArray &record, qint64 usec) const
{
    const int timeEnd = int(record.indexOf(' '));
    const int typeEnd = int(record.indexOf(' ', timeEnd + 1));
    Line line;
    line.usec = usec;
    line.time = QString::fromLatin1(record.left(timeEnd));
    line.severity = QString::fromLatin1(record.mid(timeEnd + 1, typeEnd - timeEnd - 1));
    line.text = QString::fromUtf8(record.mid(typeEnd + 1));
    return line;
}

void KeypadLog::takeForeign(const QByteArray &bytes, qint64 usec, QList<Line> *lines)
{
    const QList<QByteArray> texts = bytes.split('\n');
    for (const QByteArray &text : texts) {
        if (text.isEmpty())
            continue;
        Line line;
        line.usec = usec;
        line.severity = QStringLiteral("output");
        line.text = QString::fromUtf8(text);
        lines->append(line);
    }
}
