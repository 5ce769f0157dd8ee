// Covering the screen: the size must be right before the window is shown.
#include "app/fullscreen.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>
#include <QtTest>

#include "tests/support/testprogram.h"

namespace
{

class Window : public QWidget
{
public:
    QSize sizeWhenShown;

protected:
    void showEvent(QShowEvent *event) override
    {
        if (sizeWhenShown.isEmpty())
            sizeWhenShown = size();
        QWidget::showEvent(event);
    }
};

} // namespace

class TestFullScreen : public QObject
{
    Q_OBJECT

private slots:
    void covers();
};

void TestFullScreen::covers()
{
    Window window;
    window.resize(200, 100);
    showOnWholeScreen(&window);
    QVERIFY(window.isVisible());
    QVERIFY(window.isFullScreen());
    QCOMPARE(window.sizeWhenShown, QGuiApplication::primaryScreen()->size());
}

MFTOOL_TEST(TestFullScreen, Widgets)
#include "tst_fullscreen.moc"
