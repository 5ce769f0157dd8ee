#include "bench/board/agent.h"

#include <QtTest>

#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "tests/support/testprogram.h"

namespace
{

const int ShortMs = 50;

/// Plays the agent in the board: reads what is expected, then answers.
class Board
{
public:
    explicit Board(int fd) : m_fd(fd) {}
    ~Board()
    {
        if (m_thread.joinable())
            m_thread.join();
        close(m_fd);
    }

    void answer(const QByteArray &request, const QByteArray &text)
    {
        m_thread = std::thread([this, request, text] {
            while (heard.size() < request.size()) {
                char bytes[256];
                const ssize_t size = read(m_fd, bytes, sizeof bytes);
                if (size <= 0)
                    return;
                heard.append(bytes, static_cast<int>(size));
            }
            say(text);
        });
    }

    void wait() { m_thread.join(); }
    void say(const QByteArray &text)
    {
        if (write(m_fd, text.constData(), static_cast<size_t>(text.size())) != text.size())
            qWarning("the agent does not listen");
    }

    QByteArray heard;

private:
    const int m_fd;
    std::thread m_thread;
};

} // namespace

class TestAgent : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void isThereOnceItSaysSo();
    void runsScripts();
    void failedScript();
    void putsFiles();
    void getsFiles();
    void noAnswer();
    void boardGone();
    void storesComeInLines();
    void followsAScript();
    void answersOutOfTurn();

private:
    std::unique_ptr<Agent> m_agent;
    std::unique_ptr<Board> m_board;
};

void TestAgent::init()
{
    int ends[2];
    QCOMPARE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    m_agent = std::make_unique<Agent>();
    m_board = std::make_unique<Board>(ends[1]);
    QVERIFY(m_agent->open(ends[0]));
}

void TestAgent::cleanup()
{
    m_board.reset();
    m_agent.reset();
}

void TestAgent::isThereOnceItSaysSo()
{
    QVERIFY(!m_agent->isThere());
    m_board->say("0 end 0\n");
    QTRY_VERIFY(m_agent->isThere());
    m_agent->close();
    QVERIFY(!m_agent->isThere());
}

void TestAgent::runsScripts()
{
    m_board->answer("1 run 7\nls /tmp", "1 out 4\na\nb\n1 out 2\nc\n1 end 0\n");
    const Agent::Answer answer = m_agent->run("ls /tmp");
    m_board->wait();
    QCOMPARE(m_board->heard, QByteArray("1 run 7\nls /tmp"));
    QVERIFY(answer.ok());
    QCOMPARE(answer.output, QByteArray("a\nb\nc\n"));
}

void TestAgent::failedScript()
{
    m_board->answer("1 run 5\nfalse", "1 end 1\n");
    const Agent::Answer answer = m_agent->run("false");
    QVERIFY(answer.came);
    QVERIFY(!answer.ok());
    QCOMPARE(answer.status, 1);
}

void TestAgent::putsFiles()
{
    m_board->answer("1 put 4 /sys/x\nopen", "1 end 0\n");
    QVERIFY(m_agent->put(QStringLiteral("/sys/x"), "open").ok());
    m_board->wait();
    QCOMPARE(m_board->heard, QByteArray("1 put 4 /sys/x\nopen"));
}

void TestAgent::getsFiles()
{
    // Its output may hold what looks like an answer.
    m_board->answer("1 get /a b\n", "1 out 10\n1 end 0\n1 \n1 end 0\n");
    const Agent::Answer answer = m_agent->get(QStringLiteral("/a b"));
    QVERIFY(answer.ok());
    QCOMPARE(answer.output, QByteArray("1 end 0\n1 "));
}

void TestAgent::noAnswer()
{
    const Agent::Answer answer = m_agent->run("sleep 9", ShortMs);
    QVERIFY(!answer.came);
    QVERIFY(!answer.ok());
}

void TestAgent::boardGone()
{
    m_board.reset();
    QVERIFY(!m_agent->ask("lift").came);
}

void TestAgent::storesComeInLines()
{
    QSignalSpy stored(m_agent.get(), SIGNAL(stored(QByteArray)));
    m_board->say("stores out 20\n0 /sys/x 255\n-22 /sy");
    m_board->answer("1 sync\n", "stores out 7\ns/y 99\n1 end 0\n");
    QVERIFY(m_agent->ask("sync").ok());
    QCOMPARE(stored.size(), 2);
    QCOMPARE(stored.at(0).at(0).toByteArray(), QByteArray("0 /sys/x 255"));
    QCOMPARE(stored.at(1).at(0).toByteArray(), QByteArray("-22 /sys/y 99"));
}

void TestAgent::followsAScript()
{
    QSignalSpy printed(m_agent.get(), SIGNAL(printed(int, QByteArray)));
    const int mark = m_agent->follow("tail -f x");
    m_board->say("1 out 8\none\ntwo\n1 out 3\nthr1 out 3\nee\n");
    QTRY_COMPARE(printed.size(), 3);
    QCOMPARE(printed.at(0).at(0).toInt(), mark);
    QCOMPARE(printed.at(0).at(1).toByteArray(), QByteArray("one"));
    QCOMPARE(printed.at(2).at(1).toByteArray(), QByteArray("three"));
}

void TestAgent::answersOutOfTurn()
{
    // A late answer to a request that has timed out is dropped.
    QVERIFY(!m_agent->run("a", ShortMs).came);
    m_board->answer("1 run 1\na2 run 1\nb", "1 out 1\nx1 end 0\n2 out 1\ny2 end 7\n");
    const Agent::Answer answer = m_agent->run("b");
    QCOMPARE(answer.status, 7);
    QCOMPARE(answer.output, QByteArray("y"));
}

MFTOOL_TEST(TestAgent, EventLoop)
#include "tst_agent.moc"
