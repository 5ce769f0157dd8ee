// Every store is watched: the kernel takes what one write() brings, as one
// value, so it matters how often and with how many bytes it is called.
#include "hardware/attribute.h"

#include <QDir>
#include <QtTest>

#include <cerrno>

#include <fcntl.h>

#include "tests/support/boardfolder.h"
#include "tests/support/descriptors.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"
#include "tests/support/writewatch.h"

namespace
{

const QString attribute = QStringLiteral("/sys/class/leds/ready/brightness");

/// How the file of the latest store was opened.
int accessMode = -1;

/// The stores that writeAttribute() makes; none is accepted when @p error is not 0.
QList<QByteArray> storesOf(const QString &path, const QByteArray &text, bool *result, int error = 0)
{
    QList<QByteArray> seen;
    WriteWatch::set([&seen, error](int fd, const QByteArray &bytes) {
        seen.append(bytes);
        accessMode = fcntl(fd, F_GETFL) & O_ACCMODE;
        return error;
    });
    *result = writeAttribute(path, text);
    WriteWatch::set(nullptr);
    return seen;
}

} // namespace

class TestAttribute : public QObject
{
    Q_OBJECT

private slots:
    void text_data();
    void text();
    void refusedStore();
    void notToBeOpened_data();
    void notToBeOpened();
    void closesTheFile();
};

void TestAttribute::text_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("number") << QByteArray("0") << QByteArray("255");
    QTest::newRow("shorter than before") << QByteArray("255\n") << QByteArray("0");
    QTest::newRow("word") << QByteArray("in\n") << QByteArray("out");
    QTest::newRow("line end of its own") << QByteArray() << QByteArray("1\n");
    QTest::newRow("any bytes") << QByteArray() << QByteArray("\0\r\n\xE4\xFF", 5);
    // More than Qt's own buffer would pass on in one piece.
    QTest::newRow("long") << QByteArray() << QByteArray(40000, 'x');
}

void TestAttribute::text()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, stored);
    BoardFolder board;
    board.write(attribute, before);
    bool result = false;
    QCOMPARE(storesOf(board.at(attribute), stored, &result), QList<QByteArray>() << stored);
    QVERIFY(result);
    QCOMPARE(board.read(attribute), stored);
    // Some attributes of the kernel cannot be read.
    QCOMPARE(accessMode, O_WRONLY);
}

void TestAttribute::refusedStore()
{
    BoardFolder board;
    board.write(attribute, "7");
    LogCatcher log;
    bool result = false;
    // Tried once and not again when the file is closed.
    QCOMPARE(storesOf(board.at(attribute), "999", &result, EINVAL), QList<QByteArray>() << "999");
    QVERIFY(result);
    QCOMPARE(log.take(), QStringList());

    // Nothing of it is left for the next one.
    QCOMPARE(storesOf(board.at(attribute), "8", &result), QList<QByteArray>() << "8");
    QCOMPARE(board.read(attribute), QByteArray("8"));
}

void TestAttribute::notToBeOpened_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("no such folder") << "/sys/class/leds/armed/brightness";
    QTest::newRow("a folder") << "/sys/class/leds/ready";
    QTest::newRow("a file on the way") << attribute + "/value";
}

void TestAttribute::notToBeOpened()
{
    QFETCH(QString, path);
    BoardFolder board;
    board.write(attribute, "7");
    LogCatcher log;
    bool result = true;
    QCOMPARE(storesOf(board.at(path), "1", &result), QList<QByteArray>());
    QVERIFY(!result);
    // The caller decides what it means.
    QCOMPARE(log.take(), QStringList());
    QCOMPARE(board.read(attribute), QByteArray("7"));
}

void TestAttribute::closesTheFile()
{
    BoardFolder board;
    board.write(attribute, "0");
    const int before = openDescriptors();
    bool result = false;
    storesOf(board.at(attribute), "1", &result);
    storesOf(board.at(attribute), "1", &result, EIO);
    writeAttribute(board.at(attribute + "/value"), "1");
    QCOMPARE(openDescriptors(), before);
}

MFTOOL_TEST(TestAttribute, NoApplication)
#include "tst_attribute.moc"
