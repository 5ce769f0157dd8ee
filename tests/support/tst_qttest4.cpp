// The shims that the tests use with Qt 4, on this Qt. After the includes every name is
// the shims'.
#include <QTemporaryDir>
#include <QTimer>

#include "tests/support/onsignal.h"
#include "tests/support/qttest4.h"
#include "tests/support/testprogram.h"

#include <type_traits>

namespace
{

QStringList said;

void keep(QtMsgType, const QMessageLogContext &, const QString &text)
{
    said << text;
}

} // namespace

class TestQtTest4 : public QObject
{
    Q_OBJECT
private slots:
    void namesAreTheShims();
    void waitsForACondition();
    void waitsForAValue();
    void spyWaits();
    void folderIsTemporary();
    void handlerTakesMessages();
    void functionForASignal();
    void skipped();
};

void TestQtTest4::namesAreTheShims()
{
    QVERIFY((std::is_same<QTemporaryDir, qttest4::TemporaryDir>::value));
    QVERIFY((std::is_same<QSignalSpy, qttest4::SignalSpy>::value));
    QCOMPARE(QStringLiteral("a"), QString("a"));
}

void TestQtTest4::waitsForACondition()
{
    QTimer timer;
    timer.setSingleShot(true);
    timer.start(30);
    QTRY_VERIFY(!timer.isActive());
    QVERIFY(!waitUntil([] { return false; }, 10));
}

void TestQtTest4::waitsForAValue()
{
    int ticks = 0;
    QTimer timer;
    onSignal(&timer, SIGNAL(timeout()), [&](const QVariant &) { ++ticks; });
    timer.start(1);
    QTRY_VERIFY_WITH_TIMEOUT(ticks >= 3, 20000);
    timer.stop();
    const int end = ticks;
    QTRY_COMPARE(ticks, end);
    QTRY_COMPARE_WITH_TIMEOUT(ticks, end, 10);
}

void TestQtTest4::spyWaits()
{
    QTimer timer;
    QSignalSpy spy(&timer, SIGNAL(timeout()));
    QVERIFY(!spy.wait(10));
    timer.start(1);
    QVERIFY(spy.wait());
    QVERIFY(spy.count() >= 1);
}

void TestQtTest4::folderIsTemporary()
{
    QString path;
    {
        const QTemporaryDir folder;
        QVERIFY(folder.isValid());
        path = folder.path();
        QVERIFY(QDir().mkpath(folder.filePath("a/b")));
        QFile file(folder.filePath("a/b/.hidden"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(QFile::link(QDir::homePath(), folder.filePath("a/home")));
    }
    QVERIFY(!QFile::exists(path));
    QVERIFY(QDir(QDir::homePath()).exists());
}

void TestQtTest4::handlerTakesMessages()
{
    said.clear();
    const QtMessageHandler before = qInstallMessageHandler(keep);
    qWarning("one %d", 1);
    QVERIFY(qInstallMessageHandler(before) == keep);
    QCOMPARE(said, QStringList("one 1"));
    QTest::ignoreMessage(QtWarningMsg, "two");
    qWarning("two");
    QCOMPARE(said.size(), 1);
}

void TestQtTest4::functionForASignal()
{
    QObject *sender = new QObject;
    QStringList names;
    onSignal(sender, SIGNAL(objectNameChanged(QString)),
             [&](const QVariant &name) { names << name.toString(); });
    sender->setObjectName("a");
    sender->setObjectName("b");
    delete sender;
    QCOMPARE(names, QStringList() << "a"
                                  << "b");
}

void TestQtTest4::skipped()
{
    QSKIP("with one argument");
}

MFTOOL_TEST(TestQtTest4, EventLoop)
#include "tst_qttest4.moc"
