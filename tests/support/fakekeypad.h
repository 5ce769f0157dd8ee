/// A keypad that answers from a script, on a line that is a pseudo terminal.
#ifndef TESTS_SUPPORT_FAKEKEYPAD_H
#define TESTS_SUPPORT_FAKEKEYPAD_H

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

#include "tests/support/ptyline.h"

QT_BEGIN_NAMESPACE
class QSocketNotifier;
QT_END_NAMESPACE

class FakeKeypad : public QObject
{
    Q_OBJECT

public:
    FakeKeypad();

    /// The end that a station opens.
    QString path() const { return m_line.path(); }
    /// The station's end, opened; whoever takes it closes it.
    int takeStationEnd() const;
    /// The keypad's own end, for a keypad played outside of the event loop.
    int descriptor() const { return m_line.near(); }

    /// Once the event loop runs, the keypad answers @p request by itself. Several answers
    /// to one request are given one after the other; the last one stays.
    void answer(const QByteArray &request, const QByteArray &bytes);
    /// The same with one write for each of @p pieces.
    void answerInPieces(const QByteArray &request, const QList<QByteArray> &pieces);
    void forgetAnswers() { m_answers.clear(); }

    /// Puts @p bytes on the line, in one write.
    void say(const QByteArray &bytes) { m_line.send(bytes); }

    /// Closes the line.
    void hangUp();

    /// Every read so far: how the station cut its bytes.
    QList<QByteArray> reads() const { return m_reads; }

    QList<QByteArray> requests;      ///< without line ends
    std::function<void()> onRequest; ///< once it has been answered

private slots:
    void read();

private:
    void sayNextAnswer(const QByteArray &request);

    PtyLine m_line;
    QSocketNotifier *m_notifier;
    QByteArray m_pending;
    QHash<QByteArray, QList<QList<QByteArray>>> m_answers;
    QList<QByteArray> m_reads;
};

#endif
