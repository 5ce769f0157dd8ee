#include "bench/line/timebook.h"

#include "tests/support/testprogram.h"

#include <QTest>
#include <QThread>

class TestTimeBook : public QObject
{
    Q_OBJECT

private slots:
    void addsUpToAllTheTime();
    void returnsToTheShareBefore();
};

void TestTimeBook::addsUpToAllTheTime()
{
    QElapsedTimer around;
    around.start();
    TimeBook book;
    book.start();
    QElapsedTimer within;
    within.start();
    {
        const TimeBook::Visit visit(&book, TimeBook::Flash);
        QThread::msleep(2);
    }
    QThread::msleep(1);
    const double least = static_cast<double>(within.nsecsElapsed()) / 1e9;
    const TimeSpent spent = book.spent();
    const double most = static_cast<double>(around.nsecsElapsed()) / 1e9;
    const double sum = spent.tool + spent.flash + spent.operatorAt + spent.bench;
    QVERIFY(sum >= least - 1e-6);
    QVERIFY(sum <= most + 1e-6);
    QVERIFY(spent.flash >= 0.002);
    QVERIFY(spent.bench >= 0.001);
    QCOMPARE(spent.tool, 0.0);
}

void TestTimeBook::returnsToTheShareBefore()
{
    TimeBook book;
    book.start();
    {
        const TimeBook::Visit outer(&book, TimeBook::Tool);
        {
            const TimeBook::Visit inner(&book, TimeBook::Operator);
            QThread::msleep(1);
        }
        QThread::msleep(2);
    }
    const TimeSpent before = book.spent();
    QVERIFY(before.operatorAt >= 0.001);
    QVERIFY(before.tool >= 0.002);
    QThread::msleep(1);
    const TimeSpent after = book.spent();
    QCOMPARE(after.tool, before.tool);
    QCOMPARE(after.operatorAt, before.operatorAt);
    QVERIFY(after.bench >= before.bench + 0.001);
}

MFTOOL_TEST(TestTimeBook, NoApplication)
#include "tst_timebook.moc"
