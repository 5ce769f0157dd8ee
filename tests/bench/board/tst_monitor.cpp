#include "bench/board/monitor.h"

#include <QtTest>

#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "tests/support/testprogram.h"

namespace
{

const char Greeting[] = "{\"QMP\": {\"version\": {}, \"capabilities\": []}}\r\n";
const char Good[] = "{\"return\": {}}\r\n";

/// Plays the emulator: for each line that comes, says the next of its texts.
void play(int fd, QList<QByteArray> texts, QByteArray *heard)
{
    const auto say = [&] {
        const QByteArray text = texts.takeFirst();
        return write(fd, text.constData(), static_cast<size_t>(text.size())) == text.size();
    };
    if (!say())
        return;
    char c;
    while (!texts.isEmpty() && read(fd, &c, 1) == 1) {
        heard->append(c);
        if (c == '\n' && !say())
            return;
    }
}

} // namespace

class TestMonitor : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void executes();
    void passesEventsBy();
    void refused();
    void silent();

private:
    void emulate(const QList<QByteArray> &texts);

    int m_ends[2];
    std::thread m_emulator;
    QByteArray m_heard;
};

void TestMonitor::init()
{
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_ends), 0);
    m_heard.clear();
}

void TestMonitor::cleanup()
{
    if (m_emulator.joinable())
        m_emulator.join();
    close(m_ends[1]);
}

void TestMonitor::emulate(const QList<QByteArray> &texts)
{
    m_emulator = std::thread([this, texts] { play(m_ends[1], texts, &m_heard); });
}

void TestMonitor::executes()
{
    emulate({Greeting, Good, Good});
    Monitor monitor;
    QVERIFY(monitor.open(m_ends[0]));
    QVERIFY(monitor.execute(QStringLiteral("screendump"),
                            {{QStringLiteral("filename"), QStringLiteral("/tmp/x")}}));
    m_emulator.join();
    QCOMPARE(m_heard,
             QByteArray("{\"execute\":\"qmp_capabilities\"}\n"
                        "{\"arguments\":{\"filename\":\"/tmp/x\"},\"execute\":\"screendump\"}\n"));
}

void TestMonitor::passesEventsBy()
{
    emulate({Greeting, Good, QByteArray("{\"event\": \"RESET\"}\r\n") + Good});
    Monitor monitor;
    QVERIFY(monitor.open(m_ends[0]));
    QVERIFY(monitor.execute(QStringLiteral("cont")));
}

void TestMonitor::refused()
{
    emulate({Greeting, Good, "{\"error\": {\"class\": \"GenericError\", \"desc\": \"no\"}}\r\n"});
    Monitor monitor;
    QVERIFY(monitor.open(m_ends[0]));
    QVERIFY(!monitor.execute(QStringLiteral("quit")));
    QCOMPARE(monitor.errorString(), QStringLiteral("no"));
}

void TestMonitor::silent()
{
    const int shortMs = 50;
    Monitor monitor;
    QVERIFY(!monitor.open(m_ends[0], shortMs));
    QCOMPARE(monitor.errorString(), QStringLiteral("the emulator does not answer"));
}

MFTOOL_TEST(TestMonitor, EventLoop)
#include "tst_monitor.moc"
