#include "bench/station/escape.h"
#include "bench/station/transcript.h"
#include "tests/support/testprogram.h"

#include <QtTest>

class TestTranscript : public QObject
{
    Q_OBJECT

private slots:
    void escapesWhatCannotBePrinted_data();
    void escapesWhatCannotBePrinted();
    void escapesEveryByteReversibly();
    void refusesUnknownEscapes_data();
    void refusesUnknownEscapes();
    void writesOneLineAnEntry();
    void readsBackWhatItWrote();
    void readsCommentsAndEmptyLines();
    void saysWhereATextIsWrong_data();
    void saysWhereATextIsWrong();
    void growsInItsFile();
    void keepsTheNewestEntries();
    void stampsEntriesInOrder();
    void saysWhyAFileFails();
};

void TestTranscript::escapesWhatCannotBePrinted_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray("") << QByteArray("");
    QTest::newRow("frame") << QByteArray("7E000A00043102957F\r\n")
                           << QByteArray("7E000A00043102957F\\r\\n");
    QTest::newRow("quote") << QByteArray("a\"b\\c\t") << QByteArray("a\\\"b\\\\c\\t");
    QTest::newRow("bytes") << QByteArray("\0\x7F\xE4\xFF", 4) << QByteArray("\\x00\\x7F\\xE4\\xFF");
}

void TestTranscript::escapesWhatCannotBePrinted()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, text);
    QCOMPARE(escaped(bytes), text);
    QVERIFY(unescaped(text) == bytes);
}

void TestTranscript::escapesEveryByteReversibly()
{
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    QVERIFY(unescaped(escaped(all)) == all);
}

void TestTranscript::refusesUnknownEscapes_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("letter") << QByteArray("a\\qb");
    QTest::newRow("end") << QByteArray("a\\");
    QTest::newRow("one digit") << QByteArray("\\x4");
    QTest::newRow("no digit") << QByteArray("\\xG0");
    QTest::newRow("sign") << QByteArray("\\x+1");
    QTest::newRow("blank") << QByteArray("\\x 1");
}

void TestTranscript::refusesUnknownEscapes()
{
    QFETCH(QByteArray, text);
    QVERIFY(!unescaped(text).has_value());
}

void TestTranscript::writesOneLineAnEntry()
{
    Transcript transcript;
    // 2026-03-01 09:30:00 UTC
    const qint64 start = Q_INT64_C(1772357400) * 1000000;
    transcript.append(
        {start + 123456, Transcript::Sent, "7E000E61431F006403607F\r\n", "backlight 100"});
    transcript.append({start + 125016, Transcript::Received, "7E000A00043102957F\r\n", QString()});
    transcript.append({start + 1000005, Transcript::Note, QByteArray(), "two\nlines"});
    QCOMPARE(transcript.toText(),
             QByteArray("# station transcript 1\n"
                        "2026-03-01T09:30:00.123456Z > \"7E000E61431F006403607F\\r\\n\" "
                        "# backlight 100\n"
                        "2026-03-01T09:30:00.125016Z < \"7E000A00043102957F\\r\\n\"\n"
                        "2026-03-01T09:30:01.000005Z - two lines\n"));
}

void TestTranscript::readsBackWhatItWrote()
{
    Transcript transcript;
    QByteArray all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    transcript.add(Transcript::Sent, all, QString::fromUtf8("all \"bytes\" # \xC3\xA4 \\r"));
    transcript.add(Transcript::Received, "# \"quoted\" \\", QString());
    transcript.add(Transcript::Received, QByteArray(""), "empty");
    transcript.note("a note with \"quotes\" and > marks");

    QString error;
    const std::optional<Transcript> read = Transcript::fromText(transcript.toText(), &error);
    QVERIFY2(read.has_value(), qPrintable(error));
    QVERIFY(read->entries() == transcript.entries());
}

void TestTranscript::readsCommentsAndEmptyLines()
{
    QString error;
    const auto read = Transcript::fromText("# comment\r\n\n   \n"
                                           "2026-03-01T09:30:00.123456Z > \"a\"\r\n"
                                           " # another\n",
                                           &error);
    QVERIFY2(read.has_value(), qPrintable(error));
    QCOMPARE(read->entries().size(), size_t(1));
    QCOMPARE(read->entries().front().bytes, QByteArray("a"));
    QCOMPARE(read->entries().front().time, Q_INT64_C(1772357400123456));
}

void TestTranscript::saysWhereATextIsWrong_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("error");
    const QString noTime = "line 2: no time such as 2026-03-01T09:30:00.123456Z at its start";
    QTest::newRow("no time") << QByteArray("> \"a\"") << noTime;
    QTest::newRow("one word") << QByteArray("hello") << noTime;
    QTest::newRow("short time") << QByteArray("2026-03-01T09:30:00Z > \"a\"") << noTime;
    QTest::newRow("no date") << QByteArray("2026-13-01T09:30:00.123456Z > \"a\"") << noTime;
    QTest::newRow("no mark") << QByteArray("2026-03-01T09:30:00.123456Z")
                             << "line 2: no mark >, < or - after the time";
    QTest::newRow("wrong mark") << QByteArray("2026-03-01T09:30:00.123456Z = \"a\"")
                                << "line 2: no mark >, < or - after the time";
    QTest::newRow("no quotes") << QByteArray("2026-03-01T09:30:00.123456Z > a")
                               << "line 2: bytes must stand between quotes";
    QTest::newRow("no closing quote") << QByteArray("2026-03-01T09:30:00.123456Z > \"a\\\"")
                                      << "line 2: bytes must stand between quotes";
    QTest::newRow("escape") << QByteArray("2026-03-01T09:30:00.123456Z > \"a\\q\"")
                            << "line 2: unknown escape in the bytes";
    QTest::newRow("text behind") << QByteArray("2026-03-01T09:30:00.123456Z > \"a\" b")
                                 << "line 2: only a comment may follow the bytes";
}

void TestTranscript::saysWhereATextIsWrong()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, error);

    QString came;
    QVERIFY(!Transcript::fromText("# station transcript 1\n" + line + "\n", &came).has_value());
    QCOMPARE(came, error);
}

void TestTranscript::growsInItsFile()
{
    QTemporaryDir folder;
    const QString path = folder.filePath("line.txt");
    Transcript transcript;
    QString error;
    transcript.add(Transcript::Sent, "before");
    QVERIFY2(transcript.logTo(path, &error), qPrintable(error));
    transcript.setLimit(0);
    transcript.add(Transcript::Sent, "first", "meaning");
    // It is there at once, so that it survives whatever ends the program.
    QCOMPARE(Transcript::load(path, &error)->entries().size(), size_t(1));
    transcript.add(Transcript::Received, "second");
    const std::optional<Transcript> read = Transcript::load(path, &error);
    QVERIFY2(read.has_value(), qPrintable(error));
    QCOMPARE(read->entries().size(), size_t(2));
    QCOMPARE(read->entries().front().bytes, QByteArray("first"));
    QCOMPARE(read->entries().front().text, QString("meaning"));
    QVERIFY(transcript.entries().empty());

    Transcript saved;
    saved.add(Transcript::Sent, "saved");
    QVERIFY2(saved.save(path, &error), qPrintable(error));
    QVERIFY(Transcript::load(path, &error)->entries() == saved.entries());
}

void TestTranscript::keepsTheNewestEntries()
{
    Transcript transcript;
    transcript.add(Transcript::Sent, "1");
    transcript.add(Transcript::Sent, "2");
    transcript.setLimit(2);
    transcript.add(Transcript::Sent, "3");
    QCOMPARE(transcript.entries().size(), size_t(2));
    QCOMPARE(transcript.entries().front().bytes, QByteArray("2"));
    transcript.setLimit(-1);
    transcript.add(Transcript::Sent, "4");
    QCOMPARE(transcript.entries().size(), size_t(3));
    transcript.clear();
    QVERIFY(transcript.entries().empty());
}

void TestTranscript::stampsEntriesInOrder()
{
    const qint64 before = QDateTime::currentMSecsSinceEpoch() * 1000;
    Transcript transcript;
    transcript.add(Transcript::Sent, "1");
    transcript.add(Transcript::Received, "2");
    const qint64 after = (QDateTime::currentMSecsSinceEpoch() + 1) * 1000;
    QVERIFY(before <= transcript.entries().at(0).time);
    QVERIFY(transcript.entries().at(0).time <= transcript.entries().at(1).time);
    QVERIFY(transcript.entries().at(1).time <= after);
}

void TestTranscript::saysWhyAFileFails()
{
    Transcript transcript;
    QString error;
    QVERIFY(!transcript.logTo("/nowhere/line.txt", &error));
    QVERIFY(error.startsWith("/nowhere/line.txt: "));
    error.clear();
    QVERIFY(!transcript.save("/nowhere/line.txt", &error));
    QVERIFY(error.startsWith("/nowhere/line.txt: "));
    error.clear();
    QVERIFY(!Transcript::load("/nowhere/line.txt", &error).has_value());
    QVERIFY(error.startsWith("/nowhere/line.txt: "));
}

MFTOOL_TEST(TestTranscript, EventLoop)
#include "tst_transcript.moc"
