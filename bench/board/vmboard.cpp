#include "bench/board/vmboard.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const char emulator[] = "qemu-system-arm";
const int sliceMs = 200;        ///< between two looks at what announces nothing
const int lastWordsMs = 120000; ///< from the start of the tool to its first frame

/// The journal's file appears with the journal.
const char followJournal[] = "until ls /run/log/journal/*/system.journal; do sleep 0.3; done "
                             ">/dev/null 2>&1; "
                             "exec journalctl --follow --lines=all --output=json --unit=mftool";

/// Two connected sockets; the second is to be inherited by the emulator.
bool makePair(int *ends)
{
    return socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0 &&
           fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0;
}

/// How the emulator is started. It hands a frame to a UART in pieces, each after the board
/// has taken the last. On a busy PC the next may come too late, and the board takes the
/// frame for complete. So both share one processor: the board cannot run ahead of the
/// emulator.
QStringList launcher(VmBoardOptions::Line line)
{
    // The emulator must not outlive the bench, however that ends.
    QStringList all = {"setpriv", "--pdeathsig", "KILL"};
    const int processor = sched_getcpu();
    if (line == VmBoardOptions::Uart && processor >= 0)
        all << "taskset"
            << "--cpu-list" << QString::number(processor);
    return all << emulator;
}

void closePair(int *ends)
{
    for (int i = 0; i < 2; ++i) {
        if (ends[i] >= 0)
            close(ends[i]);
        ends[i] = -1;
    }
}

} // namespace

VmBoard::VmBoard(const VmBoardOptions &options, QObject *parent)
    : QObject(parent), m_options(options)
{
    connect(&m_agent, SIGNAL(stored(QByteArray)), SLOT(takeStore(QByteArray)));
    connect(&m_agent, SIGNAL(printed(int, QByteArray)), SLOT(takeLine(int, QByteArray)));
}

VmBoard::~VmBoard()
{
    powerOff();
    closePair(m_line);
    if (m_lock >= 0)
        close(m_lock);
}

bool VmBoard::failed(const QString &reason)
{
    m_error = reason;
    return false;
}

bool VmBoard::isInterrupted() const
{
    return m_options.isInterrupted && m_options.isInterrupted();
}

QString VmBoard::path(const char *name) const
{
    return m_dir.filePath(QLatin1String(name));
}

bool VmBoard::prepare()
{
    if (!m_dir.isValid())
        return failed(m_dir.errorString());
    if (!makePair(m_line))
        return failed(QString::fromLocal8Bit(strerror(errno)));
    if (!lockImage())
        return failed(m_options.image + QLatin1String(" has gone"));
    // The board's end is kept open here, too: otherwise a board without power would look
    // like a line that hung up. The emulator gets a copy.
    fcntl(m_line[1], F_SETFD, FD_CLOEXEC);
    return makeDisk();
}

/// Locks the image, so that it is not removed when another board is made.
bool VmBoard::lockImage()
{
    if (m_lock >= 0)
        return true;
    const QByteArray file = QFile::encodeName(m_options.image + QLatin1String("/complete"));
    m_lock = open(file.constData(), O_RDONLY | O_CLOEXEC);
    struct stat status;
    return m_lock >= 0 && flock(m_lock, LOCK_SH | LOCK_NB) == 0 && fstat(m_lock, &status) == 0 &&
           status.st_nlink > 0;
}

bool VmBoard::makeDisk()
{
    QProcess make;
    make.setProcessChannelMode(QProcess::MergedChannels);
    make.start(QStringLiteral("qemu-img"),
               {QStringLiteral("create"), QStringLiteral("-q"), QStringLiteral("-f"),
                QStringLiteral("qcow2"), QStringLiteral("-F"), QStringLiteral("qcow2"),
                QStringLiteral("-b"), m_options.image + QLatin1String("/disk.qcow2"),
                path("disk.qcow2")});
    if (!make.waitForStarted())
        return failed(QStringLiteral("qemu-img cannot be started; "
                                     "scripts/install-packages.sh board"));
    make.waitForFinished(-1);
    return make.exitCode() == 0 ||
           failed(QStringLiteral("qemu-img: ") + QString::fromLocal8Bit(make.readAll().trimmed()));
}

QStringList VmBoard::command(int lineFd, int agentFd, int monitorFd) const
{
    const auto socket = [](const char *name, int fd) {
        return QStringLiteral("socket,id=%1,fd=%2").arg(QLatin1String(name)).arg(fd);
    };
    QString kernel = QStringLiteral("console=ttyAMA0 quiet panic=-1 vt.global_cursor_default=0");
    if (!m_options.late.isEmpty())
        kernel += QLatin1String(" keypad.late=") + m_options.late.join(QLatin1Char(','));
    const QString folder = m_options.image + QLatin1String("/kernel/");
    QStringList all = launcher(m_options.line);
    // The board's clock goes by its instructions, a nanosecond each, and by the PC's only
    // while the board is idle: on a PC that is busy its timers go slower with it.
    all += QStringList{
        "-machine",    "virt,highmem=off",
        "-cpu",        "cortex-a15",
        "-icount",     "shift=0,sleep=on",
        "-m",          "384",
        "-nodefaults", "-no-reboot",
        "-display",    "none",
        "-serial",     "file:" + path("console"),
        "-kernel",     folder + "vmlinuz",
        "-initrd",     folder + "initrd",
        "-append",     kernel,
        "-drive",      "file=" + path("disk.qcow2") + ",format=qcow2,if=none,id=disk,cache=unsafe",
        "-device",     "virtio-blk-pci,drive=disk",
        "-device",     "virtio-rng-pci",
        "-device",     "bochs-display,edid=on,xres=800,yres=480,romfile=",
        "-device",     "virtio-serial-pci",
        "-chardev",    socket("agent", agentFd),
        "-device",     "virtserialport,chardev=agent,name=keypad.agent",
        "-chardev",    socket("monitor", monitorFd),
        "-mon",        "chardev=monitor,mode=control",
    };
    // "mux" puts a buffer before the UART, from which it is filled as soon as the board
    // takes something, without the emulator's main loop. It means that a Ctrl-A of the
    // station, which no frame has, would be lost.
    if (m_options.line == VmBoardOptions::Usb)
        all += QStringList{"-chardev", socket("line", lineFd),   "-device", "qemu-xhci",
                           "-device",  "usb-serial,chardev=line"};
    else
        all += QStringList{"-chardev", socket("line", lineFd) + ",mux=on", "-device",
                           "pci-serial,chardev=line"};
    return all;
}

bool VmBoard::start()
{
    int agent[2] = {-1, -1};
    int monitor[2] = {-1, -1};
    const int line = dup(m_line[1]);
    if (line < 0 || !makePair(agent) || !makePair(monitor))
        return failed(QString::fromLocal8Bit(strerror(errno)));
    m_emulator.setProcessChannelMode(QProcess::MergedChannels);
    m_emulator.setStandardOutputFile(path("emulator"));
    QStringList all = command(line, agent[1], monitor[1]);
    const QString program = all.takeFirst();
    m_emulator.start(program, all);
    const bool started = m_emulator.waitForStarted();
    close(line);
    close(agent[1]);
    close(monitor[1]);
    if (!started) {
        close(agent[0]);
        close(monitor[0]);
        return failed(program + QLatin1String(" cannot be started"));
    }
    const bool open = m_agent.open(agent[0]);
    return (m_monitor.open(monitor[0]) && open) ||
           failed(QStringLiteral("%1: %2").arg(QLatin1String(emulator),
                                               QString::fromLocal8Bit(console().trimmed())));
}

bool VmBoard::powerOn()
{
    if (isOn())
        return true;
    m_stores.clear();
    m_started = false;
    m_ending = Ending();
    drainLine();
    if (!start()) {
        powerOff();
        return false;
    }
    const QDeadlineTimer deadline(BootLimitMs);
    while (!m_agent.isThere()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        m_emulator.waitForFinished(sliceMs);
        if (!isOn())
            return failed(QStringLiteral("the emulator ended: %1")
                              .arg(QString::fromLocal8Bit(console().right(500))));
        if (deadline.hasExpired() || isInterrupted())
            return failed(QStringLiteral("the board does not boot: %1")
                              .arg(QString::fromLocal8Bit(console().right(500))));
    }
    m_journal = m_agent.follow(followJournal);
    return true;
}

void VmBoard::powerOff()
{
    m_agent.close();
    m_monitor.close();
    m_emulator.kill();
    m_emulator.waitForFinished(-1);
}

/// What the board said before it was switched off.
void VmBoard::drainLine()
{
    char bytes[1024];
    while (recv(m_line[0], bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
    while (recv(m_line[1], bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
    }
}

bool VmBoard::waitForTool(int limitMs)
{
    QDeadlineTimer deadline(limitMs);
    bool started = false;
    for (;;) {
        pollfd line = {m_line[0], POLLIN, 0};
        if (m_started && !started) {
            started = true;
            deadline = std::min(deadline, QDeadlineTimer(lastWordsMs));
        }
        if (started && (poll(&line, 1, 0) == 1 || m_ending.known))
            return true;
        if (!isOn() || deadline.hasExpired() || isInterrupted())
            return failed(QStringLiteral("the tool was not started in %1 s").arg(limitMs / 1000));
        // Without the event loop: the station must be the first to read the line.
        m_agent.ask("sync");
        m_emulator.waitForFinished(sliceMs);
    }
}

bool VmBoard::run(const QByteArray &script)
{
    const Agent::Answer answer = m_agent.run(script);
    if (answer.ok())
        return true;
    return failed(answer.came ? QString::fromUtf8(answer.output.trimmed())
                              : QStringLiteral("the board does not answer"));
}

QList<VmBoard::Store> VmBoard::stores()
{
    m_agent.ask("sync");
    return m_stores;
}

QImage VmBoard::screen()
{
    const QString file = path("screen");
    if (!m_monitor.execute(QStringLiteral("screendump"),
                           QJsonObject{{QStringLiteral("filename"), file}})) {
        m_error = m_monitor.errorString();
        return QImage();
    }
    return QImage(file, "PPM");
}

QByteArray VmBoard::console() const
{
    QByteArray all;
    for (const char *name : {"emulator", "console"}) {
        QFile file(path(name));
        if (file.open(QIODevice::ReadOnly))
            all += file.readAll();
    }
    return all;
}

void VmBoard::takeStore(const QByteArray &line)
{
    const QList<QByteArray> words = line.split(' ');
    if (words.size() != 3)
        return;
    Store store;
    store.error = -words.at(0).toInt();
    store.path = QString::fromUtf8(words.at(1));
    store.text = QString::fromLatin1(words.at(2));
    m_stores.append(store);
}

void VmBoard::takeLine(int mark, const QByteArray &line)
{
    Journal::Entry entry;
    if (mark != m_journal || !Journal::read(line, &entry))
        return;
    m_log.append(entry);
    if (entry.event == Journal::Started) {
        m_started = true;
        m_ending = Ending();
    } else if (entry.event == Journal::Ended && !m_ending.known) {
        m_ending.known = true;
        m_ending.status = entry.status;
        m_ending.signal = entry.signal;
    }
    emit logged();
}
