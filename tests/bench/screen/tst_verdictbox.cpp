#include "bench/screen/verdictbox.h"
#include "tests/support/testprogram.h"

class TestVerdictBox : public QObject
{
    Q_OBJECT

private slots:
    void eachOutcomeHasAWord_data();
    void eachOutcomeHasAWord();
    void onlyAPassIsAPass();
    void aSignTellsThemApart();
    void theWordFillsTheBox();
    void progressIsShown();

private:
    static QImage picture(const Verdict &verdict, double share = -1);
};

QImage TestVerdictBox::picture(const Verdict &verdict, double share)
{
    VerdictBox box;
    box.resize(600, 200);
    box.setVerdict(verdict, share);
    return box.grab().toImage();
}

void TestVerdictBox::eachOutcomeHasAWord_data()
{
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("colour");
    QTest::newRow("pass") << "pass"
                          << "PASS"
                          << "#1a7a3c";
    QTest::newRow("fail") << "fail"
                          << "FAIL"
                          << "#b3201f";
    QTest::newRow("time-out") << "time-out"
                              << "TIME-OUT"
                              << "#b3201f";
    QTest::newRow("error") << "error"
                           << "ERROR"
                           << "#9a5200";
    QTest::newRow("interrupted") << "interrupted"
                                 << "INTERRUPTED"
                                 << "#566470";
    QTest::newRow("not run") << "not run"
                             << "NOT TESTED"
                             << "#566470";
    QTest::newRow("one of a later version") << "on fire"
                                            << "ON FIRE"
                                            << "#9a5200";
}

void TestVerdictBox::eachOutcomeHasAWord()
{
    QFETCH(QString, outcome);
    QFETCH(QString, word);
    QFETCH(QString, colour);
    const Verdict verdict = verdictOf(outcome);
    QCOMPARE(verdict.word, word);
    QCOMPARE(verdict.colour.name(), colour);
    QCOMPARE(picture(verdict).pixelColor(300, 3).name(), colour);
}

void TestVerdictBox::onlyAPassIsAPass()
{
    for (const char *outcome :
         {"fail", "time-out", "error", "interrupted", "not run", "on fire", "PASS", ""})
        QVERIFY2(!verdictOf(outcome).isPass, outcome);
    QVERIFY(verdictOf("pass").isPass);
}

/// With one colour and one word for all.
void TestVerdictBox::aSignTellsThemApart()
{
    QList<QImage> pictures;
    for (const Sign sign : {Sign::Tick, Sign::Cross, Sign::Exclamation, Sign::Bar}) {
        const QImage next = picture({"X", sign, Qt::black, false});
        for (const QImage &other : pictures)
            QVERIFY(next != other);
        pictures.append(next);
    }
    QVERIFY(verdictOf("pass").sign != verdictOf("fail").sign);
}

void TestVerdictBox::theWordFillsTheBox()
{
    const QImage image = picture(verdictOf("pass"));
    int top = image.height();
    int bottom = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = image.width() / 3; x < image.width(); ++x) {
            if (image.pixelColor(x, y) != Qt::white)
                continue;
            top = std::min(top, y);
            bottom = std::max(bottom, y);
        }
    }
    QVERIFY2(bottom - top > image.height() / 2, qPrintable(QString::number(bottom - top)));
}

void TestVerdictBox::progressIsShown()
{
    const Verdict testing = {"TESTING", Sign::None, QColor("#c3ced6"), false};
    const auto blue = [](const QImage &image) {
        int count = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                count += image.pixelColor(x, y).name() == "#3b6ea0" ? 1 : 0;
        }
        return count;
    };
    const int quarter = blue(picture(testing, 0.25));
    const int whole = blue(picture(testing, 1));
    QVERIFY(quarter > 0);
    QVERIFY(whole > 3 * quarter);
    QCOMPARE(blue(picture(testing)), 0);
}

MFTOOL_TEST(TestVerdictBox, Widgets)
#include "tst_verdictbox.moc"
