#include "bench/board/journal.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestJournal : public QObject
{
    Q_OBJECT

private slots:
    void message();
    void bytes();
    void noEntry();
    void started();
    void endedWell();
    void endedWithStatus();
    void endedBySignal();
};

void TestJournal::message()
{
    Journal::Entry entry;
    QVERIFY(Journal::read(R"({"MESSAGE":"Setting calibration","PRIORITY":"7",)"
                          R"("__REALTIME_TIMESTAMP":"1400000003456789"})",
                          &entry));
    QCOMPARE(entry.text, QStringLiteral("Setting calibration"));
    QCOMPARE(entry.severity, QStringLiteral("debug"));
    QCOMPARE(entry.time, QStringLiteral("16:53:23.456"));
    QCOMPARE(entry.event, Journal::Nothing);
}

void TestJournal::bytes()
{
    // This is how the journal prints a message with unprintable characters.
    Journal::Entry entry;
    QVERIFY(Journal::read(R"({"MESSAGE":[65,27,66],"PRIORITY":"4"})", &entry));
    QCOMPARE(entry.text, QStringLiteral("A\x1b"
                                        "B"));
    QCOMPARE(entry.severity, QStringLiteral("warning"));
}

void TestJournal::noEntry()
{
    Journal::Entry entry;
    QVERIFY(!Journal::read("", &entry));
    QVERIFY(!Journal::read("-- No entries --", &entry));
    QVERIFY(!Journal::read(R"({"MESSAGE":)", &entry));
}

void TestJournal::started()
{
    Journal::Entry entry;
    QVERIFY(Journal::read(R"({"MESSAGE":"Started mftool.service - Factory test.","PRIORITY":"6",)"
                          R"("MESSAGE_ID":"39f53479d3a045ac8e11786248231fbf"})",
                          &entry));
    QCOMPARE(entry.event, Journal::Started);
}

void TestJournal::endedWell()
{
    Journal::Entry entry;
    QVERIFY(Journal::read(R"({"MESSAGE":"mftool.service: Deactivated successfully.",)"
                          R"("MESSAGE_ID":"7ad2d189f7e94e70a38c781354912448"})",
                          &entry));
    QCOMPARE(entry.event, Journal::Ended);
    QCOMPARE(entry.status, 0);
    QCOMPARE(entry.signal, 0);
}

void TestJournal::endedWithStatus()
{
    Journal::Entry entry;
    QVERIFY(Journal::read(R"({"MESSAGE_ID":"98e322203f7a4ed290d09fe03c09fe15",)"
                          R"("EXIT_CODE":"exited","EXIT_STATUS":"3"})",
                          &entry));
    QCOMPARE(entry.event, Journal::Ended);
    QCOMPARE(entry.status, 3);
    QCOMPARE(entry.signal, 0);
}

void TestJournal::endedBySignal()
{
    Journal::Entry entry;
    QVERIFY(Journal::read(R"({"MESSAGE_ID":"98e322203f7a4ed290d09fe03c09fe15",)"
                          R"("EXIT_CODE":"killed","EXIT_STATUS":"9"})",
                          &entry));
    QCOMPARE(entry.event, Journal::Ended);
    QCOMPARE(entry.status, -1);
    QCOMPARE(entry.signal, 9);
}

MFTOOL_TEST(TestJournal, NoApplication)
#include "tst_journal.moc"
