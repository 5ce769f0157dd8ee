/// The touchscreen test under a real finger, and the start button that it covers.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <QImage>

namespace
{

/// The middle of the start button, in its place that is 81 rows high.
const QPoint startButton(400, 260);
const QPoint corner(26, 31);

KeypadOptions onScreen()
{
    KeypadOptions options;
    options.display.kind = KeypadDisplay::Xvfb;
    return options;
}

} // namespace

class TestTouch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void offAtFirst();
    void reportsPresses_data();
    void reportsPresses();
    void reachesNothingElse();
    void reportsOnTheLogoToo();
    void offAgain();
    void startButtonWorks();
    void startButtonIsGoneAfterwards();

private:
    /// The corner target as it looks now.
    QImage target() { return m_rig->keypad.screen().copy(20, 20, 22, 22); }
    /// Lifts the finger and moves it to where it has no effect.
    void moveAway();

    QScopedPointer<Rig> m_rig;
};

void TestTouch::initTestCase()
{
    SKIP_UNLESS_SCREENS_RUN();
    m_rig.reset(new Rig(onScreen()));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
    QCOMPARE(m_rig->request(0x7000).line, QStringList("0004"));
    QVERIFY(m_rig->keypad.waitForPixel(799, 44, 0xff0000ff));
}

void TestTouch::moveAway()
{
    m_rig->keypad.release();
    m_rig->keypad.move(200, 10);
}

void TestTouch::offAtFirst()
{
    m_rig->settle();
    m_rig->forget();
    QVERIFY(m_rig->keypad.touch(300, 20));
    QVERIFY(m_rig->keypad.touch(300, 100));
    const Outcome outcome = m_rig->settle();
    QCOMPARE(outcome.line, QStringList());
    QCOMPARE(outcome.log, QStringList());
}

void TestTouch::reportsPresses_data()
{
    QTest::addColumn<QPoint>("at");
    QTest::addColumn<QString>("reply");
    QTest::newRow("top left") << QPoint(0, 0) << "7031 000000";
    QTest::newRow("bottom right") << QPoint(799, 479) << "7031 799479";
    QTest::newRow("zeros ahead") << QPoint(7, 42) << "7031 007042";
    QTest::newRow("the colours") << QPoint(400, 100) << "7031 400100";
    QTest::newRow("the start button") << startButton << "7031 400260";
    QTest::newRow("a target") << corner << "7031 026031";
    QTest::newRow("a progress bar") << QPoint(600, 350) << "7031 600350";
}

void TestTouch::reportsPresses()
{
    QFETCH(QPoint, at);
    QFETCH(QString, reply);
    QCOMPARE(m_rig->request(0x7030, "01").line, QStringList("0004"));
    m_rig->forget();
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(keypad.press(at.x(), at.y()));
    QCOMPARE(m_rig->next(), reply);
    // Moves and the lifting of the finger are not reported.
    QVERIFY(keypad.move(at.x() / 2 + 100, at.y() / 2 + 50));
    QVERIFY(keypad.release());
    QCOMPARE(m_rig->settle().line, QStringList());
}

void TestTouch::reachesNothingElse()
{
    QCOMPARE(m_rig->request(0x7030, "FF").line, QStringList("0004"));
    moveAway();
    const QImage before = m_rig->keypad.screen();
    m_rig->forget();
    for (int i = 0; i < 3; ++i) {
        for (const QPoint &at : {startButton, corner}) {
            QVERIFY(m_rig->keypad.touch(at.x(), at.y()));
            QVERIFY(m_rig->next().startsWith("7031 "));
        }
    }
    moveAway();
    QCOMPARE(m_rig->settle().log, QStringList());
    QCOMPARE(m_rig->request(0x7053).line, QStringList("0003")); // nothing is being flashed
    QCOMPARE(m_rig->keypad.standinCalls().size(), 0);
    AWAIT_VERIFY(m_rig->keypad.screen() == before);
}

void TestTouch::reportsOnTheLogoToo()
{
    QCOMPARE(m_rig->request(0x7000, "tarnwick.png").line, QStringList("0004"));
    QCOMPARE(m_rig->request(0x7030, "01").line, QStringList("0004"));
    m_rig->forget();
    QVERIFY(m_rig->keypad.touch(400, 240));
    QCOMPARE(m_rig->next(), QString("7031 400240"));
    QCOMPARE(m_rig->request(0x7000).line, QStringList("0004"));
    QVERIFY(m_rig->keypad.waitForPixel(799, 44, 0xff0000ff));
}

void TestTouch::offAgain()
{
    moveAway();
    const QImage unmarked = target();
    QCOMPARE(m_rig->request(0x7030, "00").line, QStringList("0004"));
    m_rig->forget();
    QVERIFY(m_rig->keypad.touch(corner.x(), corner.y()));
    moveAway();
    AWAIT_VERIFY(target() != unmarked);
    QVERIFY(m_rig->keypad.touch(300, 100));
    const Outcome outcome = m_rig->settle();
    QCOMPARE(outcome.line, QStringList());
    QCOMPARE(outcome.log, QStringList());
}

void TestTouch::startButtonWorks()
{
    m_rig->forget();
    QVERIFY(m_rig->keypad.touch(startButton.x(), startButton.y()));
    // The station hears of a flash that it did not ask for.
    QCOMPARE(m_rig->next(), QString("7052 01"));
    QStringList programs;
    const QList<VirtualKeypad::StandinCall> calls = m_rig->keypad.standinCalls();
    for (const VirtualKeypad::StandinCall &call : calls)
        programs << call.program;
    QCOMPARE(programs, QStringList({"kobs-ng", "ubiformat"}));
}

/// The status line stays in its place.
void TestTouch::startButtonIsGoneAfterwards()
{
    QVERIFY(m_rig->keypad.touch(startButton.x(), startButton.y()));
    QCOMPARE(m_rig->settle().line, QStringList());
    QCOMPARE(m_rig->request(0x7053).line, QStringList("0003"));
    QCOMPARE(m_rig->keypad.standinCalls().size(), 2);
}

MFTOOL_TEST(TestTouch, EventLoop)
#include "tst_touch.moc"
