#include "hardware/sdmon.h"

#include <QFile>
#include <QtDebug>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hardware/sdevent.h"

namespace
{

/// No path is longer; what a runaway writer sends beyond it must not fill the memory.
const qint64 longestLine = 64 * 1024;

/// What a pipe can hold at most; more than that is a writer that never pauses.
const int largestRest = 1024 * 1024;

/// Discards what a writer has sent after its first line. If it has not closed the pipe
/// yet, the next opening would read it.
void discardRest(int pipe)
{
    fcntl(pipe, F_SETFL, O_NONBLOCK);
    char rest[4096];
    ssize_t size = 1;
    for (int taken = 0; size > 0 && taken < largestRest; taken += static_cast<int>(size))
        size = read(pipe, rest, sizeof(rest));
}

bool isFifo(int file)
{
    struct stat info;
    return fstat(file, &info) == 0 && S_ISFIFO(info.st_mode);
}

} // namespace

bool createSdFifo(const Board &board)
{
    const QString path = board.path(Board::SdEvents);
    if (QFile::exists(path)) {
        qDebug("In ATE Mode--->, SD fifo already exists");
        return true;
    }
    if (mkfifo(QFile::encodeName(path).constData(), 0644) != 0) {
        qDebug("In ATE Mode--->, Failed to create SD fifo: %s", strerror(errno));
        return false;
    }
    qDebug("In ATE Mode--->, SD fifo created at /tmp/sdstat");
    return true;
}

SDMon::SDMon(QObject *parent, const Board &board)
    : QThread(parent), m_pipe(board.path(Board::SdEvents))
{
    if (!createSdFifo(board)) {
        qWarning("In ATE Mode--->, No SD monitoring available");
        return;
    }
    start();
}

void SDMon::run()
{
    QFile pipe(m_pipe);
    qDebug("In ATE Mode--->, SDMon thread started");
    for (;;) {
        qDebug("In ATE Mode--->, Waiting for SD event");
        if (!pipe.open(QIODevice::ReadOnly)) {
            qWarning("In ATE Mode--->,Failed to open pipe");
            return;
        }
        qDebug("In ATE Mode--->, Received SD event");
        handleLine(pipe.readLine(longestLine));
        const bool waitsForWriters = isFifo(pipe.handle());
        if (waitsForWriters)
            discardRest(pipe.handle());
        pipe.close();
        // A plain file or a device in the pipe's place opens at once, every time: without
        // a pause it would flood the log and the event queue.
        if (!waitsForWriters)
            sleep(1);
    }
}

void SDMon::handleLine(const QByteArray &line)
{
    const SdEvent event = parseSdEvent(line);
    if (event.kind == SdEvent::Nothing)
        return;
    qDebug("In ATE Mode--->,SD mon read: %s", line.constData());
    switch (event.kind) {
    case SdEvent::Mounted:
        emit dirAdded(event.dir);
        break;
    case SdEvent::Removed:
        emit dirRemoved(event.dir);
        break;
    default:
        qWarning("In ATE Mode--->,Unexpected character at beginning of msg");
    }
}
