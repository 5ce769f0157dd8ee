/// The other end of a line: answers each request with bytes that a test has
/// laid ready, in the process of the test itself.
#ifndef TESTS_BENCH_LINE_FAKEKEYPAD_H
#define TESTS_BENCH_LINE_FAKEKEYPAD_H

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QScopedPointer>
#include <QSocketNotifier>

#include <functional>

class FakeKeypad : public QObject
{
    Q_OBJECT

public:
    FakeKeypad();
    ~FakeKeypad() override;

    /// The station's end; whoever takes it closes it.
    int takeStationEnd();
    /// Answers the next request with these characters with @p bytes. Several for
    /// one request serve one after the other; the last one stays.
    void answer(const QByteArray &request, const QByteArray &bytes);
    void say(const QByteArray &bytes);
    void hangUp();

    QList<QByteArray> requests;      ///< without line ends
    std::function<void()> onRequest; ///< once it has been answered

private slots:
    void read();

private:
    int m_fd = -1;
    int m_stationEnd = -1;
    QScopedPointer<QSocketNotifier> m_notifier;
    QByteArray m_pending;
    QHash<QByteArray, QList<QByteArray>> m_answers;
};

#endif
