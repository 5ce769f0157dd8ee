#include "app/mftool.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QPixmap>
#include <QResizeEvent>
#include <QTimer>
#include <QtDebug>

#include "compat/qtcompat.h"
#include "hardware/indicators.h"
#include "hardware/testimage.h"
#include "protocol/testproto.h"

namespace
{

/// On a screen no higher than this there is no room for the corner targets.
const int shortScreen = 400;

/// @return the picture in @p path, null when there is none. Not through the
///         pixmap cache, which would miss a file replaced within a second; and
///         no pipe or device, which would block the screen.
QPixmap loadPicture(const QString &path)
{
    if (!QFileInfo(path).isFile())
        return QPixmap();
    return QPixmap::fromImage(QImage(path));
}

} // namespace

mftool::mftool(QWidget *parent) : QWidget(parent), buzzerFile(0), m_proto(0), patternLabel(0)
{
    ui.setupUi(this);
    m_progress << ui.m_progBoot << ui.m_progScan << ui.m_progFlash << ui.m_progFormat;

    openBuzzer();
    setLeds(true);
    createProtocol();
    setLCDTestPattern(QLatin1String("tarnwick.png"));
    QTimer::singleShot(0, m_proto, SLOT(sendReady()));
}

mftool::~mftool() {}

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
    connect(m_proto, SIGNAL(setLCDTestPattern(QString)), SLOT(setLCDTestPattern(QString)));
    connect(m_proto, SIGNAL(setHomeLed(uint)), SLOT(setHomeLed(uint)));
    connect(this, SIGNAL(sendReadSdCardResp(QString)), m_proto, SLOT(sendReadSdCardResp(QString)));
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
    const QPixmap picture = loadPicture(path);
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
    patternLabel = 0;
}

void mftool::showTestPattern(const QPixmap &picture)
{
    if (!patternLabel) {
        patternLabel = new QLabel(this);
        patternLabel->setGeometry(0, 0, width(), height());
        patternLabel->setAlignment(Qt::AlignCenter);
    }
    patternLabel->setPixmap(picture);
    patternLabel->show();
}
