// The real receive entry: bytes on a pseudo terminal, the engine's own slot,
// and what it puts on the line, judged by the station's independent rules.
//
// The first byte of an input chooses: bit 0 an engine started with -n, bit 1
// that a right frame is made around the rest (two bytes of type, then data) so
// that the handlers are reached.
#include "tests/fuzz/fuzz.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <QSocketNotifier>
#include <QTimer>

#include <cctype>

#include "bench/station/frame.h"
#include "bench/station/messages.h"
#include "protocol/testproto.h"
#include "tests/support/boardfolder.h"
#include "tests/support/ptyline.h"

namespace
{

const int firstFrameWithin = 15000;
const int nextFrameWithin = 600000;

void ignoreLog(QtMsgType, const QMessageLogContext &, const QString &) {}

/// Counts the signals of an engine without linking a slot to each.
class SignalCounter : public QObject
{
    Q_OBJECT

public:
    explicit SignalCounter(TestProto *proto)
    {
        const QMetaObject *meta = proto->metaObject();
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("count()"));
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            if (meta->method(i).methodType() == QMetaMethod::Signal)
                connect(proto, meta->method(i), this, slot);
        }
    }
    int take()
    {
        const int taken = m_count;
        m_count = 0;
        return taken;
    }

private slots:
    void count() { ++m_count; }

private:
    int m_count = 0;
};

/// An engine and the other end of its line.
class Engine
{
public:
    Engine()
    {
        m_board.link("/dev/ttySP0", m_line.path());
        m_board.write("/tmp/sdstat", ""); // no pipe: the monitor must not wait for cards
        m_proto = new TestProto(nullptr, m_board.board());
        m_counter = new SignalCounter(m_proto);
        m_timer = m_proto->findChild<QTimer *>();
        m_read = m_proto->metaObject()->method(m_proto->metaObject()->indexOfSlot("read()"));
        // The slot is called by hand, once for each chunk.
        m_proto->findChild<QSocketNotifier *>()->setEnabled(false);
    }

    /// Sends @p chunk in one piece and waits until it can be read as one.
    void send(const QByteArray &chunk)
    {
        m_line.clear();
        m_line.sendAsOne(chunk);
    }
    void read() { m_read.invoke(m_proto, Qt::DirectConnection); }
    QByteArray received() { return m_line.received(); }

    void setInterval(int msecs) { m_timer->setInterval(msecs); }
    int interval() const { return m_timer->interval(); }
    int signalsRaised() { return m_counter->take(); }

private:
    BoardFolder m_board;
    PtyLine m_line;
    TestProto *m_proto = nullptr;
    SignalCounter *m_counter = nullptr;
    QTimer *m_timer = nullptr;
    QMetaMethod m_read;
};

/// Both engines live as long as the process, as the tool's does.
struct Engines {
    Engines()
    {
        qInstallMessageHandler(ignoreLog);
        static char program[] = "fuzz_receive";
        static char lenientArgument[] = "-n";
        static char *arguments[] = {program, lenientArgument, nullptr};
        static int count = 2;
        new QCoreApplication(count, arguments);
        lenient = new Engine;
        count = 1;
        strict = new Engine;
    }
    Engine *strict;
    Engine *lenient;
};

/// The value of a field of digits; with any other character in it 0.
uint fieldValue(const QByteArray &digits)
{
    for (const char c : digits) {
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return 0;
    }
    return digits.toUInt(nullptr, 16);
}

quint16 typeField(const QByteArray &message)
{
    return static_cast<quint16>(fieldValue(message.mid(6, 4)));
}

bool checksumIsRight(const QByteArray &message)
{
    uint sum = 0;
    for (const char c : message.left(message.size() - 6))
        sum += static_cast<unsigned char>(c);
    return fieldValue(message.mid(message.size() - 6, 4)) == (sum & 0xFFFF);
}

/// What the keypad must make of one message.
struct Verdict {
    bool marks = false; ///< a frame for this unit, right or not
    bool good = false;
};

Verdict verdictOn(const QByteArray &message, bool lenient)
{
    Verdict verdict;
    const wire::Report report = wire::checkFrame(wire::Sender::Station, message);
    verdict.marks = !report.fails(wire::Problem::Size) && !report.fails(wire::Problem::StartMark) &&
                    !report.fails(wire::Problem::EndMark);
    verdict.good =
        verdict.marks &&
        (lenient || (!report.fails(wire::Problem::LengthField) && checksumIsRight(message)));
    return verdict;
}

/// A line of the keypad, whatever bytes an echo carries.
bool isOneKeypadFrame(const QByteArray &line, wire::Frame *frame)
{
    const wire::Report report = wire::checkLine(wire::Sender::Keypad, line);
    *frame = report.frame;
    return report.ok();
}

QByteArray messageOf(const QByteArray &chunk)
{
    const QByteArray trimmed = chunk.trimmed();
    const int zero = static_cast<int>(trimmed.indexOf('\0'));
    return zero < 0 ? trimmed : trimmed.left(zero);
}

void checkGood(const QByteArray &message, const wire::Frame &reply, bool replied, int raised)
{
    const quint16 type = typeField(message);
    const std::optional<wire::Answers> answers = wire::answersTo(type);
    if (!answers) {
        FUZZ_VERIFY(replied && reply.type == wire::NotApplicable && raised == 0, message);
        return;
    }
    if (type == wire::EchoRequest) {
        FUZZ_VERIFY(replied && reply.type == wire::EchoReply && raised == 0, message);
        FUZZ_VERIFY(reply.data == message.mid(12, message.size() - 18), message);
        return;
    }
    const bool refused = replied && (reply.type == wire::Nak || reply.type == wire::NotApplicable);
    FUZZ_VERIFY(refused == (raised == 0), message);
    FUZZ_VERIFY(raised <= 1, message);
    if (refused)
        return;
    // Whoever shows a picture acknowledges it; the engine acknowledges everything else.
    const bool later = type == wire::PatternRequest ? message.size() > 18 : !answers->ack;
    FUZZ_VERIFY(replied == !later, message);
    FUZZ_VERIFY(later || reply.type == wire::Ack, message);
}

void checkChunk(Engine *engine, const QByteArray &chunk, bool lenient)
{
    engine->setInterval(firstFrameWithin);
    engine->send(chunk);
    engine->read();
    const QByteArray sent = engine->received();
    const int raised = engine->signalsRaised();

    const QByteArray message = messageOf(chunk);
    const Verdict verdict = verdictOn(message, lenient);
    FUZZ_VERIFY(engine->interval() == (verdict.marks ? nextFrameWithin : firstFrameWithin), chunk);
    wire::Frame reply;
    const bool replied = !sent.isEmpty();
    FUZZ_VERIFY(!replied || isOneKeypadFrame(sent, &reply), chunk);
    if (message.isEmpty()) {
        FUZZ_VERIFY(!replied && raised == 0, chunk);
        return;
    }
    if (!verdict.good) {
        FUZZ_VERIFY(replied && reply.type == wire::Nak && reply.data.isEmpty(), chunk);
        FUZZ_VERIFY(raised == 0, chunk);
        return;
    }
    checkGood(message, reply, replied, raised);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Engines engines;
    fuzz::Reader input(fuzz::bytes(data, size));
    const int mode = input.byte();
    const bool lenient = (mode & 1) != 0;
    QByteArray chunk;
    if ((mode & 2) != 0) {
        const auto type = static_cast<quint16>(input.number16());
        chunk = wire::buildFrame(wire::Sender::Station, type, input.take(900)) + "\r\n";
    } else {
        chunk = input.take(1024);
    }
    if (!chunk.isEmpty())
        checkChunk(lenient ? engines.lenient : engines.strict, chunk, lenient);
    return 0;
}

#include "fuzz_receive.moc"
