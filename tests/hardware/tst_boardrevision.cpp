#include <QtTest>

#include "hardware/boardrevision.h"
#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

namespace
{

const QString revisionFile = QStringLiteral("/sys/board_revision/marlow_revision");

} // namespace

class TestBoardRevision : public QObject
{
    Q_OBJECT

private slots:
    void text_data();
    void text();
    void missing();
    void unreadable();
};

void TestBoardRevision::text_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("revision");
    QTest::addColumn<QStringList>("messages");

    const QStringList none;
    const QStringList zero(QStringLiteral("warning: Revision 0 is invalid"));
    QTest::newRow("1") << QByteArray("1") << 1 << none;
    QTest::newRow("2") << QByteArray("2") << 2 << none;
    QTest::newRow("12") << QByteArray("12") << 12 << none;
    QTest::newRow("decimal in spite of its zero") << QByteArray("010") << 10 << none;
    QTest::newRow("0") << QByteArray("0") << 1 << zero;
    QTest::newRow("-3") << QByteArray("-3") << 1
                        << QStringList(QStringLiteral("warning: Revision -3 is invalid"));
    QTest::newRow("empty") << QByteArray() << 1 << zero;
    QTest::newRow("text") << QByteArray("rev2") << 1 << zero;
    QTest::newRow("number and text") << QByteArray("2b") << 1 << zero;
    QTest::newRow("hexadecimal") << QByteArray("0x2") << 1 << zero;
    QTest::newRow("only the first line counts") << QByteArray("\n2") << 1 << zero;
    // Whether white space may follow a number depends on the version of Qt.
#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)
    QTest::newRow("a line end") << QByteArray("2\n") << 2 << none;
#else
    QTest::newRow("a line end") << QByteArray("2\n") << 1 << zero;
#endif
    QTest::newRow("too large") << QByteArray("4294967298") << 1 << zero;
}

void TestBoardRevision::text()
{
    QFETCH(QByteArray, file);
    QFETCH(int, revision);
    QFETCH(QStringList, messages);
    BoardFolder keypad;
    keypad.write(revisionFile, file);
    LogCatcher log;
    QCOMPARE(readBoardRevision(keypad.board()), revision);
    QCOMPARE(log.take(), messages);
}

void TestBoardRevision::missing()
{
    BoardFolder keypad;
    LogCatcher log;
    QCOMPARE(readBoardRevision(keypad.board()), 1);
    QCOMPARE(log.take(),
             QStringList(QStringLiteral("debug: No revision file found, assuming rev 1")));
}

void TestBoardRevision::unreadable()
{
    BoardFolder keypad;
    keypad.makeFolder(revisionFile);
    LogCatcher log;
    QCOMPARE(readBoardRevision(keypad.board()), 1);
    QCOMPARE(log.take(),
             QStringList(QStringLiteral("warning: Unable to read the board revision file")));
}

MFTOOL_TEST(TestBoardRevision, EventLoop)
#include "tst_boardrevision.moc"
