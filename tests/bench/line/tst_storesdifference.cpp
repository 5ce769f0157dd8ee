#include "bench/line/storesdifference.h"

#include <QTest>

#include "tests/support/testprogram.h"

Q_DECLARE_METATYPE(QList<MadeStore>)

class TestStoresDifference : public QObject
{
    Q_OBJECT

private slots:
    void tellsTheFirst_data();
    void tellsTheFirst();
};

void TestStoresDifference::tellsTheFirst_data()
{
    QTest::addColumn<QList<MadeStore>>("made");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<QString>("found");
    const QString a = QStringLiteral("/sys/a");
    const QString b = QStringLiteral("/sys/b");
    const MadeStore first = {a, QStringLiteral("0")};
    const MadeStore second = {b, QStringLiteral("255")};
    const MadeStore third = {a, QStringLiteral("12")};
    const auto row = [](const char *name, const QList<MadeStore> &made, StoresDifference::Kind kind,
                        const char *wanted, const char *found) {
        QTest::newRow(name) << made << int(kind) << QString::fromLatin1(wanted)
                            << QString::fromLatin1(found);
    };
    row("none", {first, second, third}, StoresDifference::None, "", "");
    row("nothing yet", {}, StoresDifference::Missing, "store 1 of 3, 0 to /sys/a", "none");
    row("one to come", {first, second}, StoresDifference::Missing, "store 3 of 3, 1? to /sys/a",
        "none after store 2");
    row("one left out", {first, third}, StoresDifference::Wrong, "store 2 of 3, 255 to /sys/b",
        "12 to /sys/a");
    row("another text", {first, {b, QStringLiteral("25")}, third}, StoresDifference::Wrong,
        "store 2 of 3, 255 to /sys/b", "25 to /sys/b");
    row("refused", {first, second, {a, QStringLiteral("12"), true}}, StoresDifference::Wrong,
        "store 3 of 3, 1? to /sys/a", "12 (refused) to /sys/a");
    row("one too many", {first, second, third, {b, QStringLiteral("0\n")}}, StoresDifference::Wrong,
        "no store after 3", "0\\u000a to /sys/b");
}

void TestStoresDifference::tellsTheFirst()
{
    const QList<Plan::Store> wanted = {{QStringLiteral("/sys/a"), QStringLiteral("0")},
                                       {QStringLiteral("/sys/b"), QStringLiteral("255")},
                                       {QStringLiteral("/sys/a"), QStringLiteral("1?")}};
    QFETCH(QList<MadeStore>, made);
    const StoresDifference difference = storesDifference(wanted, made);
    QTEST(int(difference.kind), "kind");
    QTEST(difference.wanted, "wanted");
    QTEST(difference.found, "found");
}

MFTOOL_TEST(TestStoresDifference, EventLoop)
#include "tst_storesdifference.moc"
