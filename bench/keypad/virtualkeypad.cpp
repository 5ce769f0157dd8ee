#include "bench/keypad/virtualkeypad.h"

#include "bench/keypad/pictures.h"
#include "bench/keypad/spawn.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcessEnvironment>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <algorithm>
#include <csignal>
#include <utility>

using namespace HostProtocol;

namespace
{

QString whole(const QString &folder, const QString &name)
{
    return folder + QLatin1Char('/') + name;
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

VirtualKeypad::VirtualKeypad(const KeypadOptions &options, QObject *parent)
    : QObject(parent), KeypadBoard(this), KeypadLook(this), KeypadHand(this, this, this),
      KeypadStandins(this), m_options(options)
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

QString VirtualKeypad::toolPath() const
{
    const QString tool =
        m_options.tool.isEmpty() ? benchProgram(QStringLiteral("mftool")) : m_options.tool;
    const QString canonical = QFileInfo(tool).canonicalFilePath();
    return canonical.isEmpty() ? tool : canonical;
}

/// Its own path, unless a folder above it is left out.
QString VirtualKeypad::toolPathInKeypad() const
{
    const QString path = toolPath();
    for (const QString &place : m_options.without) {
        if (path.startsWith(place + QLatin1Char('/')))
            return QLatin1String(BenchPlace::tool) + QLatin1Char('/') + QFileInfo(path).fileName();
    }
    return path;
}

QJsonArray VirtualKeypad::commandLine() const
{
    QStringList all = m_options.wrapper;
    if (!all.isEmpty()) {
        const QString found = QStandardPaths::findExecutable(all.first());
        if (!found.isEmpty())
            all.first() = found;
    }
    all.append(toolPathInKeypad());
    all.append(m_options.arguments);
    return QJsonArray::fromStringList(all);
}

QJsonArray VirtualKeypad::environment() const
{
    QMap<QString, QString> variables = {
        // Only the stand-ins: the PC's own programs must never be run by mistake.
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
    switch (m_options.display.kind) {
    case KeypadDisplay::Offscreen:
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        break;
    case KeypadDisplay::Vnc:
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"),
                         QStringLiteral("vnc:size=800x480:port=%1").arg(m_options.display.port));
        break;
    case KeypadDisplay::Xvfb:
    case KeypadDisplay::Existing:
        variables.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        variables.insert(QStringLiteral("DISPLAY"), displayName());
        variables.insert(QStringLiteral("XAUTHORITY"), QStringLiteral("/run/bench/xauthority"));
        break;
    }
    if (!m_options.faketime.isEmpty()) {
        variables.insert(QStringLiteral("LD_PRELOAD"), faketimeLibrary());
        variables.insert(QStringLiteral("FAKETIME"), QStringLiteral("+0 ") + m_options.faketime);
        // The sanitizer's library may not be the first one here.
        QString &asan = variables[QStringLiteral("ASAN_OPTIONS")];
        asan +=
            QLatin1String(asan.isEmpty() ? "" : ":") + QLatin1String("verify_asan_link_order=0");
    }
    for (auto it = m_options.environment.constBegin(); it != m_options.environment.constEnd(); ++it)
        variables.insert(it.key(), it.value());
    QJsonArray strings;
    for (auto it = variables.constBegin(); it != variables.constEnd(); ++it)
        strings.append(it.key() + QLatin1Char('=') + it.value());
    return strings;
}

bool VirtualKeypad::checkFaketime()
{
    return m_options.faketime.isEmpty() || !faketimeLibrary().isEmpty() ||
           failed(QStringLiteral("libfaketime is not installed"));
}

bool VirtualKeypad::launchHost()
{
    QStringList visible = m_options.visible;
    const QString toolDir = QFileInfo(toolPath()).path();
    visible.append(toolDir);
    visible.append(QStringLiteral(BENCH_SOURCE_DIR)); // suppression files of the sanitizers
    if (!launch(toolDir, visible))
        return false;
    m_notifier.reset(new QSocketNotifier(channelFd(), QSocketNotifier::Read));
    connect(m_notifier.data(), SIGNAL(activated(int)), SLOT(takeIn()));
    return true;
}

bool VirtualKeypad::fillBoard()
{
    const QStringList pictures = Pictures::names();
    for (const QString &name : pictures) {
        if (!writeFile(whole(QStringLiteral("/home/default"), name), Pictures::png(name)))
            return false;
    }
    // The permission to use the PC's display may be in a folder that the board's hide.
    QString authority = qEnvironmentVariable("XAUTHORITY");
    if (authority.isEmpty())
        authority = QDir::homePath() + QLatin1String("/.Xauthority");
    QFile cookies(authority);
    if (m_options.display.kind == KeypadDisplay::Existing && cookies.open(QIODevice::ReadOnly))
        writeFile(QStringLiteral("/run/bench/xauthority"), cookies.readAll(), 0600);

    openEvents();
    if (!setCard(Writable))
        return false;
    for (const QString &path : m_options.without) {
        const bool gone =
            path.startsWith(QLatin1String("/sys/")) ? removeNode(path) : removeFile(path);
        if (!gone)
            return failed(QStringLiteral("cannot leave out ") + path);
    }
    return true;
}

bool VirtualKeypad::prepare()
{
    stop();
    m_log.clear();
    m_stores.clear();
    resetStandins();
    m_status = ExitStatus();
    if (checkFaketime() && openDisplay(m_options.display) && launchHost() && fillBoard())
        return true;
    end();
    return false;
}

bool VirtualKeypad::start()
{
    if (!isLaunched() && !prepare())
        return false;
    QJsonArray limits;
    for (const QPair<int, quint64> &limit : m_options.limits)
        limits.append(QJsonArray{limit.first, double(limit.second)});
    const QJsonObject reply = call(Operation::Start, {{Key::Arguments, commandLine()},
                                                      {Key::Environment, environment()},
                                                      {Key::Directory, m_options.workingDirectory},
                                                      {Key::Limits, limits}});
    const QString program = m_options.wrapper.value(0, toolPath());
    return succeeded(QStringLiteral("cannot start ") + program, reply.value(Key::Error).toInt());
}

void VirtualKeypad::end()
{
    m_notifier.reset();
    closeEvents();
    close();
}

void VirtualKeypad::stop()
{
    const bool wasRunning = m_status.running;
    end();
    m_status.running = false;
    m_tool = 0;
    if (wasRunning)
        emit exited();
}

void VirtualKeypad::happened(Event event, const Packet &packet)
{
    const QJsonObject &object = packet.object;
    const qint64 usec = qint64(object.value(Key::Usec).toDouble());
    if (event == Event::Store) {
        SysfsModel::Store store;
        store.usec = usec;
        store.path = object.value(Key::Path).toString();
        store.text = Channel::toBytes(object.value(Key::Text));
        store.error = object.value(Key::Error).toInt();
        m_stores.append(store);
        emit stored(store);
    } else if (event == Event::Output) {
        takeLines(m_parser.take(Channel::toBytes(object.value(Key::Text)), usec));
    } else if (event == Event::Process) {
        m_tool = packet.sender;
        m_status = ExitStatus();
        m_status.running = true;
    } else if (event == Event::Exit) {
        takeLines(m_parser.finish(usec));
        m_tool = 0;
        m_status.running = false;
        m_status.code = object.value(Key::Code).toInt();
        m_status.signal = object.value(Key::Signal).toInt();
        emit exited();
    }
}

void VirtualKeypad::lost()
{
    if (m_notifier)
        m_notifier->setEnabled(false);
    if (!m_status.running)
        return;
    m_status.running = false;
    m_tool = 0;
    emit exited();
}

void VirtualKeypad::takeLines(const QList<LogLine> &lines)
{
    for (const LogLine &added : lines) {
        m_log.append(added);
        emit logged(added);
    }
}

bool VirtualKeypad::isRunning()
{
    drain();
    return m_status.running;
}

bool VirtualKeypad::waitForExit(int msecs)
{
    return waitUntil([this] { return !m_status.running; }, msecs);
}

VirtualKeypad::ExitStatus VirtualKeypad::exitStatus()
{
    drain();
    return m_status;
}

qint64 VirtualKeypad::toolPid()
{
    drain();
    return m_tool;
}

bool VirtualKeypad::kill(int signal)
{
    return isRunning() && ::kill(m_tool, signal) == 0;
}

QString VirtualKeypad::linePath()
{
    return call(Operation::Bridge).value(Key::Path).toString();
}

void VirtualKeypad::hangUp()
{
    call(Operation::HangUp);
    closeLine();
}

QList<VirtualKeypad::LogLine> VirtualKeypad::log()
{
    drain();
    return m_log;
}

int VirtualKeypad::countLog(const QString &text)
{
    drain();
    return int(std::count_if(m_log.constBegin(), m_log.constEnd(),
                             [&text](const LogLine &line) { return line.text.contains(text); }));
}

bool VirtualKeypad::waitForLog(const QString &text, int msecs)
{
    return waitUntil([this, &text] { return countLog(text) > 0; }, msecs);
}

QList<VirtualKeypad::LogLine> VirtualKeypad::clearLog()
{
    drain();
    return std::exchange(m_log, {});
}

QList<SysfsModel::Store> VirtualKeypad::stores()
{
    // A store is reported before its writer goes on, and its report precedes this answer.
    call(Operation::Ping);
    return m_stores;
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
    call(Operation::Ping);
    m_stores.clear();
}

bool VirtualKeypad::waitForStore(const QString &path, const QByteArray &text, int msecs)
{
    return waitUntil(
        [this, &path, &text] {
            return std::any_of(m_stores.constBegin(), m_stores.constEnd(),
                               [&](const SysfsModel::Store &store) {
                                   return store.path == path && store.text == text;
                               });
        },
        msecs);
}

void VirtualKeypad::takeIn()
{
    drain();
}
