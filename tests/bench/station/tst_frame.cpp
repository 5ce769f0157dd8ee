#include "bench/station/frame.h"

#include <QtTest>

#include "tests/bench/station/samples.h"
#include "tests/support/testprogram.h"

using wire::Problem;
using wire::Sender;

class TestFrame : public QObject
{
    Q_OBJECT

private slots:
    void buildsRequests_data();
    void buildsRequests();
    void buildsReplies_data();
    void buildsReplies();
    void acceptsLowerCaseFromAStation();
    void acceptsAnyWhiteSpaceAroundAStationsFrame();
    void namesTheFailingCheck_data();
    void namesTheFailingCheck();
    void namesSumsOverTheWrongCase_data();
    void namesSumsOverTheWrongCase();
    void doesNotBlameTheCaseForOtherErrors();
    void findsAnyChangedCharacter_data();
    void findsAnyChangedCharacter();
    void sumsBytesAsUnsigned();
    void tellsTheTypeOfAFragment();
};

void TestFrame::buildsRequests_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("frame");

    for (const SampleCommand &sample : sampleCommands)
        QTest::newRow(sample.command)
            << sample.type << QByteArray(sample.data) << QByteArray(sample.frame);
}

void TestFrame::buildsRequests()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, frame);

    QCOMPARE(wire::buildFrame(Sender::Station, type, data), frame);
    const wire::Report report = wire::checkFrame(Sender::Station, frame);
    QVERIFY2(report.ok(), qPrintable(report.text()));
    QCOMPARE(report.frame.type, type);
    QCOMPARE(report.frame.data, data);
}

void TestFrame::buildsReplies_data()
{
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("line");

    for (const SampleReply &sample : sampleReplies)
        QTest::newRow(sample.text)
            << sample.type << QByteArray(sample.data) << QByteArray(sample.line);
}

void TestFrame::buildsReplies()
{
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, line);

    QCOMPARE(wire::buildFrame(Sender::Keypad, type, data) + "\r\n", line);
    const wire::Report report = wire::checkLine(Sender::Keypad, line);
    QVERIFY2(report.ok(), qPrintable(report.text()));
    QCOMPARE(report.frame.type, type);
    QCOMPARE(report.frame.data, data);
}

void TestFrame::acceptsLowerCaseFromAStation()
{
    const wire::Report report = wire::checkFrame(Sender::Station, "7e000e61435f006403c47f");
    QVERIFY2(report.ok(), qPrintable(report.text()));
    QCOMPARE(report.frame.type, quint16(0x6143));
    QCOMPARE(report.frame.data, QByteArray("0064"));
}

void TestFrame::acceptsAnyWhiteSpaceAroundAStationsFrame()
{
    QVERIFY(wire::checkLine(Sender::Station, "7E000A60011402797F").ok());
    QVERIFY(wire::checkLine(Sender::Station, " 7E000A60011402797F\n").ok());
    QVERIFY(wire::checkLine(Sender::Station, "7E000A60011402797F\r\n").ok());
}

void TestFrame::namesTheFailingCheck_data()
{
    QTest::addColumn<bool>("fromKeypad");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("text");

    const struct {
        const char *name;
        bool fromKeypad;
        const char *line;
        const char *text;
    } rows[] = {
        {"nothing", true, "",
         "0 characters, a frame has at least 18; start mark is \"\", should be 7E; "
         "end mark is \"\", should be 7F; line end is \"\", should be \"\\r\\n\""},
        {"17 characters", false, "7E000A6001140279F",
         "17 characters, a frame has at least 18; end mark is \"9F\", should be 7F"},
        {"start mark", true, "7D000A00043002937F\r\n", "start mark is \"7D\", should be 7E"},
        {"length", true, "7E000B00043202977F\r\n", "length field is 000B, should be 000A"},
        {"length of a request", false, "7E000B600115027B7F",
         "length field is 000B, should be 000A"},
        {"no length", false, "7E00XA60013C02B27F", "length field is 00XA, should be 000A"},
        {"type", true, "7E000A00G46802D67F\r\n",
         "type field is \"00G4\", should be four hexadecimal digits"},
        // The sum is the right frame's: it is the header check that was damaged.
        {"header check under a right sum", true, "7E000A00043202957F\r\n",
         "header check is 32, should be 31"},
        {"request's header check under a right sum", false, "7E000E61431E006403607F",
         "header check is 1E, should be 1F"},
        {"length under right sums", true, "7E000B00043102957F\r\n",
         "length field is 000B, should be 000A"},
        {"header check and sum", false, "7E000A70900000007F",
         "header check is 00, should be 1D; checksum is 0000, should be 0292"},
        {"lower-case request", false, "7e000e61435f006403c57f", "checksum is 03c5, should be 03c4"},
        {"header check alone", false, "7E000A60011302787F",
         "header check is 13, should be 14 (the keypad does not look at it)"},
        {"data", true, "7E000C70713E0203397F\r\n", "checksum is 0339, should be 0338"},
        {"checksum", false, "7E000E61431F006403617F", "checksum is 0361, should be 0360"},
        {"no checksum", false, "7E000E61431F0064ZZZZ7F", "checksum is ZZZZ, should be 0360"},
        {"end mark", true, "7E000A00043102957D\r\n", "end mark is \"7D\", should be 7F"},
        {"lower case", true, "7e000a00043102957f\r\n",
         "lower-case digits, should be 7E000A00043102957F"},
        {"lower-case checksum", true, "7E000A99995102b77F\r\n",
         "lower-case digits, should be 7E000A99995102B77F"},
        {"no line end", true, "7E000A00043102957F", "line end is \"\", should be \"\\r\\n\""},
        {"line feed only", true, "7E000A00043102957F\n",
         "line end is \"\\n\", should be \"\\r\\n\""},
        {"line feeds turned into two", true, "7E000A00043102957F\r\r\n",
         "line end is \"\\r\\r\\n\", should be \"\\r\\n\""},
        {"two requests in one", false, "7E000A60011402797F7E000A60011402797F",
         "length field is 000A, should be 001C; checksum is 0279, should be 0647"},
    };
    for (const auto &row : rows)
        QTest::newRow(row.name) << row.fromKeypad << QByteArray(row.line) << QString(row.text);
}

void TestFrame::namesTheFailingCheck()
{
    QFETCH(bool, fromKeypad);
    QFETCH(QByteArray, line);
    QFETCH(QString, text);

    const Sender sender = fromKeypad ? Sender::Keypad : Sender::Station;
    QCOMPARE(wire::checkLine(sender, line).text(), text);
}

void TestFrame::namesSumsOverTheWrongCase_data()
{
    QTest::addColumn<bool>("fromKeypad");
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<bool>("headerCheck");
    QTest::addColumn<bool>("checksum");

    QTest::newRow("ACK") << true << QByteArray("7E000A00041102737F") << true << true;
    QTest::newRow("NAK") << true << QByteArray("7E000A00051202757F") << true << true;
    QTest::newRow("start mark summed in lower case")
        << true << QByteArray("7E001270812F0001234504367F") << true << false;
    QTest::newRow("only the checksum of a voltage")
        << true << QByteArray("7E001270810F0001234504147F") << false << true;
    QTest::newRow("flash status") << true << QByteArray("7E000E70511E026403607F") << true << true;
    QTest::newRow("request") << false << QByteArray("7E000A600134029B7F") << true << true;
    QTest::newRow("request with data")
        << false << QByteArray("7E000C603C6B0103647F") << true << true;
    QTest::newRow("request, lower-case start mark summed too")
        << false << QByteArray("7E000A60015402BD7F") << true << true;
    QTest::newRow("lower-case request summed in upper case")
        << false << QByteArray("7e000e61431f006403607f") << true << true;
}

void TestFrame::namesSumsOverTheWrongCase()
{
    QFETCH(bool, fromKeypad);
    QFETCH(QByteArray, frame);
    QFETCH(bool, headerCheck);
    QFETCH(bool, checksum);

    const Sender sender = fromKeypad ? Sender::Keypad : Sender::Station;
    const wire::Report report = wire::checkFrame(sender, frame);
    QVERIFY(!report.ok());
    bool headerCheckNamed = false;
    bool checksumNamed = false;
    for (const Problem &problem : report.problems) {
        headerCheckNamed |= problem.check == Problem::HeaderCheck && problem.wrongCase;
        checksumNamed |= problem.check == Problem::Checksum && problem.wrongCase;
    }
    QCOMPARE(headerCheckNamed, headerCheck);
    QCOMPARE(checksumNamed, checksum);
    QCOMPARE(report.text().contains("wrong case summed"), headerCheck || checksum);
}

void TestFrame::doesNotBlameTheCaseForOtherErrors()
{
    QVERIFY(!wire::checkFrame(Sender::Station, "7E000E61431F006403617F").text().contains("case"));
    QVERIFY(!wire::checkFrame(Sender::Keypad, "7E000A00043202957F").text().contains("case"));
    // No letter, so no case to be wrong.
    QVERIFY(wire::checkFrame(Sender::Keypad, "7E0010703108120045039C7F").ok());
}

void TestFrame::findsAnyChangedCharacter_data()
{
    QTest::addColumn<bool>("fromKeypad");
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("reply") << true << QByteArray("7E001270810F0001234504347F");
    QTest::newRow("request") << false << QByteArray("7E000E61431F006403607F");
}

void TestFrame::findsAnyChangedCharacter()
{
    QFETCH(bool, fromKeypad);
    QFETCH(QByteArray, frame);

    const Sender sender = fromKeypad ? Sender::Keypad : Sender::Station;
    QVERIFY(wire::checkFrame(sender, frame).ok());
    for (int at = 0; at < int(frame.size()); ++at) {
        for (char other : QByteArray("09AFgx ~\xE4")) {
            QByteArray changed = frame;
            if (changed.at(at) == other)
                continue;
            changed[at] = other;
            QVERIFY2(!wire::checkFrame(sender, changed).ok(), changed.constData());
        }
        QByteArray shorter = frame;
        shorter.remove(at, 1);
        QVERIFY2(!wire::checkFrame(sender, shorter).ok(), shorter.constData());
    }
}

void TestFrame::sumsBytesAsUnsigned()
{
    QCOMPARE(wire::buildFrame(Sender::Station, 0x6002, QByteArray("\xE4\xFF", 2)),
             QByteArray("7E000C600217"
                        "\xE4\xFF"
                        "04627F"));
    QCOMPARE(wire::buildFrame(Sender::Keypad, 0x6003, QByteArray("\xE4\xFF", 2)),
             QByteArray("7E000C600338"
                        "\xE4\xFF"
                        "04867F"));
}

void TestFrame::tellsTheTypeOfAFragment()
{
    const wire::Report report = wire::checkFrame(Sender::Station, "7E000C603C2B");
    QVERIFY(!report.ok());
    QVERIFY(report.fails(Problem::Size));
    QVERIFY(report.fails(Problem::EndMark));
    QVERIFY(!report.fails(Problem::StartMark));
    QCOMPARE(report.frame.type, quint16(0x603C));
}

MFTOOL_TEST(TestFrame, EventLoop)
#include "tst_frame.moc"
