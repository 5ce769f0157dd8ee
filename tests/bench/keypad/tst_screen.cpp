#include "bench/keypad/virtualkeypad.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest>

#include "tests/support/testprogram.h"

class TestScreen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void sizeAndColour();
    void touches();
    void pressMoveRelease();
    void keypadsShareADisplay();
    void noDisplayToTouch();
    void vncPlatform();

private:
    static KeypadOptions window(const QString &colour);
};

KeypadOptions TestScreen::window(const QString &colour)
{
    KeypadOptions options;
    options.tool = PROBE;
    options.arguments = QStringList({"colour", colour});
    options.display.kind = KeypadDisplay::Xvfb;
    return options;
}

void TestScreen::initTestCase()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
    const QString reason = VirtualKeypad::whyNoDisplay(KeypadDisplay::Xvfb);
    if (!reason.isEmpty())
        QSKIP(qPrintable(reason));
}

void TestScreen::sizeAndColour()
{
    VirtualKeypad keypad(window("#12fe34"));
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForPixel(0, 0, qRgb(0x12, 0xfe, 0x34), 20000));
    QVERIFY(keypad.waitForPixel(799, 479, qRgb(0x12, 0xfe, 0x34)));
    QCOMPARE(keypad.screen().size(), QSize(800, 480));
    QCOMPARE(keypad.pixel(800, 0), QRgb(0));
    QVERIFY(!keypad.waitForPixel(400, 240, qRgb(1, 2, 3), 20));
    QTemporaryDir dir;
    QVERIFY(keypad.screenshot(dir.filePath("screen.png")));
    const QImage image(dir.filePath("screen.png"));
    QCOMPARE(image.size(), QSize(800, 480));
    QCOMPARE(image.pixel(400, 240), qRgb(0x12, 0xfe, 0x34));
    QVERIFY(!keypad.screenshot(dir.filePath("none/screen.png")));
}

void TestScreen::touches()
{
    VirtualKeypad keypad(window("red"));
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForPixel(400, 240, qRgb(255, 0, 0), 20000));
    QVERIFY2(keypad.touch(123, 45), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForLog("press 123 45"));
    QVERIFY(keypad.waitForLog("release 123 45"));
    QVERIFY(keypad.touch(799, 479, 0));
    QVERIFY(keypad.waitForLog("release 799 479"));
    QCOMPARE(keypad.countLog("press"), 2);
}

void TestScreen::pressMoveRelease()
{
    VirtualKeypad keypad(window("blue"));
    QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
    QVERIFY(keypad.waitForPixel(400, 240, qRgb(0, 0, 255), 20000));
    QVERIFY(keypad.press(10, 20));
    QVERIFY(keypad.waitForLog("press 10 20"));
    QCOMPARE(keypad.countLog("release"), 0);
    QVERIFY(keypad.move(30, 40));
    QVERIFY(keypad.release());
    QVERIFY(keypad.waitForLog("release 30 40"));
}

void TestScreen::keypadsShareADisplay()
{
    VirtualKeypad one(window("lime"));
    QVERIFY(one.prepare());
    VirtualKeypad two(window("red"));
    QVERIFY(two.prepare());
    QVERIFY(one.displayName().startsWith(':'));
    QCOMPARE(one.displayName(), two.displayName());
}

void TestScreen::noDisplayToTouch()
{
    KeypadOptions options = window("red");
    options.display.kind = KeypadDisplay::Offscreen;
    VirtualKeypad keypad(options);
    QVERIFY(keypad.start());
    QVERIFY(!keypad.touch(1, 1));
    QCOMPARE(keypad.errorString(), QString("there is no display to touch"));
    QVERIFY(keypad.screen().isNull());
    QVERIFY(keypad.displayName().isEmpty());
}

void TestScreen::vncPlatform()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost))
        QSKIP("no free port");
    const quint16 port = probe.serverPort();
    probe.close();
    KeypadOptions options = window("red");
    options.display.kind = KeypadDisplay::Vnc;
    options.display.port = port;
    VirtualKeypad keypad(options);
    QVERIFY(keypad.start());
    if (!keypad.waitForLog("shown", 20000))
        QSKIP("this Qt has no VNC platform");
    QTcpSocket viewer;
    QTRY_VERIFY_WITH_TIMEOUT((viewer.abort(), viewer.connectToHost(QHostAddress::LocalHost, port),
                              viewer.waitForConnected(1000)),
                             20000);
    QVERIFY(viewer.waitForReadyRead(10000));
    QVERIFY(viewer.readAll().startsWith("RFB 003."));
}

MFTOOL_TEST(TestScreen, EventLoop)
#include "tst_screen.moc"
