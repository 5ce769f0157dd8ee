#include "bench/keypad/virtualkeypad.h"

#include "bench/keypad/boardroot.h"
#include "bench/keypad/channel.h"
#include "bench/keypad/pictures.h"
#include "bench/keypad/screen.h"
#include "bench/keypad/spawn.h"
#include "bench/keypad/xvfb.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageWriter>
#include <QJsonArray>
#include <QProcessEnvironment>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <utility>

namespace
{

const int callMsecs = 20000; // generous: the machine may be busy
const int stepMsecs = 5;     // between two looks at something that announces nothing

const quint16 keyEvent = 1;
const quint16 synchronisationEvent = 0;
const quint16 homeKey = 102;

const char eventDevice[] = "/dev/input/event0";
const char tamperLevel[] = "/sys/class/gpio/gpio17/value";

QString whole(const QString &folder, const QString &name)
{
    return folder + QLatin1Char('/') + name;
}

QByteArray readAll(int fd)
{
    QByteArray content;
    char chunk[16 * 1024];
    ssize_t count;
    while ((count = read(fd, chunk, sizeof chunk)) > 0)
        content.append(chunk, int(count));
    return content;
}

QString cardName(VirtualKeypad::Card kind)
{
    switch (kind) {
    case VirtualKeypad::NoFolder:
        return QStringLiteral("no-folder");
    case VirtualKeypad::Writable:
        return QStringLiteral("writable");
    case VirtualKeypad::ReadOnly:
        return QStringLiteral("read-only");
    case VirtualKeypad::Full:
        return QStringLiteral("full");
    case VirtualKeypad::ReadsBackWrong:
        break;
    }
    return QStringLiteral("reads-back-wrong");
}

QString faketimeLibrary()
{
    const QStringList roots = {QStringLiteral("/usr/lib"), QStringLiteral("/usr/local/lib"),
                               QStringLiteral("/usr/lib64")};
    for (const QString &root : roots) {
        QStringList folders = {root};
        const QStringList below =
            QDir(root).entryList({QStringLiteral("*-linux-gnu*")}, QDir::Dirs);
        for (const QString &folder : below)
            folders.append(whole(root, folder));
        for (const QString &folder : qAsConst(folders)) {
            const QString library = whole(folder, QStringLiteral("faketime/libfaketime.so.1"));
            if (QFile::exists(library))
                return library;
        }
    }
    return QString();
}

} // namespace

class VirtualKeypad::Private
{
public:
    Private(VirtualKeypad *owner, const KeypadOptions &wanted) : q(owner), options(wanted) {}

    bool launchHost();
    void closeHost();
    /// The reply, or an object with "errno" or "error" when the keypad is gone.
    QJsonObject call(QJsonObject request, QList<int> *descriptors = nullptr, int msecs = callMsecs);
    QJsonObject call(const char *operation, const QString &path, QList<int> *descriptors = nullptr);
    bool fileCall(const char *operation, const QString &path);
    bool twoNames(const char *operation, const QString &path, const QString &to);
    QJsonObject sysfs(const char *what, const QString &path, const QByteArray &text = QByteArray(),
                      int number = 0, int error = 0);
    /// Takes in whatever has arrived. False when the keypad is gone.
    bool drain();
    void take(const Packet &packet);
    void takeLines(const QList<LogLine> &lines);
    /// Takes in what comes until @p done or @p msecs are over.
    template<typename Done> bool waitUntil(Done done, int msecs);
    bool failed(const QString &reason);

    bool openDisplay();
    QString toolPath() const;
    QJsonArray commandLine() const;
    QJsonArray environment() const;
    bool fillBoard();
    Screen *screen();
    bool writePlay(const QString &program);

    struct Play {
        QString play = QStringLiteral("auto");
        double seconds = 0;
        QByteArray hold;
    };

    VirtualKeypad *const q;
    const KeypadOptions options;
    QString error;
    Channel channel;
    QScopedPointer<QSocketNotifier> notifier;
    pid_t host = -1;
    int nextRequest = 1;
    QMap<int, Packet> replies;
    QMap<int, QList<int>> handedOver; ///< descriptors of replies that are still to come
    int line = -1;
    int events = -1;
    pid_t tool = 0;
    ExitStatus status;
    KeypadLog parser;
    QList<LogLine> log;
    QList<SysfsModel::Store> stores;
    QString display;
    QScopedPointer<Screen> screen_;
    QMap<QString, Play> plays;
};

bool VirtualKeypad::Private::failed(const QString &reason)
{
    error = reason;
    return false;
}

bool VirtualKeypad::Private::launchHost()
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return failed(QString::fromLocal8Bit(strerror(errno)));
    const int yes = 1;
    setsockopt(ends[0], SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes);
    const QString program = benchProgram(QStringLiteral("keypad-host"));
    host = spawnProgram(program, QStringList(), ends[1]);
    const int error_ = errno;
    close(ends[1]);
    channel = Channel(ends[0]);
    if (host < 0)
        return failed(QStringLiteral("cannot start %1: %2")
                          .arg(program, QString::fromLocal8Bit(strerror(error_))));
    QStringList visible = options.visible;
    visible.append(QFileInfo(toolPath()).path());
    visible.append(QStringLiteral(BENCH_SOURCE_DIR)); // suppression files of the sanitizers
    QList<int> descriptors;
    const QJsonObject reply =
        call(QJsonObject{{QStringLiteral("programs"), QFileInfo(program).path()},
                         {QStringLiteral("visible"), QJsonArray::fromStringList(visible)}},
             &descriptors);
    if (!descriptors.isEmpty())
        line = descriptors.first();
    const QString reason = reply.value(QLatin1String("error")).toString();
    if (!reason.isEmpty() || line < 0)
        return failed(reason.isEmpty() ? QStringLiteral("the keypad does not answer") : reason);
    notifier.reset(new QSocketNotifier(channel.fd(), QSocketNotifier::Read));
    QObject::connect(notifier.data(), SIGNAL(activated(int)), q, SLOT(drain()));
    return true;
}

void VirtualKeypad::Private::closeHost()
{
    notifier.reset();
    for (int *fd : {&line, &events}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
    if (channel.fd() >= 0)
        close(channel.fd());
    channel = Channel();
    if (host > 0)
        waitpid(host, nullptr, 0);
    host = -1;
    for (const Packet &packet : qAsConst(replies)) {
        for (const int fd : packet.descriptors)
            close(fd);
    }
    replies.clear();
    for (const QList<int> &descriptors : qAsConst(handedOver)) {
        for (const int fd : descriptors)
            close(fd);
    }
    handedOver.clear();
}

QJsonObject VirtualKeypad::Private::call(QJsonObject request, QList<int> *descriptors, int msecs)
{
    const int id = nextRequest++;
    request.insert(QStringLiteral("id"), id);
    Packet reply;
    reply.object.insert(QStringLiteral("errno"), EPIPE);
    if (channel.fd() >= 0 && channel.sendWaiting(request) &&
        waitUntil([this, id] { return replies.contains(id); }, msecs))
        reply = replies.take(id);
    if (descriptors != nullptr) {
        *descriptors = reply.descriptors;
        return reply.object;
    }
    for (const int fd : qAsConst(reply.descriptors))
        close(fd);
    return reply.object;
}

QJsonObject VirtualKeypad::Private::call(const char *operation, const QString &path,
                                         QList<int> *descriptors)
{
    return call(QJsonObject{{QStringLiteral("op"), QLatin1String(operation)},
                            {QStringLiteral("path"), path}},
                descriptors);
}

bool VirtualKeypad::Private::fileCall(const char *operation, const QString &path)
{
    const int number = call(operation, path).value(QLatin1String("errno")).toInt();
    if (number == 0)
        return true;
    error = path + QLatin1String(": ") + QString::fromLocal8Bit(strerror(number));
    errno = number;
    return false;
}

bool VirtualKeypad::Private::twoNames(const char *operation, const QString &path, const QString &to)
{
    const QJsonObject reply = call(QJsonObject{{QStringLiteral("op"), QLatin1String(operation)},
                                               {QStringLiteral("path"), path},
                                               {QStringLiteral("to"), to}});
    return reply.value(QLatin1String("errno")).toInt() == 0;
}

QJsonObject VirtualKeypad::Private::sysfs(const char *what, const QString &path,
                                          const QByteArray &text, int number, int errorNumber)
{
    return call(QJsonObject{{QStringLiteral("op"), QStringLiteral("sysfs")},
                            {QStringLiteral("call"), QLatin1String(what)},
                            {QStringLiteral("path"), path},
                            {QStringLiteral("text"), Channel::toText(text)},
                            {QStringLiteral("number"), number},
                            {QStringLiteral("errno"), errorNumber}});
}

bool VirtualKeypad::Private::drain()
{
    for (;;) {
        Packet packet;
        switch (channel.receive(&packet)) {
        case Channel::Done:
            take(packet);
            break;
        case Channel::WouldBlock:
            return true;
        case Channel::Closed:
            if (notifier)
                notifier->setEnabled(false);
            if (status.running) {
                status.running = false;
                tool = 0;
                Q_EMIT q->exited();
            }
            return false;
        }
    }
}

void VirtualKeypad::Private::take(const Packet &packet)
{
    const QJsonObject &object = packet.object;
    const QString event = object.value(QLatin1String("event")).toString();
    const qint64 usec = qint64(object.value(QLatin1String("usec")).toDouble());
    const int id = object.value(QLatin1String("id")).toInt();
    if (event.isEmpty()) {
        replies.insert(id, packet);
        replies[id].descriptors += handedOver.take(id);
    } else if (event == QLatin1String("descriptors")) {
        handedOver.insert(id, packet.descriptors);
    } else if (event == QLatin1String("store")) {
        SysfsModel::Store store;
        store.usec = usec;
        store.path = object.value(QLatin1String("path")).toString();
        store.text = Channel::toBytes(object.value(QLatin1String("text")));
        store.error = object.value(QLatin1String("errno")).toInt();
        stores.append(store);
        Q_EMIT q->stored(store);
    } else if (event == QLatin1String("output")) {
        takeLines(parser.take(Channel::toBytes(object.value(QLatin1String("text"))), usec));
    } else if (event == QLatin1String("process")) {
        tool = packet.sender;
        status = ExitStatus();
        status.running = true;
    } else if (event == QLatin1String("exit")) {
        takeLines(parser.finish(usec));
        tool = 0;
        status.running = false;
        status.code = object.value(QLatin1String("code")).toInt();
        status.signal = object.value(QLatin1String("signal")).toInt();
        Q_EMIT q->exited();
    }
}

void VirtualKeypad::Private::takeLines(const QList<LogLine> &lines)
{
    for (const LogLine &added : lines) {
        log.append(added);
        Q_EMIT q->logged(added);
    }
}

template<typename Done> bool VirtualKeypad::Private::waitUntil(Done done, int msecs)
{
    const QDeadlineTimer deadline(msecs);
    for (;;) {
        const bool alive = channel.fd() >= 0 && drain();
        if (done())
            return true;
        if (!alive || deadline.hasExpired())
            return false;
        channel.waitReadable(int(deadline.remainingTime()));
    }
}

QString VirtualKeypad::Private::toolPath() const
{
    const QString tool_ =
        options.tool.isEmpty() ? benchProgram(QStringLiteral("mftool")) : options.tool;
    const QString canonical = QFileInfo(tool_).canonicalFilePath();
    return canonical.isEmpty() ? tool_ : canonical;
}

QJsonArray VirtualKeypad::Private::commandLine() const
{
    QStringList all = options.wrapper;
    if (!all.isEmpty()) {
        const QString found = QStandardPaths::findExecutable(all.first());
        if (!found.isEmpty())
            all.first() = found;
    }
    all.append(toolPath());
    all.append(options.arguments);
    return QJsonArray::fromStringList(all);
}

QJsonArray VirtualKeypad::Private::environment() const
{
    QMap<QString, QString> variables = {
        // Only the stand-ins: a program of the PC's own must never be run by mistake.
        {QStringLiteral("PATH"), QLatin1String(BenchPlace::programs)},
        {QStringLiteral("HOME"), QStringLiteral("/root")},
        {QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8")},
        {QStringLiteral("XDG_RUNTIME_DIR"), QStringLiteral("/run/bench/xdg")},
        {QStringLiteral("QT_MESSAGE_PATTERN"), KeypadLog::pattern()},
        {QStringLiteral("QT_FORCE_STDERR_LOGGING"), QStringLiteral("1")},
    };
    const QProcessEnvironment own = QProcessEnvironment::systemEnvironment();
    const QStringList names = own.keys();
    for (const QString &name : names) {
        if (name.endsWith(QLatin1String("SAN_OPTIONS")))
            variables.insert(name, own.value(name));
    }
    switch (options.display.kind) {
    case KeypadDisplay::Offscreen:
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        break;
    case KeypadDisplay::Vnc:
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"),
                         QStringLiteral("vnc:size=800x480:port=%1").arg(options.display.port));
        break;
    case KeypadDisplay::Xvfb:
    case KeypadDisplay::Existing:
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        variables.insert(QStringLiteral("DISPLAY"), display);
        variables.insert(QStringLiteral("XAUTHORITY"), QStringLiteral("/run/bench/xauthority"));
        break;
    }
    if (!options.faketime.isEmpty()) {
        variables.insert(QStringLiteral("LD_PRELOAD"), faketimeLibrary());
        variables.insert(QStringLiteral("FAKETIME"), QStringLiteral("+0 ") + options.faketime);
        // The sanitizer's library need not be the first one here.
        QString &asan = variables[QStringLiteral("ASAN_OPTIONS")];
        asan +=
            QLatin1String(asan.isEmpty() ? "" : ":") + QLatin1String("verify_asan_link_order=0");
    }
    for (auto it = options.environment.constBegin(); it != options.environment.constEnd(); ++it)
        variables.insert(it.key(), it.value());
    QJsonArray strings;
    for (auto it = variables.constBegin(); it != variables.constEnd(); ++it)
        strings.append(it.key() + QLatin1Char('=') + it.value());
    return strings;
}

bool VirtualKeypad::Private::openDisplay()
{
    if (!options.faketime.isEmpty() && faketimeLibrary().isEmpty())
        return failed(QStringLiteral("libfaketime is not installed"));
    if (options.display.kind == KeypadDisplay::Xvfb) {
        if (!Xvfb::shared().start())
            return failed(Xvfb::shared().errorString());
        display = Xvfb::shared().display();
    } else if (options.display.kind == KeypadDisplay::Existing) {
        display =
            options.display.name.isEmpty() ? qEnvironmentVariable("DISPLAY") : options.display.name;
        if (display.isEmpty())
            return failed(QStringLiteral("there is no DISPLAY"));
    }
    return true;
}

bool VirtualKeypad::Private::fillBoard()
{
    const QStringList pictures = Pictures::names();
    for (const QString &name : pictures) {
        if (!q->writeFile(whole(QStringLiteral("/home/default"), name), Pictures::png(name)))
            return false;
    }
    // The permission to use the PC's display may lie in a place that the board's hide.
    QString authority = qEnvironmentVariable("XAUTHORITY");
    if (authority.isEmpty())
        authority = QDir::homePath() + QLatin1String("/.Xauthority");
    QFile cookies(authority);
    if (options.display.kind == KeypadDisplay::Existing && cookies.open(QIODevice::ReadOnly))
        q->writeFile(QStringLiteral("/run/bench/xauthority"), cookies.readAll(), 0600);

    events = q->openFile(QLatin1String(eventDevice), O_RDWR | O_NONBLOCK);
    if (!q->setCard(Writable))
        return false;
    for (const QString &path : options.without) {
        const bool gone =
            path.startsWith(QLatin1String("/sys/")) ? q->removeNode(path) : q->removeFile(path);
        if (!gone)
            return failed(QStringLiteral("cannot leave out ") + path);
    }
    return true;
}

Screen *VirtualKeypad::Private::screen()
{
    if (!screen_ && !display.isEmpty())
        screen_.reset(new Screen(display.toLatin1()));
    return screen_ && screen_->isValid() ? screen_.data() : nullptr;
}

bool VirtualKeypad::Private::writePlay(const QString &program)
{
    const Play &play = plays[program];
    QByteArray text = "play " + play.play.toUtf8() + '\n' + "seconds " +
                      QByteArray::number(play.seconds, 'f', 3) + '\n';
    if (!play.hold.isEmpty())
        text += "hold " + play.hold + '\n';
    const QString file = whole(QLatin1String(BenchPlace::plays), program);
    // The program may be reading it: as a whole or not at all.
    return q->writeFile(file + QLatin1String(".new"), text) &&
           twoNames("rename", file + QLatin1String(".new"), file);
}

VirtualKeypad::VirtualKeypad(const KeypadOptions &options, QObject *parent)
    : QObject(parent), d(new Private(this, options))
{
}

VirtualKeypad::~VirtualKeypad()
{
    blockSignals(true);
    stop();
}

QString VirtualKeypad::whyNot()
{
    static const QString reason = [] {
        VirtualKeypad trial;
        return trial.prepare() ? QString() : trial.errorString();
    }();
    return reason;
}

QString VirtualKeypad::whyNoDisplay(KeypadDisplay::Kind kind)
{
    KeypadOptions options;
    options.display.kind = kind;
    Private trial(nullptr, options);
    return trial.openDisplay() ? QString() : trial.error;
}

bool VirtualKeypad::prepare()
{
    stop();
    d->log.clear();
    d->stores.clear();
    d->plays.clear();
    d->status = ExitStatus();
    if (d->openDisplay() && d->launchHost() && d->fillBoard())
        return true;
    d->closeHost();
    return false;
}

bool VirtualKeypad::start()
{
    if (d->host < 0 && !prepare())
        return false;
    QJsonArray limits;
    for (const QPair<int, quint64> &limit : d->options.limits)
        limits.append(QJsonArray{limit.first, double(limit.second)});
    const QJsonObject reply =
        d->call(QJsonObject{{QStringLiteral("op"), QStringLiteral("start")},
                            {QStringLiteral("arguments"), d->commandLine()},
                            {QStringLiteral("environment"), d->environment()},
                            {QStringLiteral("directory"), d->options.workingDirectory},
                            {QStringLiteral("limits"), limits}});
    const int number = reply.value(QLatin1String("errno")).toInt();
    if (number == 0)
        return true;
    const QString program = d->options.wrapper.value(0, d->toolPath());
    return d->failed(QStringLiteral("cannot start %1: %2")
                         .arg(program, QString::fromLocal8Bit(strerror(number))));
}

void VirtualKeypad::stop()
{
    const bool wasRunning = d->status.running;
    d->closeHost();
    d->status.running = false;
    d->tool = 0;
    if (wasRunning)
        Q_EMIT exited();
}

QString VirtualKeypad::errorString() const
{
    return d->error;
}

bool VirtualKeypad::isRunning() const
{
    d->drain();
    return d->status.running;
}

bool VirtualKeypad::waitForExit(int msecs)
{
    return d->waitUntil([this] { return !d->status.running; }, msecs);
}

VirtualKeypad::ExitStatus VirtualKeypad::exitStatus()
{
    d->drain();
    return d->status;
}

qint64 VirtualKeypad::toolPid() const
{
    d->drain();
    return d->tool;
}

bool VirtualKeypad::kill(int signal)
{
    return isRunning() && ::kill(d->tool, signal) == 0;
}

int VirtualKeypad::lineFd() const
{
    return d->line;
}

QString VirtualKeypad::linePath()
{
    return d->call("bridge", QString()).value(QLatin1String("path")).toString();
}

void VirtualKeypad::hangUp()
{
    d->call("hangup", QString());
    if (d->line >= 0)
        close(d->line);
    d->line = -1;
}

QList<VirtualKeypad::LogLine> VirtualKeypad::log()
{
    d->drain();
    return d->log;
}

int VirtualKeypad::countLog(const QString &text)
{
    d->drain();
    return int(std::count_if(d->log.constBegin(), d->log.constEnd(),
                             [&text](const LogLine &line) { return line.text.contains(text); }));
}

bool VirtualKeypad::waitForLog(const QString &text, int msecs)
{
    return d->waitUntil([this, &text] { return countLog(text) > 0; }, msecs);
}

QList<VirtualKeypad::LogLine> VirtualKeypad::clearLog()
{
    d->drain();
    return std::exchange(d->log, {});
}

QByteArray VirtualKeypad::attribute(const QString &path)
{
    return Channel::toBytes(d->sysfs("show", path).value(QLatin1String("text")));
}

bool VirtualKeypad::setAttribute(const QString &path, const QByteArray &text)
{
    return d->sysfs("set", path, text).value(QLatin1String("ok")).toBool();
}

QList<SysfsModel::Store> VirtualKeypad::stores()
{
    // A store is reported before its writer goes on, and its report precedes this answer.
    d->call("ping", QString());
    return d->stores;
}

QList<SysfsModel::Store> VirtualKeypad::stores(const QString &path)
{
    QList<SysfsModel::Store> found;
    const QList<SysfsModel::Store> all = stores();
    for (const SysfsModel::Store &store : all) {
        if (store.path == path)
            found.append(store);
    }
    return found;
}

void VirtualKeypad::clearStores()
{
    d->call("ping", QString());
    d->stores.clear();
}

bool VirtualKeypad::waitForStore(const QString &path, const QByteArray &text, int msecs)
{
    return d->waitUntil(
        [this, &path, &text] {
            return std::any_of(d->stores.constBegin(), d->stores.constEnd(),
                               [&](const SysfsModel::Store &store) {
                                   return store.path == path && store.text == text;
                               });
        },
        msecs);
}

void VirtualKeypad::fail(const QString &path, SysfsModel::Operation operation, int error)
{
    d->sysfs("fail", path, QByteArray(), operation, error);
}

void VirtualKeypad::clearFault(const QString &path)
{
    d->sysfs("clear", path);
}

bool VirtualKeypad::addLed(const QString &name, int maximum)
{
    return d->sysfs("addLed", name, QByteArray(), maximum).value(QLatin1String("ok")).toBool();
}

bool VirtualKeypad::addAttribute(const QString &path, const QByteArray &text)
{
    return d->sysfs("add", path, text).value(QLatin1String("ok")).toBool();
}

bool VirtualKeypad::removeNode(const QString &path)
{
    return d->sysfs("remove", path).value(QLatin1String("ok")).toBool();
}

bool VirtualKeypad::hasNode(const QString &path)
{
    return d->sysfs("has", path).value(QLatin1String("ok")).toBool();
}

QByteArray VirtualKeypad::eventRecord(quint16 type, quint16 code, qint32 value)
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

void VirtualKeypad::pressHome()
{
    writeEvents(eventRecord(keyEvent, homeKey, 1) + eventRecord(synchronisationEvent, 0, 0));
}

void VirtualKeypad::releaseHome()
{
    writeEvents(eventRecord(keyEvent, homeKey, 0) + eventRecord(synchronisationEvent, 0, 0));
}

bool VirtualKeypad::writeEvents(const QByteArray &bytes)
{
    return write(d->events, bytes.constData(), size_t(bytes.size())) == bytes.size();
}

void VirtualKeypad::setTamper(bool active)
{
    setAttribute(QLatin1String(tamperLevel), active ? "1" : "0");
}

bool VirtualKeypad::setCard(Card kind, const QString &dir)
{
    const QString reason = d->call(QJsonObject{{QStringLiteral("op"), QStringLiteral("card")},
                                               {QStringLiteral("path"), dir},
                                               {QStringLiteral("kind"), cardName(kind)}})
                               .value(QLatin1String("error"))
                               .toString();
    return reason.isEmpty() || d->failed(reason);
}

bool VirtualKeypad::insertCard(const QString &dir, int msecs)
{
    return writeSdPipe('#' + dir.toUtf8() + '\n', msecs);
}

bool VirtualKeypad::removeCard(const QString &dir, int msecs)
{
    return writeSdPipe('!' + dir.toUtf8() + '\n', msecs);
}

bool VirtualKeypad::writeSdPipe(const QByteArray &bytes, int msecs)
{
    const QJsonObject reply = d->call(QJsonObject{{QStringLiteral("op"), QStringLiteral("sdpipe")},
                                                  {QStringLiteral("bytes"), Channel::toText(bytes)},
                                                  {QStringLiteral("msecs"), msecs}},
                                      nullptr, msecs + callMsecs);
    const int number = reply.value(QLatin1String("errno")).toInt();
    return number == 0 ||
           d->failed(QStringLiteral("/tmp/sdstat: ") + QString::fromLocal8Bit(strerror(number)));
}

bool VirtualKeypad::press(int x, int y)
{
    return move(x, y) && d->screen()->button(true);
}

bool VirtualKeypad::move(int x, int y)
{
    return d->screen() != nullptr ? d->screen()->move(x, y)
                                  : d->failed(QStringLiteral("there is no display to touch"));
}

bool VirtualKeypad::release()
{
    return d->screen() != nullptr ? d->screen()->button(false)
                                  : d->failed(QStringLiteral("there is no display to touch"));
}

bool VirtualKeypad::touch(int x, int y, int msecs)
{
    if (!press(x, y))
        return false;
    QThread::msleep(ulong(msecs));
    return release();
}

QString VirtualKeypad::displayName() const
{
    return d->display;
}

QImage VirtualKeypad::screen()
{
    return d->screen() != nullptr ? d->screen()->image() : QImage();
}

bool VirtualKeypad::screenshot(const QString &file)
{
    const QImage image = screen();
    if (image.isNull())
        return d->failed(QStringLiteral("there is no display to look at"));
    QImageWriter writer(file);
    return writer.write(image) ||
           d->failed(QStringLiteral("cannot write %1: %2").arg(file, writer.errorString()));
}

QRgb VirtualKeypad::pixel(int x, int y)
{
    const QImage image = screen();
    return image.valid(x, y) ? image.pixel(x, y) : 0;
}

bool VirtualKeypad::waitForPixel(int x, int y, QRgb colour, int msecs)
{
    const QDeadlineTimer deadline(msecs);
    while ((pixel(x, y) & 0xffffff) != (colour & 0xffffff)) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(stepMsecs);
    }
    return true;
}

int VirtualKeypad::openFile(const QString &path, int flags, unsigned mode)
{
    QList<int> descriptors;
    const QJsonObject reply = d->call(QJsonObject{{QStringLiteral("op"), QStringLiteral("open")},
                                                  {QStringLiteral("path"), path},
                                                  {QStringLiteral("flags"), flags},
                                                  {QStringLiteral("mode"), int(mode)}},
                                      &descriptors);
    if (!descriptors.isEmpty())
        return descriptors.first();
    const int number = reply.value(QLatin1String("errno")).toInt();
    d->error = path + QLatin1String(": ") + QString::fromLocal8Bit(strerror(number));
    errno = number;
    return -1;
}

QByteArray VirtualKeypad::readFile(const QString &path, bool *ok)
{
    const int fd = openFile(path, O_RDONLY);
    if (ok != nullptr)
        *ok = fd >= 0;
    if (fd < 0)
        return QByteArray();
    const QByteArray content = readAll(fd);
    close(fd);
    return content;
}

bool VirtualKeypad::writeFile(const QString &path, const QByteArray &bytes, unsigned mode)
{
    const int fd = openFile(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
    if (fd < 0)
        return false;
    const ssize_t written = write(fd, bytes.constData(), size_t(bytes.size()));
    const int number = written == bytes.size() ? 0 : written < 0 ? errno : EIO;
    close(fd);
    errno = number;
    return number == 0 ||
           d->failed(path + QLatin1String(": ") + QString::fromLocal8Bit(strerror(number)));
}

bool VirtualKeypad::exists(const QString &path)
{
    return d->fileCall("exists", path);
}

bool VirtualKeypad::removeFile(const QString &path)
{
    return d->fileCall("remove", path);
}

bool VirtualKeypad::makeDir(const QString &path)
{
    return d->fileCall("mkdir", path);
}

QStringList VirtualKeypad::listDir(const QString &path)
{
    QStringList names;
    const QJsonArray found = d->call("list", path).value(QLatin1String("names")).toArray();
    for (const QJsonValue &name : found)
        names.append(name.toString());
    names.sort();
    return names;
}

VirtualKeypad::RunResult VirtualKeypad::run(const QString &program, const QStringList &arguments,
                                            int msecs)
{
    RunResult result;
    QList<int> descriptors;
    const QJsonObject reply =
        d->call(QJsonObject{{QStringLiteral("op"), QStringLiteral("run")},
                            {QStringLiteral("arguments"),
                             QJsonArray::fromStringList(QStringList(program) + arguments)}},
                &descriptors, msecs);
    result.code = reply.value(QLatin1String("code")).toInt(-1);
    result.signal = reply.value(QLatin1String("signal")).toInt();
    QByteArray *const outputs[] = {&result.output, &result.errors};
    for (int i = 0; i < descriptors.size(); ++i) {
        lseek(descriptors.at(i), 0, SEEK_SET);
        *outputs[i] = readAll(descriptors.at(i));
        close(descriptors.at(i));
    }
    return result;
}

bool VirtualKeypad::setStandin(const QString &program, const QString &play)
{
    const QString path = whole(QLatin1String(BenchPlace::programs), program);
    if (play == QLatin1String("missing"))
        return removeFile(path);
    if (!exists(path) && !d->twoNames("symlink", QStringLiteral("../keypad-standin"), path))
        return false;
    d->plays[program].play = play;
    return d->writePlay(program);
}

bool VirtualKeypad::setStandinSeconds(const QString &program, double seconds)
{
    d->plays[program].seconds = seconds;
    return d->writePlay(program);
}

bool VirtualKeypad::holdStandin(const QString &program, const QByteArray &text)
{
    d->plays[program].hold = text;
    return d->writePlay(program);
}

bool VirtualKeypad::releaseStandin(const QString &program)
{
    return holdStandin(program, QByteArray());
}

QList<VirtualKeypad::StandinCall> VirtualKeypad::standinCalls()
{
    const QString folder = QLatin1String(BenchPlace::calls);
    QList<StandinCall> calls;
    const QStringList names = listDir(folder);
    for (const QString &name : names) {
        if (name.startsWith(QLatin1Char('.')))
            continue;
        QList<QByteArray> parts = readFile(whole(folder, name)).split('\0');
        StandinCall call;
        call.program = name.mid(name.indexOf(QLatin1Char('-')) + 1);
        call.workingDirectory = QString::fromUtf8(parts.takeFirst());
        while (!parts.isEmpty() && !parts.first().isEmpty())
            call.arguments.append(QString::fromUtf8(parts.takeFirst()));
        for (const QByteArray &variable : qAsConst(parts)) {
            const int equals = int(variable.indexOf('='));
            if (equals > 0)
                call.environment.insert(QString::fromUtf8(variable.left(equals)),
                                        QString::fromUtf8(variable.mid(equals + 1)));
        }
        calls.append(call);
    }
    return calls;
}

void VirtualKeypad::drain()
{
    d->drain();
}
