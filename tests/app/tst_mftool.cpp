// The main widget on a folder that plays the board and a pseudo terminal that
// plays the line: the screen, the order of things, and the slots that need no
// real kernel behind them.
#include "app/mftool.h"

#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QTranslator>
#include <QtTest>

#include <algorithm>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "calibration/calibrate.h"
#include "flash/bootstream.h"
#include "flash/mount.h"
#include "flash/rootfs.h"
#include "flash/ubiattach.h"
#include "hardware/buttons.h"
#include "protocol/testproto.h"
#include "serial/qtserialport.h"
#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/ptyline.h"
#include "tests/support/testprogram.h"

namespace
{

const char *const ack = "7E000A00043102957F\r\n";
const char *const nak = "7E000A00053202977F\r\n";
const char *const ready = "7E000A99995102B77F\r\n";

/// Which signal goes to which slot. The names are those of the widget's fields.
const struct Connection {
    const char *sender;
    const char *signal;
    const char *receiver;
    const char *slot;
} connections[] = {
    {"m_bootStream", SIGNAL(status(int)), "mftool", SLOT(status(int))},
    {"m_bootStream", SIGNAL(complete()), "mftool", SLOT(next())},
    {"m_bootStream", SIGNAL(complete()), "m_rootFS", SLOT(start())},
    {"m_bootStream", SIGNAL(failed(QString)), "mftool", SLOT(failed(QString))},
    {"m_rootFS", SIGNAL(status(int)), "mftool", SLOT(status(int))},
    {"m_rootFS", SIGNAL(complete()), "mftool", SLOT(next())},
    {"m_rootFS", SIGNAL(next()), "mftool", SLOT(next())},
    {"m_rootFS", SIGNAL(failed(QString)), "mftool", SLOT(failed(QString))},
    {"m_buttons", SIGNAL(home(bool)), "mftool", SLOT(buzzer(bool))},
    {"m_proto", SIGNAL(testExit()), "mftool", SLOT(testExit())},
    {"m_proto", SIGNAL(setBacklight(uint)), "mftool", SLOT(setBacklight(uint))},
    {"m_proto", SIGNAL(setBiasPower(uint)), "mftool", SLOT(setBiasPower(uint))},
    {"m_proto", SIGNAL(setLeds(uint)), "mftool", SLOT(setLeds(uint))},
    {"m_proto", SIGNAL(setBuzzer(uint)), "mftool", SLOT(setBuzzer(uint))},
    {"m_proto", SIGNAL(readSdCard(int, int)), "mftool", SLOT(readSdCard(int, int))},
    {"m_proto", SIGNAL(setLCDTestPattern(QString)), "mftool", SLOT(setLCDTestPattern(QString))},
    {"m_proto", SIGNAL(setHomeLed(uint)), "mftool", SLOT(setHomeLed(uint))},
    {"m_proto", SIGNAL(setCalibrate(bool)), "mftool", SLOT(setCalibrate(bool))},
    {"m_proto", SIGNAL(tsTestEnable(bool)), "mftool", SLOT(tsTestEnable(bool))},
    {"m_proto", SIGNAL(passthroughEnable(bool)), "mftool", SLOT(passthroughEnable(bool))},
    {"m_proto", SIGNAL(passthrough(QByteArray)), "mftool", SLOT(passthrough(QByteArray))},
    {"m_proto", SIGNAL(flashStart(bool, QString)), "mftool", SLOT(startFlash(bool, QString))},
    {"m_proto", SIGNAL(flashQuery()), "mftool", SLOT(flashQuery())},
    {"m_proto", SIGNAL(mountStart()), "mftool", SLOT(doMount())},
    {"m_proto", SIGNAL(buttonRequest()), "mftool", SLOT(buttonRequest())},
    {"m_proto", SIGNAL(readVoltage()), "mftool", SLOT(readVoltage())},
    {"m_proto", SIGNAL(getVersion()), "mftool", SLOT(getVersion())},
    {"mftool", SIGNAL(sendReadSdCardResp(QString)), "m_proto", SLOT(sendReadSdCardResp(QString))},
    {"m_passthroughPort", SIGNAL(readyRead()), "mftool", SLOT(readQB740())},
    {"m_btnStart", SIGNAL(clicked()), "mftool", SLOT(startFlash())},
    {"m_attach", SIGNAL(complete()), "m_mountDelay", SLOT(start())},
    {"m_attach", SIGNAL(failed(QString)), "mftool", SLOT(mountFailed(QString))},
    {"m_mountDelay", SIGNAL(timeout()), "m_mount", SLOT(start())},
    {"m_mount", SIGNAL(complete()), "mftool", SLOT(mountComplete())},
    {"m_mount", SIGNAL(failed(QString)), "mftool", SLOT(mountFailed(QString))},
    // While a calibration is under way.
    {"m_calibrate", SIGNAL(calibratePoint(int, QPoint)), "m_proto",
     SLOT(calibrateResult(int, QPoint))},
    {"m_calibrate", SIGNAL(finished(bool)), "m_proto", SLOT(calibrateFinished(bool))},
    {"m_calibrate", SIGNAL(beep(bool)), "mftool", SLOT(buzzer(bool))},
};

/// Puts the context of each of the screen's texts before it.
class ContextTranslator : public QTranslator
{
public:
    QString translate(const char *context, const char *sourceText, const char *, int) const override
    {
        const bool ours = qstrcmp(context, "mftoolClass") == 0;
        return ours ? QString("mftoolClass: ") + QString::fromUtf8(sourceText) : QString();
    }
    bool isEmpty() const override { return false; }
};

} // namespace

class TestMftool : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void metaObjectOrder();
    void logoReplyComesBeforeReady();
    void missingLogoIsRefusedBeforeReady();
    void missingEverythingStopsNothing();
    void ledsAreLitAtStart();
    void ledsAreLitBeforeTheLineIsOpened();

    void wiring();
    void everyRequestIsWired();
    void moduleIsHeardOnlyWhereItsPortIsOpen_data();
    void moduleIsHeardOnlyWhereItsPortIsOpen();

    void objectNames();
    void cornerTargets();
    void styleSheets();
    void textsCanBeTranslated();
    void nothingIsConnectedByName();
    void startState();
    void shortScreenHidesTheCorners_data();
    void shortScreenHidesTheCorners();
    void stackingOrder();

    void laterPictureUsesTheSameLabel();
    void emptyNameRemovesThePicture();

    void touchTestReportsPresses();
    void withoutTouchTestPressesAreTheWidgets();
    void touchTestAndCalibrationTakeTurns();
    void pictureEndsTheCalibration();
    void homeKeyAndTamperTogether();
    void passthroughWritesAheadOfTheAck();
    void passthroughOffDropsSilently();
    void closedPassthroughPortDropsSilently();
    void relayedLines();
    void relayedLinesAreLostWhileOff();

    void flashQueryWhileIdleIsNotApplicable();
    void mountDelayIsNeverShort();
    void mountWithoutEtcFails();
    void mountPointsTheTouchscreenAtTheNand();

private:
    void start();
    void call(const char *slot) { QVERIFY(QMetaObject::invokeMethod(m_widget.get(), slot)); }
    template<typename T> void call(const char *slot, const char *type, const T &value)
    {
        QVERIFY(QMetaObject::invokeMethod(m_widget.get(), slot, QGenericArgument(type, &value)));
    }
    template<typename T> T *find(const char *name) { return m_widget->findChild<T *>(name); }
    QLabel *patternLabel();
    QObject *object(const QString &name);
    void writePicture(const QString &path, const QSize &size, QColor color);

    std::unique_ptr<BoardFolder> m_folder;
    std::unique_ptr<PtyLine> m_line;
    std::unique_ptr<LogCatcher> m_log;
    std::unique_ptr<mftool> m_widget;
};

void TestMftool::init()
{
    m_folder = std::make_unique<BoardFolder>();
    m_line = std::make_unique<PtyLine>();
    m_log = std::make_unique<LogCatcher>();
    m_folder->link("/dev/ttySP0", m_line->path());
    m_folder->makeFolder("/tmp");
    for (const char *led : {"ready", "armed", "trouble", "ac", "home", "buzzer"})
        m_folder->write(QString("/sys/class/leds/%1/brightness").arg(led), "-");
    writePicture("/home/default/tarnwick.png", QSize(800, 480), Qt::blue);
}

void TestMftool::cleanup()
{
    m_widget.reset();
    m_log.reset();
    m_line.reset();
    m_folder.reset();
    qunsetenv("POINTERCAL_FILE");
    qunsetenv("TSLIB_CALIBFILE");
}

void TestMftool::start()
{
    m_widget = std::make_unique<mftool>(nullptr, m_folder->board());
    m_widget->resize(800, 480);
    m_widget->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_widget.get()));
    QTRY_VERIFY(m_line->received().endsWith(ready));
    m_line->clear();
    // The last that comes from the card's thread.
    QTRY_VERIFY(m_log->has("debug: In ATE Mode--->, Waiting for SD event"));
}

QLabel *TestMftool::patternLabel()
{
    const QList<QLabel *> labels =
        m_widget->findChildren<QLabel *>(QString(), Qt::FindDirectChildrenOnly);
    return labels.isEmpty() ? nullptr : labels.first();
}

/// The object that is behind a field of the widget.
QObject *TestMftool::object(const QString &name)
{
    if (name == "mftool")
        return m_widget.get();
    if (name == "m_bootStream")
        return m_widget->findChild<BootStream *>();
    if (name == "m_rootFS")
        return m_widget->findChild<RootFS *>();
    if (name == "m_buttons")
        return m_widget->findChild<Buttons *>();
    if (name == "m_proto")
        return m_widget->findChild<TestProto *>();
    if (name == "m_passthroughPort")
        return m_widget->findChild<QtSerialPort *>();
    if (name == "m_attach")
        return m_widget->findChild<UBIAttach *>();
    if (name == "m_mountDelay")
        return m_widget->findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    if (name == "m_mount")
        return m_widget->findChild<Mount *>();
    if (name == "m_calibrate")
        return m_widget->findChild<Calibrate *>();
    return m_widget->findChild<QObject *>(name);
}

void TestMftool::writePicture(const QString &path, const QSize &size, QColor color)
{
    m_folder->makeFolder("/home/default");
    QImage image(size, QImage::Format_RGB32);
    image.fill(color);
    QVERIFY(image.save(m_folder->at(path), "PNG"));
}

void TestMftool::metaObjectOrder()
{
    const QByteArrayList expected = {
        "sendReadSdCardResp(QString)",
        "next()",
        "status(int)",
        "failed(QString)",
        "buzzer(bool)",
        "setLeds(bool)",
        "testExit()",
        "setBacklight(uint)",
        "setBiasPower(uint)",
        "setLeds(uint)",
        "setBuzzer(uint)",
        "readSdCard(int,int)",
        "setLCDTestPattern(QString)",
        "setHomeLed(uint)",
        "setCalibrate(bool)",
        "tsTestEnable(bool)",
        "passthroughEnable(bool)",
        "passthrough(QByteArray)",
        "readQB740()",
        "startFlash(bool,QString)",
        "startFlash(bool)",
        "startFlash()",
        "flashQuery()",
        "doMount()",
        "mountFailed(QString)",
        "mountComplete()",
        "buttonRequest()",
        "readVoltage()",
        "getVersion()",
    };
    QByteArrayList found;
    const QMetaObject &meta = mftool::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        found << meta.method(i).methodSignature();
    QCOMPARE(found, expected);
}

void TestMftool::logoReplyComesBeforeReady()
{
    m_widget = std::make_unique<mftool>(nullptr, m_folder->board());
    QCOMPARE(m_line->received(), QByteArray(ack)); // the ready message waits for the event loop
    QTRY_COMPARE(m_line->received(), QByteArray(ack) + ready);
    QVERIFY(m_log->has("debug: Using test pattern '" + m_folder->at("/home/default/tarnwick.png") +
                       "'"));
}

void TestMftool::missingLogoIsRefusedBeforeReady()
{
    m_folder->remove("/home/default/tarnwick.png");
    m_widget = std::make_unique<mftool>(nullptr, m_folder->board());
    QTRY_COMPARE(m_line->received(), QByteArray(nak) + ready);
    QVERIFY(m_log->has("warning: Failed to open test pattern file"));
    QVERIFY(!patternLabel());
}

void TestMftool::missingEverythingStopsNothing()
{
    BoardFolder empty;
    m_widget = std::make_unique<mftool>(nullptr, empty.board());
    QVERIFY(m_log->has("warning: Failed to open buzzer file"));
    QVERIFY(m_log->has("debug: Failed to open " + empty.at("/dev/ttySP0")));
    QVERIFY(m_log->has("warning: Failed to open QB740 serial port"));
    QVERIFY(m_log->has("warning: Failed to open " + empty.at("/dev/input/event0")));
    QVERIFY(m_log->has("warning: Failed to open test pattern file"));
    call("buzzer", "bool", true); // inert
    QVERIFY(!empty.exists("/sys"));
}

void TestMftool::ledsAreLitAtStart()
{
    start();
    QCOMPARE(m_folder->read("/sys/class/leds/ready/brightness"), QByteArray("255"));
    QCOMPARE(m_folder->read("/sys/class/leds/home/brightness"), QByteArray("255"));
    QCOMPARE(m_folder->read("/sys/class/leds/buzzer/brightness"), QByteArray());
}

void TestMftool::ledsAreLitBeforeTheLineIsOpened()
{
    m_folder->makeFolder("/sys/class/leds/odd/brightness"); // cannot be opened, so it is logged
    start();
    const QStringList lines = m_log->lines();
    const auto led = lines.indexOf("warning: Failed to open led file '" +
                                   m_folder->at("/sys/class/leds/odd/brightness") + "'");
    const auto line = lines.indexOf("debug: In ATE Mode --->, ATE 15 sec Timer started:");
    QVERIFY(led >= 0);
    QVERIFY(line > led);
}

/// Each of these connections exists, and no other from the same signals.
void TestMftool::wiring()
{
    start();
    call("setCalibrate", "bool", true);
    QStringList missing;
    for (const Connection &connection : connections) {
        QObject *sender = object(connection.sender);
        QObject *receiver = object(connection.receiver);
        QVERIFY2(sender && receiver, connection.sender);
        if (!QObject::disconnect(sender, connection.signal, receiver, connection.slot))
            missing << QString("%1 %2").arg(connection.sender, connection.signal + 1);
    }
    QCOMPARE(missing, QStringList());
    QStringList unexpected;
    for (const Connection &connection : connections) {
        if (QObject::disconnect(object(connection.sender), connection.signal, nullptr, nullptr))
            unexpected << QString("%1 %2").arg(connection.sender, connection.signal + 1);
    }
    QCOMPARE(unexpected, QStringList());
}

/// Every request of the station has a receiver.
void TestMftool::everyRequestIsWired()
{
    QByteArrayList wired;
    for (const Connection &connection : connections) {
        if (qstrcmp(connection.sender, "m_proto") == 0)
            wired << QMetaObject::normalizedSignature(connection.signal + 1);
    }
    QByteArrayList raised;
    const QMetaObject &meta = TestProto::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            raised << meta.method(i).methodSignature();
    }
    std::sort(wired.begin(), wired.end());
    std::sort(raised.begin(), raised.end());
    QCOMPARE(wired, raised);
}

void TestMftool::moduleIsHeardOnlyWhereItsPortIsOpen_data()
{
    QTest::addColumn<bool>("line");
    QTest::newRow("open") << true;
    QTest::newRow("not to be opened") << false;
}

void TestMftool::moduleIsHeardOnlyWhereItsPortIsOpen()
{
    QFETCH(bool, line);
    if (!line)
        m_folder->remove("/dev/ttySP0");
    m_widget = std::make_unique<mftool>(nullptr, m_folder->board());
    QtSerialPort *port = m_widget->findChild<QtSerialPort *>();
    QCOMPARE(port->isOpen(), line);
    QCOMPARE(m_log->has("warning: Failed to open QB740 serial port"), !line);
    QCOMPARE(QObject::disconnect(port, SIGNAL(readyRead()), m_widget.get(), SLOT(readQB740())),
             line);
}

void TestMftool::objectNames()
{
    start();
    QCOMPARE(m_widget->objectName(), QString("mftoolClass"));
    const QByteArray widgets(
        "m_topChk widget_4 m_chkTL widget_5 m_chkTR widget_8 widget widget_2 widget_3 m_stk "
        "stackedWidget_4Page1 m_btnStart page_3 m_lblStatus widget_9 label m_progBoot label_2 "
        "m_progScan label_3 m_progFlash label_4 m_progFormat m_bottomChk widget_6 m_chkBL "
        "widget_7 m_chkBR");
    const QByteArray layouts("verticalLayout_2 horizontalLayout_4 verticalLayout horizontalLayout "
                             "horizontalLayout_2 gridLayout horizontalLayout_3");
    for (const QByteArray &name : widgets.split(' '))
        QVERIFY2(find<QWidget>(name.constData()), name.constData());
    for (const QByteArray &name : layouts.split(' '))
        QVERIFY2(find<QLayout>(name.constData()), name.constData());
}

/// To the pixel; everything else is measured on a picture of the whole tool's screen.
void TestMftool::cornerTargets()
{
    start();
    const auto place = [this](const char *name) {
        const QWidget *box = find<QCheckBox>(name);
        return QRect(box->mapTo(m_widget.get(), QPoint(0, 0)), box->size());
    };
    QCOMPARE(place("m_chkTL"), QRect(20, 20, 22, 22));
    QCOMPARE(place("m_chkTR"), QRect(756, 20, 22, 22));
    QCOMPARE(place("m_chkBL"), QRect(20, 436, 22, 22));
    QCOMPARE(place("m_chkBR"), QRect(756, 436, 22, 22));
}

void TestMftool::styleSheets()
{
    start();
    const QString gradient("background-color: qlineargradient(x1: 0, y1: 0, x2: 1, y2: 0,\n"
                           "                                  stop: 0 #000000, stop: 1.0 %1);");
    QCOMPARE(m_widget->styleSheet(),
             QString("#mftoolClass {\n\tbackground-color: white;\n}\n\nQWidget\n{\n\tfont-size: "
                     "15px;\n}"));
    QCOMPARE(find<QWidget>("widget")->styleSheet(), gradient.arg("#0000FF"));
    QCOMPARE(find<QWidget>("widget_2")->styleSheet(), gradient.arg("#00FF00"));
    QCOMPARE(find<QWidget>("widget_3")->styleSheet(), gradient.arg("#FF0000"));
    QCOMPARE(find<QWidget>("m_btnStart")->styleSheet(), QString("font-size: 20px;"));
    QCOMPARE(find<QWidget>("m_lblStatus")->styleSheet(), QString("font-size: 30px;"));
}

void TestMftool::textsCanBeTranslated()
{
    ContextTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    start();
    QCOMPARE(m_widget->windowTitle(), QString("mftoolClass: mftool"));
    QCOMPARE(find<QPushButton>("m_btnStart")->text(), QString("mftoolClass: Flash NAND"));
    QCOMPARE(find<QLabel>("label")->text(), QString("mftoolClass: Boot Stream:"));
    QCOMPARE(find<QLabel>("label_2")->text(), QString("mftoolClass: Scanning:"));
    QCOMPARE(find<QLabel>("label_3")->text(), QString("mftoolClass: Flashing:"));
    QCOMPARE(find<QLabel>("label_4")->text(), QString("mftoolClass: Formatting:"));
    for (const char *box : {"m_chkTL", "m_chkTR", "m_chkBL", "m_chkBR"})
        QCOMPARE(find<QCheckBox>(box)->text(), QString());
}

/// No slot has a name that Qt would connect by itself, or complain about.
void TestMftool::nothingIsConnectedByName()
{
    start();
    QCOMPARE(m_log->lines().filter("connectSlotsByName"), QStringList());
    for (const char *box : {"m_chkTL", "m_chkTR", "m_chkBL", "m_chkBR"}) {
        for (const char *signal : {SIGNAL(toggled(bool)), SIGNAL(clicked(bool)), SIGNAL(pressed()),
                                   SIGNAL(released()), SIGNAL(stateChanged(int))})
            QVERIFY2(!QObject::disconnect(find<QCheckBox>(box), signal, nullptr, nullptr), box);
    }
}

void TestMftool::startState()
{
    start();
    QCOMPARE(find<QStackedWidget>("m_stk")->currentIndex(), 0);
    QCOMPARE(find<QLabel>("m_lblStatus")->text(), QString());
    for (const char *bar : {"m_progBoot", "m_progScan", "m_progFlash", "m_progFormat"}) {
        QCOMPARE(find<QProgressBar>(bar)->value(), 0);
        QCOMPARE(find<QProgressBar>(bar)->minimum(), 0);
        QCOMPARE(find<QProgressBar>(bar)->maximum(), 100);
        QCOMPARE(find<QProgressBar>(bar)->format(), QString("%p%"));
    }
    QVERIFY(patternLabel()); // the logo
}

void TestMftool::shortScreenHidesTheCorners_data()
{
    QTest::addColumn<int>("height");
    QTest::addColumn<bool>("shown");
    QTest::newRow("400") << 400 << false;
    QTest::newRow("401") << 401 << true;
    QTest::newRow("480") << 480 << true;
    QTest::newRow("300") << 300 << false;
}

void TestMftool::shortScreenHidesTheCorners()
{
    QFETCH(int, height);
    start();
    m_widget->resize(800, height == 480 ? 479 : 480);
    m_widget->resize(800, height);
    QTRY_COMPARE(m_widget->height(), height);
    QTEST(find<QWidget>("m_topChk")->isVisible(), "shown");
    QTEST(find<QWidget>("m_bottomChk")->isVisible(), "shown");
}

void TestMftool::stackingOrder()
{
    start();
    QStringList order;
    for (const QObject *child : m_widget->children()) {
        if (child->isWidgetType() && !child->objectName().isEmpty())
            order << child->objectName();
    }
    QCOMPARE(order, QStringList({"m_stk", "widget_8", "widget_9", "m_bottomChk", "m_topChk"}));
    QStringList bars;
    for (const QObject *child : find<QWidget>("widget_8")->children()) {
        if (child->isWidgetType())
            bars << child->objectName();
    }
    QCOMPARE(bars, QStringList({"widget_3", "widget", "widget_2"}));
}

void TestMftool::laterPictureUsesTheSameLabel()
{
    writePicture("/home/default/other.png", QSize(800, 480), Qt::red);
    start();
    const QLabel *label = patternLabel();
    call("setLCDTestPattern", "QString", QString("other"));
    QCOMPARE(patternLabel(), label);
    QCOMPARE(m_widget->grab().toImage().pixelColor(400, 240), QColor(Qt::red));
}

void TestMftool::emptyNameRemovesThePicture()
{
    start();
    call("setLCDTestPattern", "QString", QString());
    QVERIFY(!patternLabel());
    call("setLCDTestPattern", "QString", QString());
    QVERIFY(!patternLabel());
    QCOMPARE(m_line->received(), QByteArray());
}

void TestMftool::touchTestReportsPresses()
{
    start();
    call("setLCDTestPattern", "QString", QString());
    call("tsTestEnable", "bool", true);
    QVERIFY(m_log->has("debug: Touchscreen test -- enabled"));
    QCOMPARE(QWidget::mouseGrabber(), static_cast<QWidget *>(m_widget.get()));
    QTest::mousePress(m_widget->windowHandle(), Qt::LeftButton, {}, QPoint(7, 42));
    QCOMPARE(m_line->received(), QByteArray("7E0010703108007042039D7F\r\n"));
    QTest::mouseMove(m_widget->windowHandle(), QPoint(50, 50));
    QTest::mouseRelease(m_widget->windowHandle(), Qt::LeftButton, {}, QPoint(60, 60));
    QCOMPARE(m_line->received(), QByteArray("7E0010703108007042039D7F\r\n"));

    // Reported and accepted: QWidget would refuse a press that nobody wants.
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(7, 42),
                      m_widget->mapToGlobal(QPoint(7, 42)), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    press.accept();
    QCoreApplication::sendEvent(m_widget.get(), &press);
    QVERIFY(press.isAccepted());

    // On a check box: reported, not toggled.
    m_line->clear();
    QTest::mouseClick(m_widget->windowHandle(), Qt::LeftButton, {}, QPoint(30, 30));
    QVERIFY(!find<QCheckBox>("m_chkTL")->isChecked());
    QVERIFY(!m_line->received().isEmpty());

    call("tsTestEnable", "bool", false);
    QVERIFY(m_log->has("debug: Touchscreen test -- disabled"));
    QVERIFY(!QWidget::mouseGrabber());
}

void TestMftool::withoutTouchTestPressesAreTheWidgets()
{
    start();
    call("setLCDTestPattern", "QString", QString());
    QMouseEvent press(QEvent::MouseButtonPress, QPointF(5, 5), m_widget->mapToGlobal(QPoint(5, 5)),
                      Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    press.accept();
    QCoreApplication::sendEvent(m_widget.get(), &press);
    QVERIFY(!press.isAccepted()); // what QWidget does with a press nobody wants
    QTest::mouseClick(find<QCheckBox>("m_chkTL"), Qt::LeftButton, {}, QPoint(8, 11));
    QVERIFY(find<QCheckBox>("m_chkTL")->isChecked());
    QCOMPARE(m_line->received(), QByteArray());
}

/// The one that was started last gets the touches; when it ends, the other one does
/// again.
void TestMftool::touchTestAndCalibrationTakeTurns()
{
    start();
    call("setCalibrate", "bool", true);
    QWidget *const dialog = m_widget->findChild<Calibrate *>();
    QCOMPARE(QWidget::mouseGrabber(), dialog);
    call("tsTestEnable", "bool", true);
    QCOMPARE(QWidget::mouseGrabber(), static_cast<QWidget *>(m_widget.get()));
    call("tsTestEnable", "bool", false);
    QCOMPARE(QWidget::mouseGrabber(), dialog);
    call("tsTestEnable", "bool", true);
    call("setCalibrate", "bool", false);
    QCOMPARE(QWidget::mouseGrabber(), static_cast<QWidget *>(m_widget.get()));
    call("tsTestEnable", "bool", false);
}

void TestMftool::pictureEndsTheCalibration()
{
    start();
    call("setCalibrate", "bool", true);
    QVERIFY(m_widget->findChild<Calibrate *>());
    call("setLCDTestPattern", "QString", QString("tarnwick"));
    QVERIFY(!m_widget->findChild<Calibrate *>());
    QVERIFY(patternLabel());
}

void TestMftool::homeKeyAndTamperTogether()
{
    m_folder->write("/sys/class/gpio/gpio17/value", "0\n");
    m_folder->makeFolder("/dev/input");
    const QByteArray events = QFile::encodeName(m_folder->at("/dev/input/event0"));
    QCOMPARE(mkfifo(events.constData(), 0600), 0);
    const int key = open(events.constData(), O_RDWR | O_NONBLOCK);
    start();
    call("buttonRequest");
    QCOMPARE(m_line->received(), QByteArray("7E000C70713E0203387F\r\n"));
    m_line->clear();
    const char pressed[] = "\0\0\0\0\0\0\0\0\x01\0\x66\0\x01\0\0"; // with the last zero
    QCOMPARE(write(key, pressed, sizeof pressed), ssize_t(16));
    QTRY_VERIFY(m_widget->findChild<Buttons *>()->homeDown());
    close(key);
    call("buttonRequest");
    QCOMPARE(m_line->received(), QByteArray("7E000C70713E0303397F\r\n"));
}

void TestMftool::passthroughWritesAheadOfTheAck()
{
    start();
    call("passthroughEnable", "bool", true);
    QVERIFY(m_log->has("debug: QB740 passthrough -- enabled"));
    m_line->send("7E000D70411C\xE4\xFF\x80"
                 "04F37F\r\n");
    QTRY_COMPARE(m_line->received(), QByteArray("\xE4\xFF\x80\r\n") + ack);
}

void TestMftool::passthroughOffDropsSilently()
{
    start();
    call("passthrough", "QByteArray", QByteArray("AB"));
    QCOMPARE(m_line->received(), QByteArray());
    call("passthroughEnable", "bool", true);
    call("passthrough", "QByteArray", QByteArray("AB"));
    QCOMPARE(m_line->received(), QByteArray("AB\r\n"));
    call("passthroughEnable", "bool", false);
    QVERIFY(m_log->has("debug: QB740 passthrough -- disabled"));
    call("passthrough", "QByteArray", QByteArray("AB"));
    QCOMPARE(m_line->received(), QByteArray("AB\r\n"));
}

void TestMftool::closedPassthroughPortDropsSilently()
{
    start();
    call("passthroughEnable", "bool", true);
    m_widget->findChild<QtSerialPort *>()->close();
    m_log->clear();
    call("passthrough", "QByteArray", QByteArray("AB"));
    QCOMPARE(m_line->received(), QByteArray());
    QCOMPARE(m_log->lines(), QStringList());
}

void TestMftool::relayedLines()
{
    start();
    call("passthroughEnable", "bool", true);
    // The module's answer, taken by the port before the event loop gives it to the engine.
    m_line->send(" one \r\ntwo\r\nthr");
    QtSerialPort *port = m_widget->findChild<QtSerialPort *>();
    QVERIFY(QMetaObject::invokeMethod(port, "onRead"));
    QCOMPARE(m_line->received(), QByteArray("7E000D70423Done04167F\r\n"
                                            "7E000D70423Dtwo042E7F\r\n"));
    m_line->clear();
    m_line->send("ee\n");
    QVERIFY(QMetaObject::invokeMethod(port, "onRead"));
    QCOMPARE(m_line->received(), QByteArray("7E000F70423Fthree04F07F\r\n"));
}

void TestMftool::relayedLinesAreLostWhileOff()
{
    start();
    m_line->send("lost\r\n");
    QtSerialPort *port = m_widget->findChild<QtSerialPort *>();
    QVERIFY(QMetaObject::invokeMethod(port, "onRead"));
    call("passthroughEnable", "bool", true);
    m_line->send("kept\r\n");
    QVERIFY(QMetaObject::invokeMethod(port, "onRead"));
    QCOMPARE(m_line->received(), QByteArray("7E000E70423Ekept048A7F\r\n"));
}

void TestMftool::flashQueryWhileIdleIsNotApplicable()
{
    start();
    call("flashQuery");
    QCOMPARE(m_line->received(), QByteArray("7E000A00033002937F\r\n"));
}

void TestMftool::mountDelayIsNeverShort()
{
    start();
    const QList<QTimer *> timers =
        m_widget->findChildren<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(timers.size(), 1);
    QVERIFY(timers.first()->isSingleShot());
    QCOMPARE(timers.first()->interval(), 2000);
    // Any other may fire at 1900.
    QCOMPARE(timers.first()->timerType(), Qt::PreciseTimer);
}

void TestMftool::mountWithoutEtcFails()
{
    start();
    m_folder->write("/mnt/etc", "a file is no file system");
    call("mountComplete");
    QCOMPARE(m_line->received(), QByteArray("7E000C70613D0003347F\r\n"));
    QVERIFY(m_log->has("debug: Mount appears to have failed, or there is nothing to mount"));
    QVERIFY(!qEnvironmentVariableIsSet("POINTERCAL_FILE"));
}

void TestMftool::mountPointsTheTouchscreenAtTheNand()
{
    m_folder->write("/usr/lib/panel/version", "1.2\n");
    m_folder->write("/mnt/usr/lib/panel/version", "3.4\n");
    start();
    call("getVersion");
    QCOMPARE(m_line->received(),
             QByteArray("7E002C603D6E01021.2           000000000000000008BD7F\r\n"));
    m_line->clear();
    m_folder->makeFolder("/mnt/etc");
    call("mountComplete");
    QCOMPARE(m_line->received(), QByteArray("7E000C70613D0103357F\r\n"));
    QCOMPARE(qgetenv("POINTERCAL_FILE"), m_folder->at("/mnt/etc/pointercal").toUtf8());
    QCOMPARE(qgetenv("TSLIB_CALIBFILE"), m_folder->at("/mnt/etc/pointercal").toUtf8());
    m_line->clear();
    call("getVersion");
    QCOMPARE(m_line->received(),
             QByteArray("7E002C603D6E03043.4           000000000000000008C57F\r\n"));
    m_line->clear();
    call("doMount"); // already mounted: nothing at all
    QCOMPARE(m_line->received(), QByteArray());
    QVERIFY(!m_log->has("debug: Starting ubiattach"));
}

MFTOOL_TEST(TestMftool, Widgets)
#include "tst_mftool.moc"
