#include "bench/keypad/keypadlog.h"

#include <QtTest>

#include "tests/support/testprogram.h"

class TestKeypadLog : public QObject
{
    Q_OBJECT

private slots:
    void oneMessage();
    void messageWithLineEnds();
    void messageInPieces();
    void foreignLines();
    void foreignLineBetweenMessages();
    void unfinishedLineAtTheEnd();
    void controlCharactersInMessages();
};

namespace
{

QByteArray record(const QByteArray &text)
{
    return "\x1e<message 12:34:56.789 " + text + "\x1e/message>\n";
}

} // namespace

void TestKeypadLog::oneMessage()
{
    KeypadLog log;
    const QList<KeypadLog::Line> lines = log.take(record("warning Failed to open LED file"), 42);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().usec, qint64(42));
    QCOMPARE(lines.first().time, QString("12:34:56.789"));
    QCOMPARE(lines.first().severity, QString("warning"));
    QCOMPARE(lines.first().text, QString("Failed to open LED file"));
    QCOMPARE(log.finish(43).size(), 0);
}

void TestKeypadLog::messageWithLineEnds()
{
    KeypadLog log;
    const QList<KeypadLog::Line> lines = log.take(record("debug \n*** end ***\n"), 0);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().text, QString("\n*** end ***\n"));
}

void TestKeypadLog::messageInPieces()
{
    KeypadLog log;
    const QByteArray bytes = record("debug one") + record("info two");
    QStringList texts;
    for (const char byte : bytes) {
        const QList<KeypadLog::Line> lines = log.take(QByteArray(1, byte), 0);
        for (const KeypadLog::Line &line : lines)
            texts.append(line.severity + ' ' + line.text);
    }
    QCOMPARE(texts, QStringList({"debug one", "info two"}));
}

void TestKeypadLog::foreignLines()
{
    KeypadLog log;
    const QList<KeypadLog::Line> lines = log.take("one\ntwo\nthr", 5);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0).severity, QString("output"));
    QCOMPARE(lines.at(0).time, QString());
    QCOMPARE(lines.at(0).text, QString("one"));
    QCOMPARE(lines.at(1).text, QString("two"));
    QCOMPARE(log.take("ee\n", 6).first().text, QString("three"));
}

void TestKeypadLog::foreignLineBetweenMessages()
{
    KeypadLog log;
    const QList<KeypadLog::Line> lines =
        log.take(record("debug a") + "library speaks\n" + record("debug b"), 0);
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.at(1).severity, QString("output"));
    QCOMPARE(lines.at(1).text, QString("library speaks"));
    QCOMPARE(lines.at(2).text, QString("b"));
}

void TestKeypadLog::unfinishedLineAtTheEnd()
{
    KeypadLog log;
    QCOMPARE(log.take("last words", 0).size(), 0);
    const QList<KeypadLog::Line> lines = log.finish(9);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().text, QString("last words"));
    QCOMPARE(lines.first().usec, qint64(9));
}

void TestKeypadLog::controlCharactersInMessages()
{
    KeypadLog log;
    const QList<KeypadLog::Line> lines = log.take(record("debug a\x1e"
                                                         "b\x01"),
                                                  0);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().text, QString("a\x1e"
                                         "b\x01"));
}

MFTOOL_TEST(TestKeypadLog, NoApplication)
#include "tst_keypadlog.moc"
