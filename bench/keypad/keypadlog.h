/// Cuts what the tool prints into messages. QT_MESSAGE_PATTERN makes the tool's Qt put a
/// mark before and after every message, because a message may hold line ends; whatever is
/// outside the marks was printed by something else and is cut into lines.
#ifndef BENCH_KEYPAD_KEYPADLOG_H
#define BENCH_KEYPAD_KEYPADLOG_H

#include <QByteArray>
#include <QList>
#include <QString>

class KeypadLog
{
public:
    struct Line {
        qint64 usec = 0;  ///< when it arrived, microseconds since the keypad was prepared
        QString time;     ///< the tool's own clock, "hh:mm:ss.zzz"; empty for other output
        QString severity; ///< "debug", "info", "warning", "critical", "fatal"; "output" for others
        QString text;     ///< the message, line ends inside kept
    };

    /// Value for QT_MESSAGE_PATTERN.
    static QString pattern();

    /// Takes the next bytes, arrived at @p usec. @return what is complete now
    QList<Line> take(const QByteArray &bytes, qint64 usec);
    /// What is left when nothing more will come.
    QList<Line> finish(qint64 usec);

private:
    Line message(const QByteArray &record, qint64 usec) const;
    void takeForeign(const QByteArray &bytes, qint64 usec, QList<Line> *lines);

    QByteArray m_rest;
};

#endif
