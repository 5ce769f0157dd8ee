#include "bench/station/station.h"

#include "bench/station/escape.h"
#include "bench/station/meaning.h"
#include "bench/station/requests.h"

#include <QAbstractEventDispatcher>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

namespace
{

/// How long the line may refuse a request.
const int writeLimitMs = 5000;
/// How much is read before queued lines are looked at, so that a keypad that never stops
/// talking cannot make a wait miss its limit.
const int mostReadsAtOnce = 16;

const int headerSize = 12;    ///< mark, length, type, header check
const int lengthBias = 8;     ///< characters of a frame that its length leaves out
const int smallestFrame = 18; ///< characters

const struct {
    int rate;
    speed_t speed;
} Speeds[] = {{1200, B1200},     {2400, B2400},     {4800, B4800},    {9600, B9600},
              {19200, B19200},   {38400, B38400},   {57600, B57600},  {115200, B115200},
              {230400, B230400}, {460800, B460800}, {921600, B921600}};

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

QString shown(const QByteArray &bytes)
{
    return QString::fromLatin1(escaped(bytes));
}

QString seconds(int milliseconds)
{
    return QStringLiteral("%1 s").arg(milliseconds / 1000.0);
}

bool setLine(int descriptor, speed_t speed)
{
    termios settings;
    if (tcgetattr(descriptor, &settings) < 0)
        return false;
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CSIZE | CRTSCTS);
    settings.c_cflag |= CS8 | CLOCAL | CREAD;
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    return tcsetattr(descriptor, TCSANOW, &settings) == 0;
}

/// Why a line cannot be opened or set, and what to do about it.
QString openError(const QString &path)
{
    const int number = errno;
    if (number == ENOTTY)
        return QStringLiteral("%1 is not a serial line").arg(path);
    if (number == EWOULDBLOCK)
        return QStringLiteral("%1 is in use by another program").arg(path);
    const QString error = QStringLiteral("%1: %2").arg(path, systemError());
    if (number == EACCES)
        return error + QStringLiteral(" (serial ports are for members of the group dialout)");
    return error;
}

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

/// If @p bytes begin with a frame of the keypad, its size with line end; otherwise 0. The
/// header check confirms the length.
int announcedSize(const QByteArray &bytes)
{
    if (bytes.size() < headerSize || !bytes.startsWith("7E"))
        return 0;
    const QByteArray header = bytes.left(headerSize);
    if (!std::all_of(header.begin() + 2, header.end(), isHexDigit))
        return 0;
    const quint16 type = static_cast<quint16>(header.mid(6, 4).toUInt(nullptr, 16));
    const int length = header.mid(2, 4).toInt(nullptr, 16);
    if (length < smallestFrame - lengthBias)
        return 0;
    const QByteArray data(length + lengthBias - smallestFrame, '0');
    const bool isHeader =
        wire::buildFrame(wire::Sender::Keypad, type, data).left(headerSize) == header;
    return isHeader ? length + lengthBias + 2 : 0;
}

/// Whether a line that fails the checks was still meant as a frame.
bool looksLikeFrame(const QByteArray &line)
{
    const QByteArray text = line.trimmed();
    if (text.left(2).toUpper() == "7E")
        return true;
    const QByteArray header = text.mid(2, headerSize - 2).toUpper();
    return text.size() >= smallestFrame && text.right(2).toUpper() == "7F" &&
           std::all_of(header.begin(), header.end(), isHexDigit);
}

QString described(quint16 type, const QByteArray &data)
{
    wire::Frame frame;
    frame.type = type;
    frame.data = data;
    return wire::meaningOf(frame).text;
}

/// The replies to wait for; a type that is not a request is refused or acknowledged.
wire::Answers answersAwaited(quint16 type)
{
    wire::Answers unknown;
    unknown.ack = true;
    return wire::answersTo(type).value_or(unknown);
}

/// Enters into @p answer what came after the request @p what, and removes from
/// @p awaited what has come.
void take(const Station::Received &received, const QString &what, wire::Answers *awaited,
          Station::Answer *answer)
{
    using Answer = Station::Answer;
    if (received.kind == Station::Received::Text) {
        answer->lines.append(received.line());
        return;
    }
    if (received.kind == Station::Received::DamagedFrame) {
        answer->outcome = Answer::Damaged;
        answer->error = QStringLiteral("%1 (%2)").arg(received.describe(), shown(received.raw));
        return;
    }
    const quint16 type = received.frame.type;
    answer->frames.append(received.frame);
    if (type == wire::Nak || type == wire::NotApplicable) {
        answer->outcome = type == wire::Nak ? Answer::Nak : Answer::NotApplicable;
        answer->error = QStringLiteral("%1 was refused with %2").arg(what, wire::typeName(type));
    } else if (type == wire::Ack && awaited->ack) {
        awaited->ack = false;
        answer->acked = true;
    } else if (type == awaited->reply) {
        awaited->reply = 0;
    }
}

} // namespace

QByteArray Station::Received::line() const
{
    QByteArray text = raw;
    if (text.endsWith('\n'))
        text.chop(1);
    if (text.endsWith('\r'))
        text.chop(1);
    return text;
}

QString Station::Received::describe() const
{
    if (kind == Text)
        return QStringLiteral("unframed line \"%1\"").arg(shown(line()));
    if (kind == DamagedFrame)
        return QStringLiteral("damaged frame: %1").arg(report.text());
    const wire::Meaning meaning = wire::meaningOf(frame);
    if (meaning.complaint.isEmpty())
        return meaning.text;
    return QStringLiteral("%1 (%2)").arg(meaning.text, meaning.complaint);
}

std::optional<wire::Frame> Station::Answer::frame(quint16 type) const
{
    const auto found = std::find_if(frames.begin(), frames.end(),
                                    [type](const wire::Frame &each) { return each.type == type; });
    if (found == frames.end())
        return std::nullopt;
    return *found;
}

QByteArray Station::Answer::data(quint16 type) const
{
    const std::optional<wire::Frame> found = frame(type);
    if (!found)
        return QByteArray();
    // A frame with empty data is still a frame.
    return found->data.isNull() ? QByteArray("") : found->data;
}

Station::Station(QObject *parent) : QObject(parent), m_wake(this)
{
    qRegisterMetaType<Station::Received>();
    m_wake.setSingleShot(true);
    m_wake.setTimerType(Qt::PreciseTimer);
}

Station::~Station()
{
    close();
}

bool Station::isBaudRate(int rate)
{
    return std::any_of(std::begin(Speeds), std::end(Speeds),
                       [rate](const auto &each) { return each.rate == rate; });
}

bool Station::open(const QString &path, int baudRate)
{
    close();
    const auto row = std::find_if(std::begin(Speeds), std::end(Speeds),
                                  [baudRate](const auto &each) { return each.rate == baudRate; });
    if (row == std::end(Speeds))
        return fail(QStringLiteral("%1 is not a standard baud rate").arg(baudRate));
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        return fail(openError(path));
    // Two readers of a line would take each other's answers.
    if (::flock(descriptor, LOCK_EX | LOCK_NB) < 0 || !setLine(descriptor, row->speed)) {
        fail(openError(path));
        ::close(descriptor);
        return false;
    }
    start(descriptor);
    return true;
}

void Station::adopt(int descriptor)
{
    close();
    // A program started in the meantime would keep the line open.
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    const int flags = fcntl(descriptor, F_GETFL);
    fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
    start(descriptor);
}

void Station::start(int descriptor)
{
    m_fd = descriptor;
    m_hungUp = false;
    m_pending.clear();
    m_queue.clear();
    if (!QAbstractEventDispatcher::instance(thread()))
        return;
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, SIGNAL(activated(int)), this, SLOT(readAvailable()));
}

void Station::close()
{
    if (m_fd < 0)
        return;
    delete m_notifier;
    m_notifier = nullptr;
    ::close(m_fd);
    m_fd = -1;
}

bool Station::send(quint16 type, const QByteArray &data)
{
    return write(wire::buildFrame(wire::Sender::Station, type, data) + "\r\n",
                 described(type, data));
}

bool Station::sendRaw(const QByteArray &bytes)
{
    return write(bytes, QStringLiteral("raw"));
}

bool Station::write(const QByteArray &bytes, const QString &meaning)
{
    if (m_fd < 0)
        return fail(QStringLiteral("the line is not open"));
    m_transcript.add(Transcript::Sent, bytes, meaning);
    const QDeadlineTimer deadline(writeLimitMs);
    const char *next = bytes.constData();
    auto left = static_cast<size_t>(bytes.size());
    while (left > 0) {
        const ssize_t written = ::write(m_fd, next, left);
        if (written >= 0) {
            next += written;
            left -= static_cast<size_t>(written);
        } else if (errno == EAGAIN) {
            if (!poll(POLLOUT, deadline))
                return fail(QStringLiteral("the line takes no bytes"));
        } else if (errno != EINTR) {
            return fail(QStringLiteral("writing failed: %1").arg(systemError()));
        }
    }
    return true;
}

/// Waits for @p events on the line, and nothing else. @return false when the limit passes
bool Station::poll(short events, const QDeadlineTimer &deadline) const
{
    pollfd line = {m_fd, events, 0};
    for (;;) {
        const int limit = deadline.isForever() ? -1 : static_cast<int>(deadline.remainingTime());
        const int ready = ::poll(&line, 1, limit);
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

/// Sleeps until the line has something to say or the limit passes.
void Station::pause(const QDeadlineTimer &deadline)
{
    if (!m_notifier) {
        poll(POLLIN, deadline);
        return;
    }
    if (!deadline.isForever())
        m_wake.start(static_cast<int>(std::max<qint64>(1, deadline.remainingTime())));
    QEventLoop().processEvents(QEventLoop::WaitForMoreEvents);
    m_wake.stop();
}

void Station::readAvailable()
{
    for (int reads = 0; m_fd >= 0 && !m_hungUp && reads < mostReadsAtOnce; ++reads) {
        char bytes[4096];
        const ssize_t count = ::read(m_fd, bytes, sizeof bytes);
        if (count > 0) {
            m_pending.append(bytes, static_cast<int>(count));
            splitPending();
            if (count < static_cast<ssize_t>(sizeof bytes))
                return;
            continue;
        }
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN)
            return;
        hangUp();
        return;
    }
}

void Station::hangUp()
{
    m_hungUp = true;
    // A closed line stays readable for ever, so the notifier would never stop.
    if (m_notifier)
        m_notifier->setEnabled(false);
    flushPending();
    m_transcript.note(QStringLiteral("the line hung up"));
    emit hungUp();
}

/// Takes every whole line out of the pending bytes.
void Station::splitPending()
{
    for (;;) {
        const int lineEnd = static_cast<int>(m_pending.indexOf('\n'));
        if (lineEnd < 0)
            return;
        int size = lineEnd + 1;
        const int announced = announcedSize(m_pending);
        if (announced > size) {
            // The data of a frame may hold a line feed. A wrong length is noticed when
            // more bytes follow, or by flushPending() when none do.
            if (m_pending.size() < announced)
                return;
            if (wire::checkLine(wire::Sender::Keypad, m_pending.left(announced)).ok())
                size = announced;
        }
        const QByteArray line = m_pending.left(size);
        m_pending.remove(0, size);
        takeLine(line);
    }
}

/// Takes what is pending as it is; nothing more will come to complete it.
void Station::flushPending()
{
    while (!m_pending.isEmpty()) {
        const int lineEnd = static_cast<int>(m_pending.indexOf('\n'));
        const int size = lineEnd < 0 ? static_cast<int>(m_pending.size()) : lineEnd + 1;
        const QByteArray line = m_pending.left(size);
        m_pending.remove(0, size);
        takeLine(line);
    }
}

void Station::takeLine(const QByteArray &line)
{
    Received received;
    received.raw = line;
    received.time = Transcript::now();
    received.report = wire::checkLine(wire::Sender::Keypad, line);
    if (received.report.ok()) {
        received.kind = Received::GoodFrame;
        received.frame = received.report.frame;
        deliver(received);
        return;
    }
    // A module's line may lack its line end; the frame after it is good.
    for (int at = static_cast<int>(line.indexOf("7E", 1)); at > 0;
         at = static_cast<int>(line.indexOf("7E", at + 1))) {
        if (!wire::checkLine(wire::Sender::Keypad, line.mid(at)).ok())
            continue;
        takeLine(line.left(at));
        takeLine(line.mid(at));
        return;
    }
    received.kind = looksLikeFrame(line) ? Received::DamagedFrame : Received::Text;
    received.frame = received.report.frame;
    deliver(received);
}

void Station::deliver(const Received &received)
{
    m_transcript.add(Transcript::Received, received.raw, received.describe());
    m_queue.push_back(received);
    emit this->received(received);
}

/// The next thing from the queue or the line. @p wanted says in errorString()
/// what was waited for.
std::optional<Station::Received> Station::next(const QDeadlineTimer &deadline, int limitMs,
                                               const QString &wanted)
{
    for (;;) {
        if (m_queue.empty())
            readAvailable();
        if (!m_queue.empty()) {
            const Received received = m_queue.front();
            m_queue.pop_front();
            return received;
        }
        if (m_fd < 0 || m_hungUp) {
            fail(QStringLiteral("%1, waiting for %2")
                     .arg(m_fd < 0 ? QStringLiteral("the line is not open")
                                   : QStringLiteral("the line hung up"),
                          wanted));
            return std::nullopt;
        }
        if (!deadline.hasExpired()) {
            pause(deadline);
        } else if (limitMs > 0 && !m_pending.isEmpty()) {
            flushPending();
        } else {
            fail(
                QStringLiteral("nothing came in %1, waiting for %2").arg(seconds(limitMs), wanted));
            return std::nullopt;
        }
    }
}

std::optional<Station::Received> Station::receive(int limitMs)
{
    return next(QDeadlineTimer(limitMs), limitMs, QStringLiteral("anything"));
}

std::optional<Station::Received> Station::waitForFrame(int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    for (;;) {
        const std::optional<Received> received = next(deadline, limitMs, QStringLiteral("a frame"));
        if (!received || received->kind != Received::Text)
            return received;
    }
}

std::optional<wire::Frame> Station::waitFor(quint16 type, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    for (;;) {
        const std::optional<Received> received = next(deadline, limitMs, wire::typeName(type));
        if (!received)
            return std::nullopt;
        if (received->isFrame() && received->frame.type == type)
            return received->frame;
    }
}

bool Station::waitForReady(int limitMs)
{
    return waitFor(wire::Ready, limitMs).has_value();
}

bool Station::expect(quint16 type, const QByteArray &data, int limitMs)
{
    const QByteArray right = wire::buildFrame(wire::Sender::Keypad, type, data) + "\r\n";
    return expectNext(right, described(type, data), limitMs);
}

bool Station::expectLine(const QByteArray &text, int limitMs)
{
    return expectNext(text + "\r\n", QStringLiteral("unframed line \"%1\"").arg(shown(text)),
                      limitMs);
}

bool Station::expectNext(const QByteArray &raw, const QString &wanted, int limitMs)
{
    const std::optional<Received> received = next(QDeadlineTimer(limitMs), limitMs, wanted);
    if (!received)
        return false;
    if (received->raw == raw)
        return true;
    return fail(QStringLiteral("expected %1 (%2), came %3 (%4)")
                    .arg(wanted, shown(raw), received->describe(), shown(received->raw)));
}

bool Station::expectSilence(int forMs)
{
    const std::optional<Received> received =
        next(QDeadlineTimer(forMs), forMs, QStringLiteral("silence"));
    if (received)
        return fail(QStringLiteral("expected silence, came %1 (%2)")
                        .arg(received->describe(), shown(received->raw)));
    return isOpen() && !m_hungUp;
}

bool Station::idle(int forMs)
{
    const QDeadlineTimer deadline(forMs);
    while (isOpen() && !m_hungUp && !deadline.hasExpired()) {
        pause(deadline);
        readAvailable();
    }
    if (isOpen() && !m_hungUp)
        return true;
    return fail(QStringLiteral("the line hung up"));
}

Station::Answer Station::request(quint16 type, const QByteArray &data, int limitMs, int lateLimitMs)
{
    clear();
    Answer answer;
    QElapsedTimer clock;
    clock.start();
    if (!send(type, data)) {
        answer.error = m_error;
        return answer;
    }
    wire::Answers awaited = answersAwaited(type);
    if (lateLimitMs == LimitOfRequest)
        lateLimitMs = awaited.lateLimitMs;
    if (awaited.ack && lateLimitMs == 0)
        awaited.reply = 0;

    const QString what = described(type, data);
    int limit = limitMs;
    QDeadlineTimer deadline(limit);
    answer.outcome = Answer::Accepted;
    while (answer.ok() && (awaited.ack || awaited.reply != 0)) {
        const auto reply = awaited.ack ? static_cast<quint16>(wire::Ack) : awaited.reply;
        const std::optional<Received> received =
            next(deadline, limit, QStringLiteral("%1 to %2").arg(wire::typeName(reply), what));
        answer.elapsedUs = clock.nsecsElapsed() / 1000;
        if (!received) {
            answer.outcome = isOpen() && !m_hungUp ? Answer::TimedOut : Answer::LineFailed;
            answer.error = m_error;
            break;
        }
        const bool wasAcked = answer.acked;
        take(*received, what, &awaited, &answer);
        if (answer.acked && !wasAcked) {
            limit = lateLimitMs;
            deadline.setRemainingTime(limit);
        }
    }
    return answer;
}

Station::Answer Station::request(const QString &command, int limitMs, int lateLimitMs)
{
    QString error;
    const QStringList words = command.split(QLatin1Char(' '));
    const std::optional<wire::Frame> frame = wire::parseRequest(words, &error);
    if (frame)
        return request(frame->type, frame->data, limitMs, lateLimitMs);
    Answer answer;
    answer.error = error;
    return answer;
}

void Station::clear()
{
    readAvailable();
    m_queue.clear();
}

bool Station::fail(const QString &error)
{
    m_error = error;
    return false;
}
