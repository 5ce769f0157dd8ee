/// What no station should send: the tool refuses it and goes on.
#include "tests/support/processes.h"
#include "tests/support/requests.h"
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <QRandomGenerator>
#include <QRegularExpression>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace
{

const QByteArray echo5A("7E000C6002175A02F57F\r\n");

/// Whether every thread of the process stands still.
bool isStopped(qint64 pid)
{
    const QByteArray states = process::states(pid);
    return !states.isEmpty() && states.count('T') == states.size();
}

} // namespace

class TestBadInput : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void chunk_data();
    void chunk();
    void halves();
    void aByteAtATime();
    void everyWrongDataLength();
    void largestChunk();
    void beyondTheLargestChunk();
    void flood();
    void sdPipe_data();
    void sdPipe();
    void sdPipeTakesOneLinePerOpening();
    void sdPipeWriterThatNeverCloses();
    void sdPipeWithoutEnd();
    void anything();
    void endsWell();

private:
    /// Whether the tool answers again once it has swallowed what lies on the line.
    bool recovers();

    QScopedPointer<Rig> m_rig;
};

void TestBadInput::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
    signal(SIGPIPE, SIG_IGN);
    m_rig.reset(new Rig);
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

bool TestBadInput::recovers()
{
    // The first echo may still join what is left of the rubbish.
    for (int i = 0; i < 50; ++i) {
        const QByteArray token = "AA" + QByteArray::number(100 + i);
        m_rig->station.send(wire::EchoRequest, token);
        for (;;) {
            const QString came = m_rig->next(500);
            if (came == QLatin1String("6003 ") + QString::fromLatin1(token))
                return true;
            if (came.startsWith('('))
                break;
        }
    }
    return false;
}

void TestBadInput::chunk_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QStringList>("line");
    QTest::addColumn<QStringList>("log");
    const QStringList none;
    const QStringList nak("0005");
    const QStringList invalid("debug: Invalid message");
    const auto wrongLength = [](int right) {
        return QStringList(QStringLiteral("debug: \n Invalid length, should be %1").arg(right));
    };
    const auto wrongSum = [](const char *right) {
        return QStringList(QStringLiteral("debug: checksum does not match, it should be ") +
                           QLatin1String(right));
    };

    QTest::newRow("a line end") << QByteArray("\r\n") << none << none;
    QTest::newRow("blanks") << QByteArray(" \t\v\f \n") << none << none;
    QTest::newRow("a NUL") << QByteArray("\0", 1) << none << none;
    QTest::newRow("a NUL ahead of a frame") << '\0' + echo5A << none << none;
    QTest::newRow("a NUL behind a frame")
        << echo5A.trimmed() + QByteArray("\0junk", 5) << QStringList("6003 5A") << none;
    QTest::newRow("a NUL within a frame")
        << QByteArray("7E000C600217\0A02F57F", 20) << nak << invalid;

    QTest::newRow("a character") << QByteArray("7") << nak << invalid;
    QTest::newRow("a word") << QByteArray("hello\r\n") << nak << invalid;
    QTest::newRow("17 characters") << QByteArray("7E000A60021F2027F") << nak << invalid;
    QTest::newRow("18 characters of nothing") << QByteArray("012345678901234567") << nak << invalid;
    QTest::newRow("marks and blanks") << QByteArray("7E              7F") << nak << wrongLength(10);
    QTest::newRow("bytes above 7F") << QByteArray(40, '\xFF') << nak << invalid;
    QTest::newRow("bytes above 7F in a frame")
        << QByteArray("7E") + QByteArray(30, '\xE4') + "7F" << nak << wrongLength(26);
    QTest::newRow("start mark") << QByteArray("7F000C6002175A02F57F") << nak << invalid;
    QTest::newRow("start mark's digit") << QByteArray("8E000C6002175A02F57F") << nak << invalid;
    QTest::newRow("end mark") << QByteArray("7E000C6002175A02F57E") << nak << invalid;
    QTest::newRow("end mark's digit") << QByteArray("7E000C6002175A02F56F") << nak << invalid;
    QTest::newRow("characters behind") << QByteArray("7E000C6002175A02F57F.") << nak << invalid;
    QTest::newRow("characters ahead") << QByteArray(".7E000C6002175A02F57F") << nak << invalid;

    QTest::newRow("length too small")
        << QByteArray("7E000B6002175A02F57F") << nak << wrongLength(12);
    QTest::newRow("length too large")
        << QByteArray("7E000D6002175A02F57F") << nak << wrongLength(12);
    QTest::newRow("length 0") << QByteArray("7E00006002175A02F57F") << nak << wrongLength(12);
    QTest::newRow("largest length") << QByteArray("7EFFFF6002175A02F57F") << nak << wrongLength(12);
    QTest::newRow("length is no number")
        << QByteArray("7E00ZC6002175A02F57F") << nak << wrongLength(12);
    QTest::newRow("negative length")
        << QByteArray("7E-0016002175A02F57F") << nak << wrongLength(12);

    QTest::newRow("checksum one off")
        << QByteArray("7E000C6002175A02F67F") << nak << wrongSum("02F5");
    QTest::newRow("checksum 0") << QByteArray("7E000C6002175A00007F") << nak << wrongSum("02F5");
    QTest::newRow("checksum is no number")
        << QByteArray("7E000C6002175A02G57F") << nak << wrongSum("02F5");
    QTest::newRow("data changed") << QByteArray("7E000C6002175B02F57F") << nak << wrongSum("02F6");
    QTest::newRow("a keypad's own frame") // sums over the header in lower case
        << QByteArray("7E000C60033885A03367F").left(20) << nak << invalid;

    QTest::newRow("two frames") << echo5A + echo5A << nak << wrongLength(34);
    QTest::newRow("two frames without line ends")
        << echo5A.trimmed() + echo5A.trimmed() << nak << wrongLength(32);
    QTest::newRow("type is no number")
        << QByteArray("7E000AZZZZ14031B7F") << nak << wrongSum("031A");
    QTest::newRow("type is no number, and reads as 0")
        << QByteArray("7E000AZZZZ14031A7F") << QStringList("0003")
        << QStringList("debug: Unhandled type: 0000");
}

void TestBadInput::chunk()
{
    QFETCH(QByteArray, sent);
    QFETCH(QStringList, line);
    QFETCH(QStringList, log);
    const Outcome outcome = m_rig->raw(sent);
    QCOMPARE(outcome.line, line);
    QCOMPARE(outcome.log, log);
    QCOMPARE(outcome.stores, QStringList());
}

/// Pieces are never put together.
void TestBadInput::halves()
{
    QCOMPARE(m_rig->raw(echo5A.left(10)).line, QStringList("0005"));
    QCOMPARE(m_rig->raw(echo5A.mid(10)).line, QStringList("0005"));
    QCOMPARE(m_rig->raw(echo5A).line, QStringList("6003 5A"));
    // A line end that comes late says nothing.
    QCOMPARE(m_rig->raw(echo5A.trimmed()).line, QStringList("6003 5A"));
    QCOMPARE(m_rig->raw("\r\n").line, QStringList());
}

void TestBadInput::aByteAtATime()
{
    const QByteArray frame = echo5A.trimmed();
    for (const char byte : frame)
        QCOMPARE(m_rig->raw(QByteArray(1, byte)).line, QStringList("0005"));
}

void TestBadInput::everyWrongDataLength()
{
    for (const RequestType &request : requestTypes) {
        for (int length = 0; length < 20; ++length) {
            if (request.length < 0 || length == request.length)
                continue;
            const Outcome outcome = m_rig->request(request.type, QByteArray(length, '0'));
            const QByteArray where =
                QByteArray::number(request.type, 16) + ' ' + QByteArray::number(length);
            QVERIFY2(outcome.line == QStringList(request.refusal), where.constData());
            QVERIFY2(outcome.stores.isEmpty(), where.constData());
        }
    }
    QVERIFY(m_rig->keypad.isRunning());
}

/// 1024 bytes with the line end are one read.
void TestBadInput::largestChunk()
{
    const QByteArray data(1024 - 18 - 2, '5');
    QCOMPARE(m_rig->request(0x6002, data).line,
             QStringList(QStringLiteral("6003 ") + QString::fromLatin1(data)));
}

void TestBadInput::beyondTheLargestChunk()
{
    for (const int size : {1027, 1500, 2048, 4000}) {
        m_rig->forget();
        QVERIFY(m_rig->station.send(0x6002, QByteArray(size - 20, '5')));
        QCOMPARE(m_rig->next(), QString("0005"));
        QVERIFY2(recovers(), qPrintable(QString::number(size)));
        QVERIFY(m_rig->waitForLog("debug: Invalid message"));
    }
}

void TestBadInput::flood()
{
    m_rig->forget();
    QVERIFY(m_rig->station.sendRaw(QByteArray(100000, '\x01')));
    QCOMPARE(m_rig->next(), QString("0005"));
    QVERIFY(recovers());
    m_rig->forget();
    QByteArray frames;
    for (int i = 0; i < 1000; ++i)
        frames += echo5A;
    QVERIFY(m_rig->station.sendRaw(frames));
    QVERIFY(recovers());
    QCOMPARE(m_rig->raw(echo5A).line, QStringList("6003 5A"));
}

// The pipe of the card

void TestBadInput::sdPipe_data()
{
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QStringList>("log"); // besides the line as it was read
    const QString unexpected("warning: In ATE Mode--->,Unexpected character at beginning of msg");
    const QString mounted("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=%1");
    const QString unmounted("debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=%1");

    QTest::newRow("nothing") << QByteArray() << QStringList();
    QTest::newRow("an empty line") << QByteArray("\n") << QStringList();
    QTest::newRow("a word") << QByteArray("hello\n") << QStringList(unexpected);
    QTest::newRow("a blank ahead") << QByteArray(" #/media/a\n") << QStringList(unexpected);
    QTest::newRow("a NUL ahead") << QByteArray("\0#/media/a\n", 11) << QStringList(unexpected);
    QTest::newRow("bytes above 7F") << QByteArray("\xFF\xFE\x80\n") << QStringList(unexpected);
    QTest::newRow("mark alone") << QByteArray("#\n") << QStringList(mounted.arg(""));
    QTest::newRow("no line end") << QByteArray("#/media/b") << QStringList(mounted.arg("/media/b"));
    QTest::newRow("blanks around")
        << QByteArray("# \t /media/c d \t\r\n") << QStringList(mounted.arg("/media/c d"));
    QTest::newRow("a NUL within") << QByteArray("#/media/e\0garbage\n", 18)
                                  << QStringList(mounted.arg("/media/e"));
    QTest::newRow("removal of another one")
        << QByteArray("!/media/other\n") << QStringList(unmounted.arg("/media/other"));
    QTest::newRow("removal twice")
        << QByteArray("!/media/other\n") << QStringList(unmounted.arg("/media/other"));
    QTest::newRow("removal of nothing") << QByteArray("!") << QStringList(unmounted.arg(""));
}

void TestBadInput::sdPipe()
{
    QFETCH(QByteArray, message);
    QFETCH(QStringList, log);
    m_rig->forget();
    QVERIFY2(m_rig->keypad.writeSdPipe(message), qPrintable(m_rig->keypad.errorString()));
    // The message after it shows that it has been dealt with.
    QVERIFY(m_rig->keypad.writeSdPipe("#/media/last\n"));
    const QString last("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/last");
    QVERIFY(m_rig->waitForLog(last));

    QStringList said;
    const QStringList all = m_rig->settle().log;
    for (const QString &line : all) {
        if (!line.startsWith("debug: In ATE Mode--->,SD mon read: "))
            said << line;
    }
    QCOMPARE(said.takeLast(), last);
    QCOMPARE(said, log);
}

void TestBadInput::sdPipeTakesOneLinePerOpening()
{
    m_rig->settle();
    m_rig->forget();
    // Stopped, the tool cannot open the pipe again before the writer has closed it.
    const int writer = m_rig->keypad.openFile("/tmp/sdstat", O_WRONLY);
    QVERIFY(writer >= 0);
    QVERIFY(m_rig->keypad.waitForLog("Received SD event"));
    QVERIFY(m_rig->keypad.kill(SIGSTOP));
    AWAIT_VERIFY(isStopped(m_rig->keypad.toolPid()));
    const QByteArray lines("#/media/one\n#/media/two\nhello\n");
    QCOMPARE(write(writer, lines.constData(), size_t(lines.size())), ssize_t(lines.size()));
    close(writer);
    QVERIFY(m_rig->keypad.kill(SIGCONT));
    QVERIFY(m_rig->waitForLog("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/one"));
    QVERIFY(m_rig->keypad.writeSdPipe("!/media/one\n"));
    QVERIFY(
        m_rig->waitForLog("debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/media/one"));
    QCOMPARE(m_rig->log(),
             QStringList({
                 "debug: In ATE Mode--->,SD mon read: #/media/one\n",
                 "debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/one",
                 "debug: In ATE Mode--->,SD mon read: !/media/one\n",
                 "debug: In ATE Mode--->, SD UnMount from m_sdCardMountPath=/media/one",
             }));
}

void TestBadInput::sdPipeWriterThatNeverCloses()
{
    m_rig->forget();
    const int writer = m_rig->keypad.openFile("/tmp/sdstat", O_WRONLY);
    QVERIFY(writer >= 0);
    QVERIFY(write(writer, "#/media/slow", 12) == 12);
    QVERIFY(m_rig->keypad.waitForLog("Received SD event"));
    // Only the monitor waits.
    for (int i = 0; i < 5; ++i)
        QCOMPARE(m_rig->raw(echo5A).line, QStringList("6003 5A"));
    QCOMPARE(m_rig->request(0x6161, "010102").line,
             QStringList("6162 0101020100000000000000000000"));
    close(writer);
    QVERIFY(m_rig->waitForLog("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/slow"));
}

/// A line that never ends must not fill the memory.
void TestBadInput::sdPipeWithoutEnd()
{
    m_rig->forget();
    const int writer = m_rig->keypad.openFile("/tmp/sdstat", O_WRONLY);
    QVERIFY(writer >= 0);
    const QByteArray block(4096, 'x');
    int blocks = 0;
    // At its limit the tool closes the pipe. Then there is no reader, or, for a writer that
    // did not get to write meanwhile, the one of the next line.
    while (blocks < 1000 && write(writer, block.constData(), size_t(block.size())) > 0)
        ++blocks;
    close(writer);
    const QString refused("warning: In ATE Mode--->,Unexpected character at beginning of msg");
    QVERIFY(m_rig->waitForLog(refused));
    QVERIFY(m_rig->keypad.writeSdPipe("#/media/after\n"));
    QVERIFY(
        m_rig->waitForLog("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=/media/after"));
    QVERIFY2(blocks < 1000 || m_rig->log().count(refused) > 5,
             "four megabytes were taken for one line");
    QVERIFY(m_rig->keypad.removeCard("/media/after"));
}

// Anything at all

namespace
{

QByteArray anyBytes(QRandomGenerator &random, int most)
{
    QByteArray bytes(random.bounded(1, most), '\0');
    for (char &byte : bytes)
        byte = char(random.bounded(256));
    return bytes;
}

/// What would end the tool, start programs or switch on the relay, whose lines
/// could look like frames.
bool isLeftOut(quint16 type)
{
    return type == 0x6001 || type == 0x7020 || type == 0x7040 || type == 0x7050 || type == 0x7060;
}

QByteArray anyRequest(QRandomGenerator &random)
{
    quint16 type = requestTypes[random.bounded(int(std::size(requestTypes)))].type;
    if (random.bounded(8) == 0)
        type = quint16(random.bounded(0x10000));
    if (isLeftOut(type))
        type = 0x7FFF;
    QByteArray data;
    const int length = random.bounded(16);
    for (int i = 0; i < length; ++i)
        data += random.bounded(4) != 0 ? "0123456789ABCDEF"[random.bounded(16)]
                                       : char(random.bounded(1, 256));
    return wire::buildFrame(wire::Sender::Station, type, data);
}

/// Changes a few characters; the sum is hardly ever right by chance, and never for a type
/// that is left out: too many characters differ.
QByteArray damaged(QRandomGenerator &random, QByteArray frame)
{
    const int changes = random.bounded(1, 4);
    for (int i = 0; i < changes && frame.size() > 1; ++i) {
        const int at = random.bounded(int(frame.size()));
        switch (random.bounded(4)) {
        case 0:
            frame.remove(at, 1);
            break;
        case 1:
            frame.insert(at, char(random.bounded(256)));
            break;
        case 2:
            frame[at] = char(random.bounded(256));
            break;
        default:
            frame.append(frame.mid(at));
        }
    }
    return frame;
}

} // namespace

void TestBadInput::anything()
{
    const quint32 seed = 20140101;
    QRandomGenerator random(seed);
    for (int i = 0; i < 400; ++i) {
        QByteArray message = anyRequest(random);
        const int kind = random.bounded(4);
        if (kind == 0)
            message = anyBytes(random, 200);
        else if (kind < 3)
            message = damaged(random, message);
        const Outcome outcome = m_rig->raw(message);
        const QByteArray what = QByteArray::number(i) + ": " + message.toHex();
        QVERIFY2(m_rig->keypad.isRunning(), what.constData());
        QVERIFY2(outcome.line.size() <= 1, what.constData());
        // Nothing damaged, no line, no complaint that an answer is missing.
        for (const QString &line : outcome.line)
            QVERIFY2(QRegularExpression("^[0-9A-F]{4}( .*)?$",
                                        QRegularExpression::DotMatchesEverythingOption)
                         .match(line)
                         .hasMatch(),
                     what.constData());
    }
}

void TestBadInput::endsWell()
{
    QVERIFY(m_rig->station.send(0x6001));
    QCOMPARE(m_rig->next(), QString("0004"));
    QVERIFY(m_rig->keypad.waitForExit());
    QCOMPARE(m_rig->keypad.exitStatus().signal, 0);
    QCOMPARE(m_rig->keypad.exitStatus().code, 0);
}

MFTOOL_TEST(TestBadInput, EventLoop)
#include "tst_badinput.moc"
