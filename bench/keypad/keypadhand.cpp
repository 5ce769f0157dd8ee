#include "bench/keypad/keypadhand.h"

#include "bench/keypad/hostclient.h"
#include "bench/keypad/keypadboard.h"
#include "bench/keypad/keypadlook.h"
#include "bench/keypad/screen.h"

#include <QThread>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

using namespace HostProtocol;

namespace
{

const quint16 keyEvent = 1;
const quint16 synchronisationEvent = 0;
const quint16 homeKey = 102;

const char eventDevice[] = "/dev/input/event0";
const char tamperLevel[] = "/sys/class/gpio/gpio17/value";

} // namespace

KeypadHand::KeypadHand(HostClient *host, KeypadBoard *board, KeypadLook *look)
    : m_host(host), m_board(board), m_look(look)
{
}

KeypadHand::~KeypadHand()
{
    closeEvents();
}

void KeypadHand::openEvents()
{
    m_events = m_board->openFile(QLatin1String(eventDevice), O_RDWR | O_NONBLOCK);
}

void KeypadHand::closeEvents()
{
    if (m_events >= 0)
        close(m_events);
    m_events = -1;
}

QByteArray KeypadHand::eventRecord(quint16 type, quint16 code, qint32 value)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    QByteArray record;
    const auto append = [&record](quint64 number, int bytes) {
        for (int i = 0; i < bytes; ++i)
            record.append(char((number >> (8 * i)) & 0xff));
    };
    append(quint64(now.tv_sec), 4);
    append(quint64(now.tv_nsec / 1000), 4);
    append(type, 2);
    append(code, 2);
    append(quint32(value), 4);
    return record;
}

void KeypadHand::pressHome()
{
    writeEvents(eventRecord(keyEvent, homeKey, 1) + eventRecord(synchronisationEvent, 0, 0));
}

void KeypadHand::releaseHome()
{
    writeEvents(eventRecord(keyEvent, homeKey, 0) + eventRecord(synchronisationEvent, 0, 0));
}

bool KeypadHand::writeEvents(const QByteArray &bytes)
{
    return write(m_events, bytes.constData(), size_t(bytes.size())) == bytes.size();
}

void KeypadHand::setTamper(bool active)
{
    m_board->setAttribute(QLatin1String(tamperLevel), active ? "1" : "0");
}

bool KeypadHand::setCard(Card kind, const QString &dir)
{
    const QJsonObject reply =
        m_host->call(Operation::SetCard, {{Key::Path, dir}, {Key::Kind, toJson(kind)}});
    const QString reason = reply.value(Key::Reason).toString();
    return reason.isEmpty() || m_host->failed(reason);
}

bool KeypadHand::insertCard(const QString &dir, int msecs)
{
    return writeSdPipe('#' + dir.toUtf8() + '\n', msecs);
}

bool KeypadHand::removeCard(const QString &dir, int msecs)
{
    return writeSdPipe('!' + dir.toUtf8() + '\n', msecs);
}

bool KeypadHand::writeSdPipe(const QByteArray &bytes, int msecs)
{
    const QJsonObject reply = m_host->call(
        Operation::WriteSdPipe, {{Key::Bytes, Channel::toText(bytes)}, {Key::Msecs, msecs}},
        nullptr, msecs + HostClient::CallMsecs);
    return m_host->succeeded(QStringLiteral("/tmp/sdstat"), reply.value(Key::Error).toInt());
}

bool KeypadHand::press(int x, int y)
{
    return move(x, y) && m_look->touchable()->button(true);
}

bool KeypadHand::move(int x, int y)
{
    Screen *screen = m_look->touchable();
    return screen != nullptr ? screen->move(x, y)
                             : m_host->failed(QStringLiteral("there is no display to touch"));
}

bool KeypadHand::release()
{
    Screen *screen = m_look->touchable();
    return screen != nullptr ? screen->button(false)
                             : m_host->failed(QStringLiteral("there is no display to touch"));
}

bool KeypadHand::touch(int x, int y, int msecs)
{
    if (!press(x, y))
        return false;
    QThread::msleep(ulong(msecs));
    return release();
}
