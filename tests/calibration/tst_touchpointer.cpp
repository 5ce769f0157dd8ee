#include "calibration/touchpointer.h"
#include "compat/screen.h"
#include "tests/support/testprogram.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

namespace
{

// Writes down what the mouse does to it.
class Recorder : public QWidget
{
public:
    explicit Recorder(const QRect &place) : QWidget(nullptr, Qt::FramelessWindowHint)
    {
        setGeometry(place);
    }

    QStringList taken()
    {
        const QStringList so_far = m_seen;
        m_seen.clear();
        return so_far;
    }

protected:
    void mousePressEvent(QMouseEvent *event) override { note("press", event); }
    void mouseMoveEvent(QMouseEvent *event) override { note("move", event); }
    void mouseReleaseEvent(QMouseEvent *event) override { note("release", event); }

private:
    void note(const char *what, QMouseEvent *event)
    {
        m_seen << QString("%1 %2,%3 button %4 down %5")
                      .arg(what)
                      .arg(event->pos().x())
                      .arg(event->pos().y())
                      .arg(int(event->button()))
                      .arg(int(event->buttons()));
    }

    QStringList m_seen;
};

const QRect mainPlace(0, 0, 400, 300);

} // namespace

class TestTouchPointer : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void pressMoveRelease();
    void stillFingerDoesNotMove();
    void liftWithoutTouch();
    void clicksAButton();
    void touchBelongsToWhereItBegan();
    void keptToTheScreenWhenCalibrated();
    void rawGoesBeyondTheScreen();
    void grabberGetsEverything();
    void grabberNeedNotBeActive();
    void modalDialogBlocksTheRest();
    void popupComesFirst();
    void underlyingWindowBesideTheTopOne();
    void touchIsDroppedWhenCoordinatesChange();
    void changeBetweenTouchesDropsNothing();
    void receiverDisappears();
    void nobodyThere();

private:
    Recorder *m_main = nullptr;
    TouchPointer *m_pointer = nullptr;
};

void TestTouchPointer::init()
{
    m_main = new Recorder(mainPlace);
    m_main->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_main));
    QCOMPARE(m_main->geometry(), mainPlace);
    m_pointer = new TouchPointer;
}

void TestTouchPointer::cleanup()
{
    delete m_pointer;
    delete m_main;
}

void TestTouchPointer::pressMoveRelease()
{
    m_pointer->touch(QPoint(100, 200));
    m_pointer->touch(QPoint(110, 190));
    m_pointer->lift();
    m_pointer->touch(QPoint(5, 6));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 100,200 button 1 down 1", "move 110,190 button 0 down 1",
                          "release 110,190 button 1 down 0", "press 5,6 button 1 down 1",
                          "release 5,6 button 1 down 0"}));
}

void TestTouchPointer::stillFingerDoesNotMove()
{
    m_pointer->touch(QPoint(100, 200));
    m_pointer->touch(QPoint(100, 200));
    m_pointer->touch(QPoint(100, 200));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 100,200 button 1 down 1", "release 100,200 button 1 down 0"}));
}

void TestTouchPointer::liftWithoutTouch()
{
    m_pointer->lift();
    QCOMPARE(m_main->taken(), QStringList());
}

void TestTouchPointer::clicksAButton()
{
    QPushButton *button = new QPushButton(m_main);
    button->setGeometry(50, 60, 80, 40);
    button->show();
    QSignalSpy clicked(button, SIGNAL(clicked()));
    m_pointer->touch(QPoint(90, 80));
    QVERIFY(button->isDown());
    m_pointer->lift();
    QVERIFY(!button->isDown());
    QCOMPARE(clicked.count(), 1);
    QCOMPARE(m_main->taken(), QStringList());
}

void TestTouchPointer::touchBelongsToWhereItBegan()
{
    Recorder other(QRect(420, 0, 100, 300));
    other.show();
    QVERIFY(QTest::qWaitForWindowExposed(&other));
    m_pointer->touch(QPoint(390, 10));
    m_pointer->touch(QPoint(430, 10));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 390,10 button 1 down 1", "move 430,10 button 0 down 1",
                          "release 430,10 button 1 down 0"}));
    QCOMPARE(other.taken(), QStringList());
    m_pointer->touch(QPoint(430, 10));
    m_pointer->lift();
    QCOMPARE(other.taken(),
             QStringList({"press 10,10 button 1 down 1", "release 10,10 button 1 down 0"}));
}

void TestTouchPointer::keptToTheScreenWhenCalibrated()
{
    m_main->setGeometry(screenGeometry());
    const int right = screenGeometry().right();
    const int bottom = screenGeometry().bottom();
    m_pointer->touch(QPoint(-1, 10));
    m_pointer->touch(QPoint(10, -7));
    m_pointer->touch(QPoint(right + 1, bottom + 3000));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 0,10 button 1 down 1", "move 10,0 button 0 down 1",
                          QString("move %1,%2 button 0 down 1").arg(right).arg(bottom),
                          QString("release %1,%2 button 1 down 0").arg(right).arg(bottom)}));
}

void TestTouchPointer::rawGoesBeyondTheScreen()
{
    m_main->grabMouse();
    m_pointer->setRaw(true);
    m_pointer->touch(QPoint(4095, 16383));
    m_pointer->touch(QPoint(-3, 4000));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 4095,16383 button 1 down 1", "move -3,4000 button 0 down 1",
                          "release -3,4000 button 1 down 0"}));
    m_main->releaseMouse();
}

void TestTouchPointer::grabberGetsEverything()
{
    QPushButton *button = new QPushButton(m_main);
    button->setGeometry(50, 60, 80, 40);
    button->show();
    QSignalSpy clicked(button, SIGNAL(clicked()));
    Recorder other(QRect(100, 0, 700, 300));
    other.show();
    QVERIFY(QTest::qWaitForWindowExposed(&other));
    m_main->grabMouse();
    m_pointer->touch(QPoint(90, 80));
    m_pointer->lift();
    m_pointer->touch(QPoint(500, 80));
    m_pointer->lift();
    m_main->releaseMouse();
    QCOMPARE(clicked.count(), 0);
    QCOMPARE(other.taken(), QStringList());
    QCOMPARE(m_main->taken(),
             QStringList({"press 90,80 button 1 down 1", "release 90,80 button 1 down 0",
                          "press 500,80 button 1 down 1", "release 500,80 button 1 down 0"}));
}

// Without a window manager there may be no active window.
void TestTouchPointer::grabberNeedNotBeActive()
{
    delete m_main;
    m_main = nullptr;
    Recorder inactive(mainPlace);
    // The one kind of window that the off-screen platform does not activate.
    inactive.setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint);
    inactive.show();
    QVERIFY(QTest::qWaitForWindowExposed(&inactive));
    QTRY_VERIFY(!QApplication::activeWindow());
    inactive.grabMouse();
    m_pointer->setRaw(true);
    m_pointer->touch(QPoint(4095, 16383));
    m_pointer->lift();
    inactive.releaseMouse();
    QCOMPARE(inactive.taken(), QStringList({"press 4095,16383 button 1 down 1",
                                            "release 4095,16383 button 1 down 0"}));
}

void TestTouchPointer::modalDialogBlocksTheRest()
{
    Recorder modal(QRect(200, 100, 100, 50));
    modal.setWindowModality(Qt::ApplicationModal);
    modal.show();
    QVERIFY(QTest::qWaitForWindowExposed(&modal));
    m_pointer->touch(QPoint(10, 10));
    m_pointer->lift();
    QCOMPARE(m_main->taken(), QStringList());
    QCOMPARE(modal.taken().size(), 2);
}

void TestTouchPointer::popupComesFirst()
{
    Recorder popup(QRect(200, 100, 100, 50));
    popup.setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
    popup.show();
    QVERIFY(QTest::qWaitForWindowExposed(&popup));
    m_pointer->touch(QPoint(210, 110));
    m_pointer->lift();
    QCOMPARE(m_main->taken(), QStringList());
    QCOMPARE(popup.taken(),
             QStringList({"press 10,10 button 1 down 1", "release 10,10 button 1 down 0"}));
}

void TestTouchPointer::underlyingWindowBesideTheTopOne()
{
    Recorder top(QRect(200, 100, 100, 50));
    top.show();
    QVERIFY(QTest::qWaitForWindowExposed(&top));
    m_pointer->touch(QPoint(210, 110));
    m_pointer->lift();
    m_pointer->touch(QPoint(199, 110));
    m_pointer->lift();
    QCOMPARE(top.taken(),
             QStringList({"press 10,10 button 1 down 1", "release 10,10 button 1 down 0"}));
    QCOMPARE(m_main->taken(),
             QStringList({"press 199,110 button 1 down 1", "release 199,110 button 1 down 0"}));
}

void TestTouchPointer::touchIsDroppedWhenCoordinatesChange()
{
    m_main->grabMouse();
    m_pointer->touch(QPoint(100, 200));
    m_pointer->setRaw(true);
    m_pointer->touch(QPoint(3000, 2000));
    m_pointer->touch(QPoint(3001, 2000));
    m_pointer->lift();
    QCOMPARE(m_main->taken(), QStringList("press 100,200 button 1 down 1"));
    m_pointer->touch(QPoint(3000, 2000));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 3000,2000 button 1 down 1", "release 3000,2000 button 1 down 0"}));
    m_main->releaseMouse();
}

void TestTouchPointer::changeBetweenTouchesDropsNothing()
{
    m_pointer->touch(QPoint(1, 1));
    m_pointer->setRaw(false);
    m_pointer->lift();
    m_pointer->setRaw(true);
    m_pointer->touch(QPoint(2, 2));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 1,1 button 1 down 1", "release 1,1 button 1 down 0",
                          "press 2,2 button 1 down 1", "release 2,2 button 1 down 0"}));
}

void TestTouchPointer::receiverDisappears()
{
    m_pointer->touch(QPoint(100, 200));
    delete m_main;
    m_main = nullptr;
    m_pointer->touch(QPoint(110, 200));
    m_pointer->lift();

    m_main = new Recorder(mainPlace);
    m_main->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_main));
    m_pointer->touch(QPoint(3, 4));
    m_pointer->lift();
    QCOMPARE(m_main->taken(),
             QStringList({"press 3,4 button 1 down 1", "release 3,4 button 1 down 0"}));
}

void TestTouchPointer::nobodyThere()
{
    m_main->hide();
    m_pointer->touch(QPoint(3, 4));
    m_pointer->lift();
    QCOMPARE(m_main->taken(), QStringList());
}

MFTOOL_TEST(TestTouchPointer, Widgets)
#include "tst_touchpointer.moc"
