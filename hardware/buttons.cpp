#include "hardware/buttons.h"

#include <QFile>
#include <QSocketNotifier>
#include <QtDebug>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "hardware/boardrevision.h"
#include "hardware/inputevent.h"

namespace
{

const int recordsPerRead = 16;

/// Whether the failure in errno is final: the device has been unplugged.
bool deviceHungUp(int fd)
{
    if (errno == ENODEV)
        return true;
    pollfd device = {fd, 0, 0};
    return poll(&device, 1, 0) > 0 && (device.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

} // namespace

Buttons::Buttons(QObject *parent, const Board &board)
    : QObject(parent), m_fd(-1), m_homeDown(false), m_revision(1)
{
    const QByteArray device = QFile::encodeName(board.path(Board::HomeKeyEvents));
    m_fd = open(device.constData(), O_RDWR | O_CLOEXEC);
    if (m_fd < 0) {
        qWarning("Failed to open %s", device.constData());
    } else {
        QSocketNotifier *notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
        connect(notifier, SIGNAL(activated(int)), this, SLOT(read()));
        qDebug("Input event opened");
    }

    m_revision = readBoardRevision(board);
    qDebug("Running on board rev %d", m_revision);
}

void Buttons::read()
{
    if (m_fd < 0)
        return;

    char records[recordsPerRead * inputEventSize];
    const ssize_t length = ::read(m_fd, records, sizeof records);
    if (length == 0 || (length < 0 && deviceHungUp(m_fd))) {
        deviceGone();
        return;
    }
    for (ssize_t at = 0; at + inputEventSize <= length; at += inputEventSize) {
        const InputEvent event = decodeInputEvent(records + at);
        if (!isHomeKey(event))
            continue;
        m_homeDown = event.value != 0;
        emit home(m_homeDown);
    }
}

/// Its notifier would fire for ever, and nothing will report that the key is released.
void Buttons::deviceGone()
{
    findChild<QSocketNotifier *>()->setEnabled(false);
    if (!m_homeDown)
        return;
    m_homeDown = false;
    emit home(false);
}
