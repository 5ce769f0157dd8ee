#include "bench/line/afterunit.h"

#include "tests/bench/line/otherside.h"
#include "tests/support/testprogram.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestAfterUnit : public QObject
{
    Q_OBJECT

private slots:
    void runsAProgram_data();
    void runsAProgram();
    void endsOneThatHangs();
    void leavesLittleTimeToAnInterruptedOne();

private:
    QString program(const QByteArray &script);

    QTemporaryDir m_dir;
};

/// @return path of a program that does what the shell script says
QString TestAfterUnit::program(const QByteArray &script)
{
    const QString path = m_dir.filePath(QStringLiteral("program"));
    QFile::remove(path);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + script) < 0)
        qFatal("cannot write a program");
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    return path;
}

void TestAfterUnit::runsAProgram_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<QString>("failure");
    QTest::newRow("good") << QByteArray("echo printed") << "";
    QTest::newRow("gets the record")
        << QByteArray("test \"$1\" = 'a b/record.json' -a $# = 1") << "";
    QTest::newRow("bad") << QByteArray("exit 3") << ": exit status 3";
    QTest::newRow("says why") << QByteArray("echo one; echo 'no paper' >&2; exit 1")
                              << ": exit status 1: no paper";
    QTest::newRow("says what a terminal obeys")
        << QByteArray("printf 'a\\033[2Jb\\n'; exit 1") << ": exit status 1: a?[2Jb";
    QTest::newRow("crashes") << QByteArray("kill -SEGV $$") << ": ended by a signal";
    QTest::newRow("has no answers to take") << QByteArray("read x && exit 1; exit 0") << "";
}

void TestAfterUnit::runsAProgram()
{
    QFETCH(QByteArray, script);
    QFETCH(QString, failure);
    const QString path = program(script);
    QCOMPARE(runAfterUnit(path, QStringLiteral("a b/record.json"), 60000),
             failure.isEmpty() ? QString() : path + failure);
    QVERIFY(runAfterUnit(QStringLiteral("/nowhere/label"), QStringLiteral("r"), 60000)
                .startsWith(QStringLiteral("/nowhere/label: ")));
}

void TestAfterUnit::endsOneThatHangs()
{
    const QString path = program("exec sleep 600");
    QCOMPARE(runAfterUnit(path, QStringLiteral("r"), 200),
             path + QStringLiteral(": not done in 0.2 s"));
}

void TestAfterUnit::leavesLittleTimeToAnInterruptedOne()
{
    const QString begun = m_dir.filePath(QStringLiteral("begun"));
    const QString path = program("echo >" + begun.toUtf8() + "; exec sleep 3600");
    Interrupt interrupt;
    OtherSide other;
    other.when([&] { return QFile::exists(begun); }, [&] { interrupt.raise(); });
    QCOMPARE(runAfterUnit(path, QStringLiteral("r"), 3600000, &interrupt),
             path + QStringLiteral(": not done when the run was interrupted"));
}

MFTOOL_TEST(TestAfterUnit, EventLoop)
#include "tst_afterunit.moc"
