#include "bench/station/logline.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestLogLine : public QObject
{
    Q_OBJECT

private slots:
    void findsAFrameInAnyLog_data();
    void findsAFrameInAnyLog();
    void findsEveryFrameOfALine();
    void findsTheLikeliestWrongFrame_data();
    void findsTheLikeliestWrongFrame();
    void findsNothing_data();
    void findsNothing();
    void explains_data();
    void explains();
    void hintsAgreeWithTheRightFrame_data();
    void hintsAgreeWithTheRightFrame();
};

void TestLogLine::findsAFrameInAnyLog_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<quint16>("type");
    QTest::addColumn<QByteArray>("data");

    const struct {
        const char *name;
        const char *line;
        quint16 type;
        const char *data;
    } rows[] = {
        {"bare", "7E000A00043102957F", 0x0004, ""},
        {"with line end", "7E000A00043102957F\r\n", 0x0004, ""},
        {"the tool's log", "Got_newsocket: 7E000E61431F006403607F", 0x6143, "0064"},
        {"with time and severity", "12:34:56.789 debug Got_newsocket: 7E000E61431F006403607F",
         0x6143, "0064"},
        {"a time that looks like a mark", "2026-11-07E7E:7E 7E000A00043102957F", 0x0004, ""},
        {"a transcript", "2026-03-01T09:30:00.125016Z < \"7E000A00043102957F\\r\\n\" # ACK", 0x0004,
         ""},
        {"marks within the data", "> 7E00116002067E7F12303FB7F", 0x6002, "7E7F123"},
        {"text behind", "7E000A99995102B77F (ready)", 0x9999, ""},
        {"blanks within the data", "7E002C603D6E010220140101 1.2  000000000000000009467F", 0x603D,
         "010220140101 1.2  0000000000000000"},
        {"lower case", "rx 7e000e61435f006403c47f", 0x6143, "0064"},
        {"behind a module's line", "OK7E000A00043102957F", 0x0004, ""},
        {"unknown type of a station", "7E000A123417027F7F", 0x1234, ""},
    };
    for (const auto &row : rows)
        QTest::newRow(row.name) << QByteArray(row.line) << row.type << QByteArray(row.data);
}

void TestLogLine::findsAFrameInAnyLog()
{
    QFETCH(QByteArray, line);
    QFETCH(quint16, type);
    QFETCH(QByteArray, data);

    const QList<wire::Report> reports = wire::framesInLogLine(line);
    QCOMPARE(reports.size(), 1);
    QVERIFY2(reports.first().ok(), qPrintable(reports.first().text()));
    QCOMPARE(reports.first().frame.type, type);
    QCOMPARE(reports.first().frame.data, data);
}

void TestLogLine::findsEveryFrameOfALine()
{
    const QList<wire::Report> reports =
        wire::framesInLogLine("tx 7E000A60011402797F, then 7E000A00043102957F7E000A99995102B77F");
    QCOMPARE(reports.size(), 3);
    QCOMPARE(reports.at(0).frame.type, quint16(0x6001));
    QCOMPARE(reports.at(1).frame.type, quint16(0x0004));
    QCOMPARE(reports.at(2).frame.type, quint16(0x9999));
}

void TestLogLine::findsTheLikeliestWrongFrame_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QString>("text");

    const struct {
        const char *name;
        const char *line;
        const char *raw;
        const char *text;
    } rows[] = {
        {"checksum", "x 7E000E61431F006403617F\r\n", "7E000E61431F006403617F",
         "checksum is 0361, should be 0360"},
        {"end mark", "Got_newsocket: 7E000E61431F006403607D", "7E000E61431F006403607D",
         "end mark is \"7D\", should be 7F"},
        {"end mark in a transcript",
         "2026-03-01T09:30:00.125016Z < \"7E000A00043102957D\\r\\n\" # damaged 7E 7F",
         "7E000A00043102957D", "end mark is \"7D\", should be 7F"},
        {"start mark", "rx: 7D000A00043002937F", "7D000A00043002937F",
         "start mark is \"7D\", should be 7E"},
        {"cut off", "Got_newsocket: 7E000C603C", "7E000C603C",
         "10 characters, a frame has at least 18; end mark is \"3C\", should be 7F"},
        {"length", "7E000B00043202977F", "7E000B00043202977F",
         "length field is 000B, should be 000A"},
    };
    for (const auto &row : rows)
        QTest::newRow(row.name) << QByteArray(row.line) << QByteArray(row.raw) << QString(row.text);
}

void TestLogLine::findsTheLikeliestWrongFrame()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, raw);
    QFETCH(QString, text);

    const QList<wire::Report> reports = wire::framesInLogLine(line);
    QCOMPARE(reports.size(), 1);
    QCOMPARE(reports.first().raw, raw);
    QCOMPARE(reports.first().text(), text);
}

void TestLogLine::findsNothing_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("In ATE Mode--->, SDMon thread started");
    QTest::newRow("end mark alone") << QByteArray("value 7F");
}

void TestLogLine::findsNothing()
{
    QFETCH(QByteArray, line);
    QVERIFY(wire::framesInLogLine(line).isEmpty());
}

void TestLogLine::explains_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, const QByteArray &line, const QString &text) {
        QTest::newRow(name) << line << text;
    };

    row("request", "7E000E61431F006403607F",
        QString("frame:   7E000E61431F006403607F\n"
                "sender:  station\n"
                "type:    6143 (backlight or bias power request)\n"
                "meaning: backlight 100\n"
                "field:   level = 100\n"
                "checks:  all right\n"));
    row("wrong case of a keypad", "7E000A00041102737F",
        QString("frame:   7E000A00041102737F\n"
                "sender:  keypad\n"
                "type:    0004 (ACK)\n"
                "meaning: ACK\n"
                "wrong:   header check is 11, should be 31 (wrong case summed: the keypad sums "
                "length, type and header check with lower-case digits, though it sends them in "
                "upper case)\n"
                "wrong:   checksum is 0273, should be 0295 (wrong case summed: the keypad sums "
                "length, type and header check with lower-case digits, though it sends them in "
                "upper case)\n"
                "right:   7E000A00043102957F\n"));
    row("wrong case of a station", "7E000C603C6B0103647F",
        QString("frame:   7E000C603C6B0103647F\n"
                "sender:  station\n"
                "type:    603C (version request)\n"
                "meaning: version\n"
                "wrong:   header check is 6B, should be 2B (wrong case summed: a station sums "
                "the characters exactly as it sends them)\n"
                "wrong:   checksum is 0364, should be 0300 (wrong case summed: a station sums "
                "the characters exactly as it sends them)\n"
                "right:   7E000C603C2B0103007F\n"
                "keypad:  answers NAK\n"));
    row("content that is refused", "7E000E61431F016403617F",
        QString("frame:   7E000E61431F016403617F\n"
                "sender:  station\n"
                "type:    6143 (backlight or bias power request)\n"
                "meaning: send 6143 0164\n"
                "data:    bias power is 00 or 01: the keypad answers NA\n"
                "checks:  all right\n"));
    row("header check alone", "7E000A60011302787F",
        QString("frame:   7E000A60011302787F\n"
                "sender:  station\n"
                "type:    6001 (exit request)\n"
                "meaning: exit\n"
                "wrong:   header check is 13, should be 14 (the keypad does not look at it)\n"
                "right:   7E000A60011402797F\n"
                "keypad:  takes it all the same\n"));
    row("last character is missing", "7E000E61431F006403607",
        QString("frame:   7E000E61431F006403607\n"
                "sender:  station\n"
                "type:    6143 (backlight or bias power request)\n"
                "meaning: backlight 100\n"
                "field:   level = 100\n"
                "wrong:   cut off, most likely: its length field tells of 22 characters, here "
                "are 21\n"
                "right:   7E000E61431F006403607F\n"
                "keypad:  answers NAK\n"));
    row("cut off within the checksum, and the header check is wrong", "7E000E61431E006403",
        QString("frame:   7E000E61431E006403\n"
                "sender:  station\n"
                "type:    6143 (backlight or bias power request)\n"
                "meaning: backlight 100\n"
                "field:   level = 100\n"
                "wrong:   cut off, most likely: its length field tells of 22 characters, here "
                "are 18\n"
                "wrong:   header check is 1E, should be 1F\n"
                "right:   7E000E61431F006403607F\n"
                "keypad:  answers NAK\n"));
    row("too many data characters", "7E000E6143000064000007F",
        QString("frame:   7E000E6143000064000007F\n"
                "sender:  station\n"
                "type:    6143 (backlight or bias power request)\n"
                "meaning: send 6143 00640\n"
                "data:    5 data characters, should be 4: the keypad answers NAK\n"
                "wrong:   length field is 000E\n"
                "wrong:   header check is 00\n"
                "wrong:   checksum is 0000\n"
                "keypad:  answers NAK\n"));
    row("type that nobody sends", "7E000A70900000007F",
        QString("frame:   7E000A70900000007F\n"
                "sender:  unknown; checked as the station's\n"
                "type:    7090 (unknown type 7090)\n"
                "meaning: unknown type 7090, data \"\"\n"
                "wrong:   header check is 00, should be 1D\n"
                "wrong:   checksum is 0000, should be 0292\n"
                "right:   7E000A70901D02927F\n"
                "keypad:  answers NAK\n"));
    row("type that nobody sends, with the sums of a keypad", "7E000A70903D02D47F",
        QString("frame:   7E000A70903D02D47F\n"
                "sender:  keypad, by its sums\n"
                "type:    7090 (unknown type 7090)\n"
                "meaning: unknown type 7090, data \"\"\n"
                "checks:  all right\n"));
    row("type that cannot be read", "7E000EG1431F006403607F",
        QString("frame:   7E000EG1431F006403607F\n"
                "wrong:   type field is \"G143\", should be four hexadecimal digits\n"
                "wrong:   header check is 1F\n"
                "wrong:   checksum is 0360\n"
                "keypad:  answers NAK\n"));
    row("fragment", "7E000C603C",
        QString("frame:   7E000C603C\n"
                "type:    603C (version request)\n"
                "wrong:   cut off, most likely: its length field tells "
                "of 20 characters, here are 10\n"
                "keypad:  answers NAK\n"));
}

void TestLogLine::explains()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, text);

    const QList<wire::Report> reports = wire::framesInLogLine(line);
    QCOMPARE(reports.size(), 1);
    QCOMPARE(wire::explain(reports.first()), text);
}

void TestLogLine::hintsAgreeWithTheRightFrame_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("request") << QByteArray("7E000E61431F006403607F");
    QTest::newRow("request in lower case") << QByteArray("7e000e61435f006403c47f");
    QTest::newRow("request of any length") << QByteArray("7E00116002067E7F12303FB7F");
    QTest::newRow("reply") << QByteArray("7E001270810F0001234504347F");
    QTest::newRow("type that nobody sends") << QByteArray("7E000A123417027F7F");
}

/// Whatever one character is damaged: all that is said to be wrong is, as it should be, in the
/// one frame that is offered.
void TestLogLine::hintsAgreeWithTheRightFrame()
{
    QFETCH(QByteArray, frame);
    static const QRegularExpression hint(
        "^wrong:   (start mark|length field|header check|checksum|end mark|lower-case digits)"
        "[^,]*, should be ([0-9A-Za-z]+)",
        QRegularExpression::MultilineOption);
    static const QRegularExpression offer("^right:   (.*)$", QRegularExpression::MultilineOption);
    int offers = 0;
    for (int at = 0; at < frame.size(); ++at) {
        for (char wrong : QByteArray("0259DFX")) {
            QByteArray damaged = frame;
            damaged[at] = wrong;
            const QList<wire::Report> reports = wire::framesInLogLine(damaged);
            if (reports.isEmpty() || reports.first().ok())
                continue;
            const QString text = wire::explain(reports.first());
            QCOMPARE(text.count("\nright: "), text.count(offer));
            QVERIFY(text.count(offer) <= 1);
            const QString right = offer.match(text).captured(1);
            if (right.isEmpty())
                continue;
            ++offers;
            QVERIFY2(wire::framesInLogLine(right.toLatin1()).first().ok(), qPrintable(text));
            const QMap<QString, QString> fields = {
                {"start mark", right.left(2)},      {"length field", right.mid(2, 4)},
                {"header check", right.mid(10, 2)}, {"checksum", right.right(6).left(4)},
                {"end mark", right.right(2)},       {"lower-case digits", right},
            };
            auto matches = hint.globalMatch(text);
            while (matches.hasNext()) {
                const QRegularExpressionMatch match = matches.next();
                QVERIFY2(match.captured(2).toUpper() == fields.value(match.captured(1)).toUpper(),
                         qPrintable(text));
            }
        }
    }
    QVERIFY(offers > 20);
}

MFTOOL_TEST(TestLogLine, EventLoop)
#include "tst_logline.moc"
