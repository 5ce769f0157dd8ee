#include "app/mftool.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMouseEvent>
#include <QPixmap>
#include <QResizeEvent>
#include <QTimer>
#include <QtDebug>

#include "app/fullscreen.h"
#include "app/passthroughspeed.h"
#include "app/picturefile.h"
#include "calibration/calibrate.h"
#include "calibration/pointerdriver.h"
#include "compat/qtcompat.h"
#include "flash/bootstream.h"
#include "flash/mount.h"
#include "flash/rootfs.h"
#include "flash/ubiattach.h"
#include "flash/updatedir.h"
#include "hardware/buttons.h"
#include "hardware/indicators.h"
#include "hardware/readings.h"
#include "hardware/sdcardtest.h"
#include "hardware/tamper.h"
#include "hardware/testimage.h"
#include "protocol/replydata.h"
#include "protocol/testproto.h"
#include "serial/qtserialport.h"

namespace
{

/// On a screen no higher than this there is no room for the corner targets.
const int shortScreen = 400;

/// The kernel needs a moment between attaching the volume and mounting it.
const int mountDelay = 2000; // ms

const int flashPage = 1; // of m_stk; the start button is on the other one

enum ButtonMask { HomeDown = 1, TamperActive = 2 };

} // namespace

mftool::mftool(QWidget *parent, const Board &board)
    : QWidget(parent), m_stage(0), m_percent(0), buzzerFile(nullptr), m_proto(nullptr),
      patternLabel(nullptr), m_calibrate(nullptr), m_tsTest(false), m_passthroughPort(nullptr),
      m_passthrough(false), m_bootStream(nullptr), m_sendStatus(false), m_flashing(false),
      m_attach(nullptr), m_mounted(false), m_buttons(nullptr), m_rootFS(nullptr),
      m_pointer(nullptr), m_board(board)
{
    ui.setupUi(this);
    m_progress << ui.m_progBoot << ui.m_progScan << ui.m_progFlash << ui.m_progFormat;

    createFlashSteps();
    openBuzzer();
    setLeds(true);
    m_buttons = new Buttons(this, m_board);
    connect(m_buttons, SIGNAL(home(bool)), SLOT(buzzer(bool)));
    createProtocol();
    openPassthrough();
    // Answered like every test image, although nobody asked: stations know the reply.
    setLCDTestPattern(QLatin1String("tarnwick.png"));
    connect(ui.m_btnStart, SIGNAL(clicked()), SLOT(startFlash()));
    QTimer::singleShot(0, m_proto, SLOT(sendReady()));
    createMountSteps();
    m_pointer = PointerDriver::create(this);
}

mftool::~mftool() {}

void mftool::createFlashSteps()
{
    m_bootStream = new BootStream(this);
    m_rootFS = new RootFS(this);
    connect(m_bootStream, SIGNAL(status(int)), SLOT(status(int)));
    // The stage must have moved on before the second tool starts.
    connect(m_bootStream, SIGNAL(complete()), SLOT(next()));
    connect(m_bootStream, SIGNAL(complete()), m_rootFS, SLOT(start()));
    connect(m_bootStream, SIGNAL(failed(QString)), SLOT(failed(QString)));
    connect(m_rootFS, SIGNAL(status(int)), SLOT(status(int)));
    connect(m_rootFS, SIGNAL(complete()), SLOT(next()));
    connect(m_rootFS, SIGNAL(next()), SLOT(next()));
    connect(m_rootFS, SIGNAL(failed(QString)), SLOT(failed(QString)));
}

void mftool::openBuzzer()
{
    buzzerFile = new QFile(m_board.path(Board::Buzzer), this);
    // Unbuffered: each text is one store, and a refused one is not stored again later.
    if (!buzzerFile->open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        qWarning("Failed to open buzzer file");
}

void mftool::createProtocol()
{
    m_proto = new TestProto(this, m_board);
    connect(m_proto, SIGNAL(testExit()), SLOT(testExit()));
    connect(m_proto, SIGNAL(setBacklight(uint)), SLOT(setBacklight(uint)));
    connect(m_proto, SIGNAL(setBiasPower(uint)), SLOT(setBiasPower(uint)));
    connect(m_proto, SIGNAL(setLeds(uint)), SLOT(setLeds(uint)));
    connect(m_proto, SIGNAL(setBuzzer(uint)), SLOT(setBuzzer(uint)));
    connect(m_proto, SIGNAL(readSdCard(int, int)), SLOT(readSdCard(int, int)));
    connect(m_proto, SIGNAL(setLCDTestPattern(QString)), SLOT(setLCDTestPattern(QString)));
    connect(m_proto, SIGNAL(setHomeLed(uint)), SLOT(setHomeLed(uint)));
    connect(m_proto, SIGNAL(setCalibrate(bool)), SLOT(setCalibrate(bool)));
    connect(m_proto, SIGNAL(tsTestEnable(bool)), SLOT(tsTestEnable(bool)));
    connect(m_proto, SIGNAL(passthroughEnable(bool)), SLOT(passthroughEnable(bool)));
    connect(m_proto, SIGNAL(passthrough(QByteArray)), SLOT(passthrough(QByteArray)));
    connect(m_proto, SIGNAL(flashStart(bool, QString)), SLOT(startFlash(bool, QString)));
    connect(m_proto, SIGNAL(flashQuery()), SLOT(flashQuery()));
    connect(m_proto, SIGNAL(mountStart()), SLOT(doMount()));
    connect(m_proto, SIGNAL(buttonRequest()), SLOT(buttonRequest()));
    connect(m_proto, SIGNAL(readVoltage()), SLOT(readVoltage()));
    connect(m_proto, SIGNAL(getVersion()), SLOT(getVersion()));
    connect(this, SIGNAL(sendReadSdCardResp(QString)), m_proto, SLOT(sendReadSdCardResp(QString)));
}

void mftool::openPassthrough()
{
    m_passthroughPort = new QtSerialPort(m_board.path(Board::TestLine), this);
    m_passthroughPort->baudRate = passthroughSpeed(QCoreApplication::arguments());
    m_passthroughPort->dataBits = 8;
    m_passthroughPort->parity = 0;
    m_passthroughPort->stopBits = 1;
    if (!m_passthroughPort->open(QIODevice::ReadWrite)) {
        qWarning("Failed to open QB740 serial port");
        return;
    }
    connect(m_passthroughPort, SIGNAL(readyRead()), SLOT(readQB740()));
}

void mftool::createMountSteps()
{
    m_attach = new UBIAttach(this);
    Mount *mount = new Mount(this);
    QTimer *delay = new QTimer(this);
    delay->setSingleShot(true);
    delay->setInterval(mountDelay);
    makePrecise(delay);
    connect(m_attach, SIGNAL(complete()), delay, SLOT(start()));
    connect(m_attach, SIGNAL(failed(QString)), SLOT(mountFailed(QString)));
    connect(delay, SIGNAL(timeout()), mount, SLOT(start()));
    connect(mount, SIGNAL(complete()), SLOT(mountComplete()));
    connect(mount, SIGNAL(failed(QString)), SLOT(mountFailed(QString)));
}

void mftool::mousePressEvent(QMouseEvent *event)
{
    if (m_tsTest) {
        m_proto->tsCoords(event->pos());
        return;
    }
    QWidget::mousePressEvent(event);
}

void mftool::resizeEvent(QResizeEvent *event)
{
    const bool tall = event->size().height() > shortScreen;
    ui.m_topChk->setVisible(tall);
    ui.m_bottomChk->setVisible(tall);
    QWidget::resizeEvent(event);
}

void mftool::testExit()
{
    quitApplication();
}

// Indicators

void mftool::buzzer(bool on)
{
    soundBuzzer(buzzerFile, on);
}

void mftool::setLeds(bool on)
{
    setAllLeds(m_board, on);
}

void mftool::setBacklight(uint level)
{
    ::setBacklight(m_board, level);
}

void mftool::setBiasPower(uint level)
{
    ::setBiasPower(m_board, level);
}

void mftool::setLeds(uint mask)
{
    setStatusLeds(m_board, mask);
}

void mftool::setBuzzer(uint level)
{
    setBuzzerLevel(m_board, level);
}

void mftool::setHomeLed(uint level)
{
    setHomeLedLevel(m_board, level);
}

void mftool::setLCDTestPattern(QString fileName)
{
    if (fileName.isEmpty()) {
        removeTestPattern();
        return;
    }
    const QString path = findTestImage(m_board.path(Board::TestImages), fileName);
    qDebug("Using test pattern '%s'", qPrintable(path));
    // Not through the pixmap cache, which would miss a file replaced within a second.
    const QPixmap picture = QPixmap::fromImage(loadPicture(path));
    if (picture.isNull()) {
        qWarning("Failed to open test pattern file");
        m_proto->sendNak();
        return;
    }
    showTestPattern(picture);
    m_proto->sendAck();
}

void mftool::removeTestPattern()
{
    delete patternLabel;
    patternLabel = nullptr;
}

void mftool::showTestPattern(const QPixmap &picture)
{
    if (!patternLabel) {
        setCalibrate(false);
        patternLabel = new QLabel(this);
        patternLabel->setGeometry(0, 0, width(), height());
        patternLabel->setAlignment(Qt::AlignCenter);
    }
    patternLabel->setPixmap(picture);
    patternLabel->show();
}

// SD card, buttons and readings

void mftool::readSdCard(int timeout, int portNum)
{
    qDebug("In ATE Mode--->, command 0X6161: readSdCard started");
    int status = SdCardGood;
    int values[10] = {};
    const QString mountPath = m_proto->sdCardMountPath();
    if (mountPath.isEmpty()) {
        qDebug("SD Detection and/or mount is not confirmed, we cannot continue readSdCardread");
        status = SdCardMissing;
    } else {
        qDebug("SD Detectiona and mount is confirmed in %s", qPrintable(mountPath));
        readSdCardTest(status, values);
    }
    emit sendReadSdCardResp(sdCardResponse(timeout, portNum, status, values));
}

qint64 mftool::readSdCardTest(int &status, int (&values)[10])
{
    return sdCardTest(m_proto->sdCardMountPath(), status, values);
}

void mftool::buttonRequest()
{
    uint mask = m_buttons->homeDown() ? HomeDown : 0;
    if (readTamper(*m_buttons, m_board))
        mask |= TamperActive;
    m_proto->sendButtons(mask);
}

void mftool::readVoltage()
{
    m_proto->sendVoltage(::readVoltage(m_board));
}

void mftool::getVersion()
{
    QString version;
    if (readVersion(m_board, m_mounted, &version))
        m_proto->sendVersion(version);
}

// Touchscreen test

void mftool::tsTestEnable(bool enable)
{
    qDebug("Touchscreen test -- %s", enable ? "enabled" : "disabled");
    if (enable)
        grabMouse();
    else
        releaseMouse();
    m_tsTest = enable;
    // The touch test took the grab away from the calibration dialog.
    if (!enable && m_calibrate)
        m_calibrate->grabMouse();
}

// Calibration

void mftool::setCalibrate(bool enable)
{
    if (enable)
        openCalibration();
    else
        closeCalibration();
}

void mftool::openCalibration()
{
    if (!m_calibrate) {
        setLCDTestPattern(QString());
        m_calibrate = new Calibrate(this, m_pointer);
        connect(m_calibrate, SIGNAL(calibratePoint(int, QPoint)), m_proto,
                SLOT(calibrateResult(int, QPoint)));
        connect(m_calibrate, SIGNAL(finished(bool)), m_proto, SLOT(calibrateFinished(bool)));
        connect(m_calibrate, SIGNAL(beep(bool)), SLOT(buzzer(bool)));
        showOnWholeScreen(m_calibrate);
    }
    m_calibrate->restart(0);
}

void mftool::closeCalibration()
{
    if (!m_calibrate)
        return;
    m_calibrate->hide(); // hands the calibration to the pointer driver
    if (!m_mounted)
        qWarning("NAND not mounted, calibration will only be saved to SD");
    delete m_calibrate;
    m_calibrate = nullptr;
    // The dialog took the grab away from the touch test.
    if (m_tsTest)
        grabMouse();
}

// Passthrough

void mftool::passthroughEnable(bool enable)
{
    qDebug("QB740 passthrough -- %s", enable ? "enabled" : "disabled");
    m_passthrough = enable;
}

void mftool::passthrough(QByteArray bytes)
{
    if (!m_passthrough || !m_passthroughPort->isOpen())
        return;
    m_passthroughPort->write(bytes);
    m_passthroughPort->write("\r\n");
}

// Nothing emits the signal today, since the port only writes. This is for one that also
// reads.
void mftool::readQB740()
{
    while (m_passthroughPort->canReadLine()) {
        const QByteArray line = m_passthroughPort->readLine();
        // Lines that come while passthrough is off are lost, not kept for later.
        if (m_passthrough)
            m_proto->passthroughReply(line.trimmed());
    }
}

// Flashing

void mftool::startFlash(bool sendStatus, QString dir)
{
    if (m_flashing) {
        qDebug("Flash already in progress");
        return;
    }
    m_flashing = true;
    ui.m_stk->setCurrentIndex(flashPage);
    m_sendStatus = sendStatus;

    const QString updateDir = chooseUpdateDir(m_board.path(Board::UpdateBase), dir);
    qDebug("Using firmware update dir '%s'", qPrintable(updateDir));
    m_bootStream->m_dir = updateDir;
    m_rootFS->m_dir = updateDir;

    m_stage = 0;
    m_percent = 0;
    for (int i = 0; i < m_progress.size(); ++i)
        m_progress.at(i)->setValue(0);
    ui.m_lblStatus->setText(QLatin1String("Flashing..."));
    m_bootStream->run();
}

void mftool::startFlash(bool sendStatus)
{
    startFlash(sendStatus, QString());
}

void mftool::startFlash()
{
    startFlash(false, QString());
}

void mftool::status(int percent)
{
    m_percent = percent;
    m_progress.at(m_stage)->setValue(percent);
    if (m_sendStatus)
        m_proto->flashStatus(m_stage, m_percent);
}

void mftool::next()
{
    if (m_stage < m_progress.size() - 1) {
        ++m_stage;
        return;
    }
    ui.m_lblStatus->setText(QLatin1String("Complete!"));
    m_flashing = false;
    m_proto->flashComplete(true);
}

void mftool::failed(QString err)
{
    ui.m_lblStatus->setText(QLatin1String("Failed: ") + err);
    m_flashing = false;
    m_proto->flashComplete(false);
}

void mftool::flashQuery()
{
    if (m_flashing)
        m_proto->flashStatus(m_stage, m_percent);
    else
        m_proto->sendNA();
}

// Mounting

void mftool::doMount()
{
    if (!m_mounted)
        m_attach->run();
}

void mftool::mountFailed(QString)
{
    m_proto->mountComplete(false);
}

void mftool::mountComplete()
{
    if (!QFileInfo(m_board.path(Board::MountedEtc)).isDir()) {
        qDebug("Mount appears to have failed, or there is nothing to mount");
        m_proto->mountComplete(false);
        return;
    }
    m_proto->mountComplete(true);
    m_mounted = true;
    // From now on the touchscreen library and pointer driver use the file on the NAND.
    const QByteArray pointercal = QFile::encodeName(m_board.path(Board::MountedPointercal));
    qputenv("POINTERCAL_FILE", pointercal);
    qputenv("TSLIB_CALIBFILE", pointercal);
}
