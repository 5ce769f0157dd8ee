#include "bench/screen/fitlabel.h"
#include "tests/support/testprogram.h"

class TestFitLabel : public QObject
{
    Q_OBJECT

private slots:
    void shortTextIsAsLargeAsAllowed();
    void longTextIsSmallerAndWhole();
    void textIsWrappedBetweenWords();
    void whatDoesNotFitIsElided_data();
    void whatDoesNotFitIsElided();
    void itStaysInItsPlace_data();
    void itStaysInItsPlace();
};

namespace
{

const QString Long =
    "Does the screen show the factory logo in the middle, with a white frame of one "
    "pixel around the whole screen, no missing rows or columns, and no flicker?";

FittedText fit(const QString &text, int width, int height, int lines)
{
    return FittedText::fit(text, QFont(), QSize(width, height), lines, 12, 40);
}

} // namespace

void TestFitLabel::shortTextIsAsLargeAsAllowed()
{
    const FittedText fitted = fit("PASS", 800, 200, 1);
    QCOMPARE(fitted.font.pixelSize(), 40);
    QCOMPARE(fitted.lines, QStringList{"PASS"});
}

void TestFitLabel::longTextIsSmallerAndWhole()
{
    const FittedText fitted = fit(Long, 600, 120, 6);
    QVERIFY(fitted.font.pixelSize() < 40);
    QVERIFY(fitted.font.pixelSize() > 12);
    QCOMPARE(fitted.lines.join(" "), Long);
}

void TestFitLabel::textIsWrappedBetweenWords()
{
    const FittedText fitted = fit(Long, 600, 120, 6);
    QVERIFY(fitted.lines.size() > 1);
    const QStringList words = Long.split(" ");
    for (const QString &line : fitted.lines) {
        for (const QString &word : line.split(" "))
            QVERIFY2(words.contains(word), qPrintable(word));
    }
}

void TestFitLabel::whatDoesNotFitIsElided_data()
{
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("lines");
    QTest::newRow("one line allowed") << 100 << 1;
    QTest::newRow("two lines allowed") << 100 << 2;
    QTest::newRow("room for one line") << 15 << 5;
}

void TestFitLabel::whatDoesNotFitIsElided()
{
    QFETCH(int, height);
    QFETCH(int, lines);
    const FittedText fitted = fit(Long, 200, height, lines);
    QCOMPARE(fitted.font.pixelSize(), 12);
    QCOMPARE(fitted.lines.size(), lines == 2 ? 2 : 1);
    QVERIFY(fitted.lines.last().endsWith(QChar(0x2026)));
    QVERIFY(Long.startsWith(fitted.lines.join(" ").chopped(1).trimmed()));
}

void TestFitLabel::itStaysInItsPlace_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("sentence") << Long;
    QTest::newRow("one word") << QString(200, 'W');
    QTest::newRow("short") << "PASS";
    QTest::newRow("lines") << "one\ntwo\nthree\nfour\nfive\nsix\nseven\neight\nnine";
}

void TestFitLabel::itStaysInItsPlace()
{
    QFETCH(QString, text);
    for (int width = 40; width <= 800; width += 95) {
        for (int height = 16; height <= 200; height += 23) {
            const FittedText fitted = fit(text, width, height, 4);
            const QFontMetrics metrics(fitted.font);
            QVERIFY(fitted.lines.size() <= 4);
            QVERIFY(fitted.lines.size() * metrics.height() <= height || fitted.lines.size() == 1);
            for (const QString &line : fitted.lines)
                QVERIFY2(metrics.horizontalAdvance(line) <= width, qPrintable(line));
        }
    }
}

MFTOOL_TEST(TestFitLabel, Widgets)
#include "tst_fitlabel.moc"
