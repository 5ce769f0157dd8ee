/// Long use of the real tool: mixed requests, every answer looked at, and nothing
/// left over in the end.
///
/// MFTOOL_SOAK_REQUESTS says how many, 3000 when it is not set.
#include "bench/station/frame.h"
#include "tests/support/processes.h"
#include "tests/support/requests.h"
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <QRandomGenerator>

#include <poll.h>
#include <unistd.h>

namespace
{

/// What the process may grow by, however long it runs: allocators take their time to settle.
const qint64 allowedGrowth = 1024; // KiB

/// Type and data of a frame, "7071 00", as it is on the line.
QByteArray frame(const QByteArray &reply)
{
    return wire::buildFrame(wire::Sender::Keypad, quint16(reply.left(4).toUInt(nullptr, 16)),
                            reply.mid(5)) +
           "\r\n";
}

QByteArray expectedFor(const SampleRequest &request)
{
    // The NAND is mounted: the version is the one on it.
    if (request.type == wire::VersionRequest && request.lastType() != wire::NotApplicable)
        return frame("603D 020720140202 2.7  0000000000000000");
    const QByteArray replies(request.replies);
    if (replies.startsWith("line "))
        return replies.mid(5, replies.indexOf(',') - 5) + "\r\n" + frame("0004");
    return frame(replies);
}

/// Whether the process waits for something to do: an answer comes before all the
/// work for it is done.
bool isAsleep(qint64 pid)
{
    return process::states(pid).startsWith('S');
}

/// What a process holds that must not grow.
struct Holdings {
    explicit Holdings(qint64 pid)
        : descriptors(process::openFiles(pid)), threads(process::threads(pid)),
          children(process::children(pid)), memory(process::ownMemory(pid))
    {
    }
    QStringList descriptors;
    QStringList threads;
    QList<qint64> children; ///< running or not yet waited for
    qint64 memory;          ///< KiB that are its own
};

} // namespace

class TestSoak : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void mixedRequests();

private:
    QByteArray exchange(const QByteArray &request, int expectedSize);
    bool one(int number);
    bool program(quint16 request, quint16 reply);

    QScopedPointer<Rig> m_rig;
    QRandomGenerator m_random{1};
    QString m_why;
};

void TestSoak::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

/// Directly on the line, without a transcript that grows.
QByteArray TestSoak::exchange(const QByteArray &request, int expectedSize)
{
    const int line = m_rig->keypad.lineFd();
    if (write(line, request.constData(), size_t(request.size())) != request.size())
        return "(not taken)";
    QByteArray received;
    while (received.size() < expectedSize) {
        pollfd readable = {line, POLLIN, 0};
        char chunk[4096];
        const ssize_t size = poll(&readable, 1, 20000) > 0 ? read(line, chunk, sizeof(chunk)) : -1;
        if (size <= 0)
            return received + "(nothing more)";
        received.append(chunk, int(size));
    }
    return received;
}

bool TestSoak::one(int number)
{
    QByteArray request;
    QByteArray expected;
    if (number % 3 == 0) {
        QByteArray data(m_random.bounded(400), '\0');
        for (char &c : data)
            c = char(m_random.bounded(1, 256));
        request = wire::buildFrame(wire::Sender::Station, 0x6002, data) + "\r\n";
        expected = wire::buildFrame(wire::Sender::Keypad, 0x6003, data) + "\r\n";
    } else if (number % 50 == 1) {
        request = QByteArray(m_random.bounded(1, 1000), 'x') + "\r\n";
        expected = frame("0005");
    } else {
        // In order: some switch on what the next one switches off.
        static const QList<SampleRequest> rows = harmlessRequests();
        static int next = 0;
        const SampleRequest &row = rows.at(next++ % int(rows.size()));
        request = wire::buildFrame(wire::Sender::Station, row.type, row.data) + "\r\n";
        expected = expectedFor(row);
    }
    const QByteArray answer = exchange(request, int(expected.size()));
    if (answer == expected)
        return true;
    m_why = QStringLiteral("request %1 (%2): %3 instead of %4")
                .arg(number)
                .arg(QString::fromLatin1(request.trimmed()), QString::fromLatin1(answer.trimmed()),
                     QString::fromLatin1(expected.trimmed()));
    return false;
}

/// A flash or a mount: children come and go.
bool TestSoak::program(quint16 request, quint16 reply)
{
    const QString wanted = QStringLiteral("0004, %1 01").arg(reply, 4, 16);
    const bool isSent = m_rig->station.send(request);
    QString came = m_rig->next() + QStringLiteral(", ");
    came += m_rig->next(Patience::mountPause);
    if (came != wanted)
        m_why = QStringLiteral("request %1: %2").arg(request, 4, 16).arg(came);
    m_rig->station.transcript().clear();
    return isSent && came == wanted;
}

void TestSoak::mixedRequests()
{
    bool isSet = false;
    int count = qEnvironmentVariableIntValue("MFTOOL_SOAK_REQUESTS", &isSet);
    if (!isSet)
        count = 3000;
    // Otherwise the allocator learns to keep the pictures' 1.5 MiB in its heap, where the
    // gap that they leave hides a leak, or looks like one.
    KeypadOptions options;
    options.environment.insert(QStringLiteral("MALLOC_MMAP_THRESHOLD_"), QStringLiteral("65536"));
    m_rig.reset(new Rig(options));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    QVERIFY2(program(0x7050, 0x7052), qPrintable(m_why));
    QVERIFY2(program(0x7060, 0x7061), qPrintable(m_why));
    // Otherwise it would refuse the partition, which is attached by now.
    QVERIFY(m_rig->keypad.setStandin("ubiformat", "good"));
    const qint64 pid = m_rig->keypad.toolPid();
    const int warmUp = 1000; // caches fill
    const int flashEvery = 1000;

    QScopedPointer<Holdings> before;
    for (int i = 0; i < warmUp + count; ++i) {
        if (i == warmUp) {
            AWAIT_VERIFY(isAsleep(pid));
            before.reset(new Holdings(pid));
        }
        if (i % flashEvery == flashEvery / 2)
            QVERIFY2(program(0x7050, 0x7052), qPrintable(m_why));
        QVERIFY2(one(i), qPrintable(m_why));
        if (i % 100 == 0) {
            m_rig->keypad.clearLog();
            m_rig->keypad.clearStores();
        }
    }

    AWAIT_VERIFY(isAsleep(pid));
    const Holdings after(pid);
    QVERIFY2(
        after.descriptors.size() == before->descriptors.size(),
        qPrintable((before->descriptors + QStringList("then") + after.descriptors).join('\n')));
    QCOMPARE(after.threads.size(), before->threads.size());
    QCOMPARE(after.children.size(), 0);
    const qint64 grown = after.memory - before->memory;
    qInfo("%d requests, grown by %lld KiB", count, static_cast<long long>(grown));
    if (!process::isSanitized(pid))
        QVERIFY2(grown < allowedGrowth, qPrintable(QString::number(grown)));

    QCOMPARE(exchange("7E000A60011402797F\r\n", 20), QByteArray("7E000A00043102957F\r\n"));
    QVERIFY(m_rig->keypad.waitForExit());
    QCOMPARE(m_rig->keypad.exitStatus().signal, 0);
    QCOMPARE(m_rig->keypad.exitStatus().code, 0);
}

MFTOOL_TEST(TestSoak, EventLoop)
#include "tst_soak.moc"
