// The whole widget on a folder that plays the board: a run of requests, card
// events and presses, each request answered as its table says.
//
// An input is a list of records. The first byte of a record chooses: a request
// of a known type, bytes as they are, a card that comes or goes, a press.
#include "tests/fuzz/fuzz.h"

#include <QApplication>
#include <QFile>
#include <QImage>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QSocketNotifier>

#include "app/mftool.h"
#include "bench/station/frame.h"
#include "bench/station/messages.h"
#include "protocol/testproto.h"
#include "tests/support/boardfolder.h"
#include "tests/support/ptyline.h"
#include "tests/support/requests.h"

namespace
{

void ignoreLog(QtMsgType, const QMessageLogContext &, const QString &) {}

/// The widget, its board and the other end of its line.
class Tool
{
public:
    Tool()
    {
        makeBoard();
        m_widget = new mftool(nullptr, m_board.board());
        m_widget->resize(800, 480);
        m_widget->show();
        m_proto = m_widget->findChild<TestProto *>();
        m_read = m_proto->metaObject()->method(m_proto->metaObject()->indexOfSlot("read()"));
        m_proto->findChild<QSocketNotifier *>()->setEnabled(false);
        settle();
        m_line.clear();
    }

    QByteArray request(const QByteArray &chunk)
    {
        m_line.clear();
        m_line.sendAsOne(chunk);
        m_read.invoke(m_proto, Qt::DirectConnection);
        return m_line.received();
    }

    void card(bool in)
    {
        const char *slot = in ? "setSdCardMountPath" : "clearSdCardMountPath";
        QMetaObject::invokeMethod(m_proto, slot, Qt::DirectConnection,
                                  Q_ARG(QString, m_board.at(QStringLiteral("/card"))));
    }

    void press(const QPoint &at)
    {
        QMouseEvent press(QEvent::MouseButtonPress, at, m_widget->mapToGlobal(at), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QWidget *const grabber = QWidget::mouseGrabber();
        QApplication::sendEvent(grabber ? grabber : m_widget, &press);
    }

    /// Lets everything happen that is under way; frames that come unasked are returned.
    QByteArray settle()
    {
        m_line.clear();
        for (int i = 0; i < 3; ++i)
            QCoreApplication::processEvents();
        return m_line.received();
    }

private:
    void makeBoard()
    {
        m_board.link("/dev/ttySP0", m_line.path());
        m_board.write("/tmp/sdstat", ""); // no pipe: the monitor must not wait for cards
        for (const char *led : {"ready", "armed", "trouble", "ac", "home", "buzzer"})
            m_board.write(QStringLiteral("/sys/class/leds/%1/brightness").arg(led), "0");
        for (const char *file :
             {"/sys/class/backlight/mxs-bl/brightness", "/sys/class/gpio/export",
              "/sys/class/gpio/gpio62/value", "/sys/class/gpio/gpio62/active_low",
              "/sys/class/gpio/gpio62/direction", "/sys/class/gpio/gpio17/value",
              "/sys/class/gpio/gpio17/active_low", "/sys/class/gpio/sd_power/value"})
            m_board.write(QLatin1String(file), "1");
        m_board.write("/sys/class/power_supply/corlink/voltage_now", "12034000\n");
        m_board.write("/usr/lib/panel/version", "20140101 1.2\n");
        m_board.makeFolder("/boot/fw-1.2");
        m_board.makeFolder("/card");
        m_board.makeFolder("/home/default");
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::gray);
        if (!picture.save(m_board.at("/home/default/bars.png")))
            qFatal("no room for a picture");
        // No program is ever found: the PC's own mount must not be run.
        qputenv("PATH", QFile::encodeName(m_board.at("/card")));
        qputenv("POINTERCAL_FILE", QFile::encodeName(m_board.at("/card/pointercal")));
        qputenv("TSLIB_CALIBFILE", QFile::encodeName(m_board.at("/card/pointercal")));
    }

    BoardFolder m_board;
    PtyLine m_line;
    mftool *m_widget;
    TestProto *m_proto;
    QMetaMethod m_read;
};

Tool *makeTool()
{
    qInstallMessageHandler(ignoreLog);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static char program[] = "fuzz_widget";
    static char *arguments[] = {program, nullptr};
    static int count = 1;
    new QApplication(count, arguments);
    return new Tool;
}

/// Cuts what the keypad put on the line into frames, each of which must be
/// exactly right. Frames carry their length, so that an echo may hold anything.
QList<wire::Frame> framesIn(QByteArray sent, const QByteArray &input)
{
    QList<wire::Frame> frames;
    while (!sent.isEmpty()) {
        const int size = sent.mid(2, 4).toInt(nullptr, 16) + 10;
        const wire::Report report = wire::checkLine(wire::Sender::Keypad, sent.left(size));
        FUZZ_VERIFY(report.ok(), input);
        frames.append(report.frame);
        sent.remove(0, size);
    }
    return frames;
}

bool isGeneric(quint16 type)
{
    return type == wire::Ack || type == wire::Nak || type == wire::NotApplicable;
}

/// What may come at any time: a touch, the end of a flash or a mount that cannot start.
bool comesUnasked(quint16 type)
{
    return type == wire::TouchReply || type == wire::FlashComplete || type == wire::MountReply;
}

void checkUnasked(const QByteArray &sent, const QByteArray &input)
{
    const QList<wire::Frame> frames = framesIn(sent, input);
    for (const wire::Frame &frame : frames)
        FUZZ_VERIFY(comesUnasked(frame.type), input);
}

/// One request of a known type, around whatever data.
void checkRequest(Tool *tool, quint16 type, const QByteArray &data, bool *relays,
                  const QByteArray &input)
{
    const QByteArray request = wire::buildFrame(wire::Sender::Station, type, data);
    QByteArray sent = tool->request(request + "\r\n");
    // A zero byte cuts the message: it is damaged then, and nothing is relayed.
    if (type == wire::RelayRequest && *relays && !data.contains('\0')) {
        // The module is on the same line: what is relayed goes out before the ACK.
        const QByteArray relayed = data + "\r\n";
        FUZZ_VERIFY(sent.startsWith(relayed), input);
        sent.remove(0, static_cast<int>(relayed.size()));
    }
    QList<quint16> replies;
    const QList<wire::Frame> frames = framesIn(sent, input);
    for (const wire::Frame &frame : frames) {
        if (!comesUnasked(frame.type))
            replies.append(frame.type);
    }
    FUZZ_VERIFY(replies.size() == 1, input);
    const quint16 reply = replies.first();
    const std::optional<wire::Answers> answers = wire::answersTo(type);
    FUZZ_VERIFY(isGeneric(reply) || (answers && reply == answers->reply), input);
    if (type == wire::PassthroughRequest && reply == wire::Ack)
        *relays = data != "00";
}

/// Bytes as they are. Whatever they are, all that comes back is right frames.
void checkBytes(Tool *tool, const QByteArray &chunk, bool relays, const QByteArray &input)
{
    const QByteArray sent = tool->request(chunk);
    // A right frame that relays something cannot be told apart from its text here.
    if (!relays)
        FUZZ_VERIFY(framesIn(sent, input).size() <= 1, input);
}

enum Record { Press = 0xF0, CardIn = 0xF1, CardOut = 0xF2, Events = 0xF3, Bytes = 0xF4 };

void play(Tool *tool, const QByteArray &input)
{
    fuzz::Reader reader(input);
    bool relays = false;
    for (int records = 0; !reader.atEnd() && records < 32; ++records) {
        const int kind = reader.byte();
        switch (kind) {
        case Press:
            tool->press(QPoint(reader.number16() % 800, reader.number16() % 480));
            break;
        case CardIn:
        case CardOut:
            tool->card(kind == CardIn);
            break;
        case Events:
            checkUnasked(tool->settle(), input);
            break;
        case Bytes: {
            const QByteArray chunk = reader.take(reader.byte());
            if (!chunk.isEmpty())
                checkBytes(tool, chunk, relays, input);
            break;
        }
        default: {
            const auto known = sizeof(requestTypes) / sizeof(requestTypes[0]);
            const quint16 type = requestTypes[static_cast<unsigned>(kind) % known].type;
            checkRequest(tool, type, reader.take(reader.byte()), &relays, input);
        }
        }
    }
}

/// Back to how a run begins, so that an input means the same each time.
void calmDown(Tool *tool)
{
    const wire::Frame calm[] = {{wire::CalibrateRequest, "00"},
                                {wire::TouchTestRequest, "00"},
                                {wire::PassthroughRequest, "00"},
                                {wire::PatternRequest, ""}};
    for (const wire::Frame &frame : calm)
        tool->request(wire::buildFrame(wire::Sender::Station, frame.type, frame.data));
    tool->card(false);
    tool->settle();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Tool *const tool = makeTool();
    play(tool, fuzz::bytes(data, size));
    calmDown(tool);
    return 0;
}
