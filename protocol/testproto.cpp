#include "protocol/testproto.h"

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>
#include <QStringList>
#include <QTimer>
#include <QtDebug>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "compat/qtcompat.h"
#include "hardware/sdmon.h"
#include "hardware/sdpower.h"
#include "protocol/frame.h"
#include "protocol/quietline.h"
#include "protocol/replydata.h"

namespace
{

const int firstFrameWithin = 15000; // ms
const int nextFrameWithin = 600000; // ms

const int largestChunk = 1024;

/// A cooked line reports its end once for each end-of-file character. Only something that
/// is not a line, or has no other side, does so this often with nothing in between.
const int mostEndsInRow = 100;

/// The replies that carry data, and the ready message.
enum ReplyType {
    VersionReply = 0x603D,
    SdCardReply = 0x6162,
    CalibratePointReply = 0x7021,
    CalibrateFinishedReply = 0x7022,
    TouchReply = 0x7031,
    PassthroughReply = 0x7042,
    FlashStatusReply = 0x7051,
    FlashCompleteReply = 0x7052,
    MountCompleteReply = 0x7061,
    ButtonsReply = 0x7071,
    VoltageReply = 0x7081,
    ReadyMessage = 0x9999
};

/// Whether the other end of the line is gone.
bool lineHungUp(int fd)
{
    pollfd line = {fd, 0, 0};
    return poll(&line, 1, 0) > 0 && (line.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

/// A stream over the line that can be closed without closing the line.
FILE *openReplyStream(int line)
{
    const int copy = fcntl(line, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        return nullptr;
    FILE *stream = fdopen(copy, "w");
    if (!stream) {
        close(copy);
        return nullptr;
    }
    // What a buffer holds when its write fails would be lost.
    setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

/// Writes all of @p bytes even when a signal interrupts. On a kernel without process
/// descriptors QProcess learns from a signal that a flashing tool has ended, and an
/// interrupted write takes nothing or only a part.
void writeAll(FILE *stream, const QByteArray &bytes)
{
    const size_t size = static_cast<size_t>(bytes.size());
    size_t written = 0;
    while (written < size) {
        written += fwrite(bytes.constData() + written, 1, size - written, stream);
        if (written < size && errno != EINTR)
            return;
        clearerr(stream);
    }
}

} // namespace

TestProto::TestProto(QObject *parent, const Board &board)
    : QObject(parent), m_strictCheck(true), m_sdMon(new SDMon(this, board)), m_fd(-1),
      m_isUart(false), m_endsInRow(0), m_file(nullptr), m_ateTimer(nullptr), m_notifier(nullptr),
      m_board(board)
{
    setSdPower(m_board, true);
    connect(m_sdMon, SIGNAL(dirAdded(QString)), SLOT(setSdCardMountPath(QString)));
    connect(m_sdMon, SIGNAL(dirRemoved(QString)), SLOT(clearSdCardMountPath(QString)));

    m_ateTimer = new QTimer(this);
    m_ateTimer->setInterval(firstFrameWithin);
    makePrecise(m_ateTimer);
    connect(m_ateTimer, SIGNAL(timeout()), SLOT(exitMftool()));
    qDebug("In ATE Mode --->, ATE 15 sec Timer started:");
    m_ateTimer->start();

    openLine(m_board.path(Board::TestLine));

    if (QCoreApplication::arguments().contains(QLatin1String("-n")))
        m_strictCheck = false;
}

TestProto::~TestProto()
{
    // The monitor blocks in its pipe and a running thread must not be deleted: it is left
    // running and ends with the process.
    if (m_sdMon->isRunning())
        m_sdMon->setParent(nullptr);
    delete m_notifier;
    if (m_fd >= 0)
        close(m_fd);
}

void TestProto::openLine(const QString &path)
{
    m_fd = open(QFile::encodeName(path).constData(), O_RDWR | O_CLOEXEC);
    if (m_fd < 0) {
        qDebug("Failed to open %s", qPrintable(path));
        return;
    }
    m_isUart = isUart(m_fd);
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, SIGNAL(activated(int)), SLOT(read()));
}

/// A line that fails still counts as readable: its notifier would fire for ever.
void TestProto::stopReading(const char *reason)
{
    m_notifier->setEnabled(false);
    qDebug("Failed to read %s: %s", qPrintable(m_board.path(Board::TestLine)), reason);
}

void TestProto::read()
{
    if (m_fd < 0)
        return;
    if (m_isUart)
        waitUntilQuiet(m_fd);
    char chunk[largestChunk];
    const ssize_t size = ::read(m_fd, chunk, sizeof(chunk));
    if (size < 0 && errno != EINTR && errno != EAGAIN)
        stopReading(strerror(errno));
    if (size == 0) {
        ++m_endsInRow;
        if (m_endsInRow == mostEndsInRow || lineHungUp(m_fd))
            stopReading("end of file");
        return;
    }
    m_endsInRow = 0;

    QByteArray message = QByteArray(chunk, size < 0 ? 0 : static_cast<int>(size)).trimmed();
    qDebug("Got_newsocket: %s", message.constData());
    message.truncate(static_cast<int>(qstrlen(message.constData())));
    parseMessage(message);
}

void TestProto::parseMessage(const QByteArray &message)
{
    const ReceivedFrame frame = checkFrame(message, m_strictCheck);
    // The marks alone show that a station is there: even a damaged frame keeps ATE mode alive.
    if (hasFrameMarks(frame.verdict))
        m_ateTimer->start(nextFrameWithin);

    Reply reply = NoReply;
    switch (frame.verdict) {
    case FrameEmpty:
        break;
    case FrameTooShort:
    case FrameBadMarks:
        qDebug("Invalid message");
        reply = NAK;
        break;
    case FrameBadLength:
        qDebug("\n Invalid length, should be %u", frame.expected);
        reply = NAK;
        break;
    case FrameBadChecksum:
        qDebug("checksum does not match, it should be %04X", frame.expected);
        reply = NAK;
        break;
    case FrameGood:
        reply = dispatch(frame.type, frame.data);
        break;
    }
    if (reply != NoReply)
        sendFrame(reply);
}

void TestProto::sendFrame(quint16 type, const QByteArray &data)
{
    m_file = openReplyStream(m_fd);
    if (!m_file) {
        qDebug("\n!!!!!!!!!! stream_pointer NULL !!!!!!!!!!!!!!\n");
        return;
    }
    writeAll(m_file, buildFrame(type, data));
    fclose(m_file);
    m_file = nullptr;
}

void TestProto::tsCoords(QPoint p)
{
    sendFrame(TouchReply, touchData(p));
}

void TestProto::calibrateResult(int index, QPoint p)
{
    sendFrame(CalibratePointReply, calibrationPointData(index, p));
}

void TestProto::calibrateFinished(bool success)
{
    sendFrame(CalibrateFinishedReply, verdictData(success));
}

void TestProto::passthroughReply(QByteArray data)
{
    sendFrame(PassthroughReply, data);
}

void TestProto::flashStatus(int stage, int percent)
{
    sendFrame(FlashStatusReply, flashStatusData(stage, percent));
}

void TestProto::flashComplete(bool success)
{
    sendFrame(FlashCompleteReply, verdictData(success));
}

void TestProto::sendReady()
{
    sendFrame(ReadyMessage);
}

void TestProto::mountComplete(bool success)
{
    sendFrame(MountCompleteReply, verdictData(success));
}

void TestProto::sendButtons(uint state)
{
    sendFrame(ButtonsReply, buttonsData(state));
}

void TestProto::sendVoltage(QByteArray data)
{
    sendFrame(VoltageReply, voltageData(data));
}

void TestProto::sendAck()
{
    sendFrame(ACK);
}

void TestProto::sendNak()
{
    sendFrame(NAK);
}

void TestProto::sendNA()
{
    sendFrame(NA);
}

void TestProto::sendVersion(QString version)
{
    sendFrame(VersionReply, versionData(version));
}

void TestProto::sendReadSdCardResp(QString respData)
{
    sendFrame(SdCardReply, respData.toLatin1());
}

void TestProto::exitMftool()
{
    qDebug("\n************ ATE TEST Quit due to time out ************\n");
    setSdPower(m_board, false);
    emit testExit();
}

void TestProto::setSdCardMountPath(QString dir)
{
    m_sdCardMountPath = dir;
    qDebug("In ATE Mode--->, SD Mount to m_sdCardMountPath=%s", qPrintable(m_sdCardMountPath));
}

void TestProto::clearSdCardMountPath(QString dir)
{
    qDebug("In ATE Mode--->, SD UnMount from m_sdCardMountPath=%s", qPrintable(dir));
    m_sdCardMountPath = QString();
}
