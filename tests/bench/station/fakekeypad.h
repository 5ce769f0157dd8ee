/// A keypad that answers from a script, on the far end of a pseudo terminal.
#ifndef TESTS_BENCH_STATION_FAKEKEYPAD_H
#define TESTS_BENCH_STATION_FAKEKEYPAD_H

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

QT_BEGIN_NAMESPACE
class QSocketNotifier;
QT_END_NAMESPACE

class FakeKeypad : public QObject
{
    Q_OBJECT

public:
    FakeKeypad();
    ~FakeKeypad() override;

    /// The end that a station opens.
    QString path() const { return m_path; }
    /// The keypad's own end, for a keypad played outside of the event loop.
    int descriptor() const { return m_fd; }

    /// From now on a read that brings exactly @p request is answered with @p pieces,
    /// one write each. Once the event loop runs, the keypad answers by itself.
    void answerInPieces(const QByteArray &request, const QList<QByteArray> &pieces);
    void answer(const QByteArray &request, const QByteArray &piece);

    /// Puts @p bytes on the line, in one write.
    void say(const QByteArray &bytes);

    /// Closes the line.
    void hangUp();

    /// Every read so far: how the station cut its bytes.
    QList<QByteArray> reads() const { return m_reads; }

private slots:
    void read();

private:
    int m_fd = -1;
    int m_far = -1; ///< kept open: the line does not hang up before a station opens it
    QString m_path;
    QSocketNotifier *m_notifier = nullptr;
    QHash<QByteArray, QList<QByteArray>> m_answers;
    QList<QByteArray> m_reads;
};

#endif
