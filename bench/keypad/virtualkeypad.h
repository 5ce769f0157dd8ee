/// A keypad that exists only as a process tree: the unmodified tool runs in a
/// mount and PID namespace of its own, where every path of the board leads to
/// something that plays the board.
///
///     VirtualKeypad keypad;                       // QSKIP when whyNot() says something
///     QVERIFY2(keypad.start(), qPrintable(keypad.errorString()));
///     Station station(keypad.lineFd());           // the other end of /dev/ttySP0
///     ...
///     QVERIFY(keypad.waitForStore("/sys/class/leds/ready/brightness", "255"));
///     QVERIFY(keypad.waitForLog("Waiting for SD event"));
///     QVERIFY(keypad.waitForExit());
///     QCOMPARE(keypad.exitStatus().code, 0);
///
/// Two phases: prepare() builds the board without starting the tool, so that a test can
/// remove things, write files or plant faults; start() runs the tool (and prepares first
/// if that has not been done). The keypad is gone, with all its processes and mounts,
/// when the object is destroyed, and also when the process that made it dies in any way.
///
/// What the tool finds (paths below are always the tool's paths):
///   /dev/ttySP0            a pty, raw before the tool opens it
///   /dev/input/event0      a FIFO carrying the board's 16-byte records
///   /sys                   SysfsModel behind FUSE
///   /tmp /run /root /mnt   empty
///   /boot                  update folder "fw-1.2" with imx28_ivt_linux.sb and qm8velrootfs.ubi
///   /etc                   the PC's, changes stay in the keypad
///   /home/default          the logo tarnwick.png and the test images, see pictures.h
///   /usr/lib/panel/version "20140101 1.2\n"
///   /media/mmcblk0p1       the card's mount point, see setCard()
///   kobs-ng ubiformat ubiattach mount   the only programs on the search path: stand-ins
/// Everything else is the PC's own root file system, at its usual place. The tool's
/// folder is visible at its own path wherever it is, and the tool runs even if a folder
/// above it is left out.
///
/// No call needs an event loop; calls that wait do so by themselves. With an event loop
/// running the signals are delivered as things happen.
#ifndef BENCH_KEYPAD_VIRTUALKEYPAD_H
#define BENCH_KEYPAD_VIRTUALKEYPAD_H

#include "bench/keypad/hostclient.h"
#include "bench/keypad/keypadboard.h"
#include "bench/keypad/keypadhand.h"
#include "bench/keypad/keypadlog.h"
#include "bench/keypad/keypadlook.h"
#include "bench/keypad/keypadstandins.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QScopedPointer>
#include <QStringList>

QT_BEGIN_NAMESPACE
class QSocketNotifier;
QT_END_NAMESPACE

struct KeypadOptions {
    QString tool;          ///< program to run; empty means mftool of this build
    QStringList arguments; ///< of the tool
    /// Added to the tool's environment, which is otherwise the bench's choice and
    /// holds nothing of the caller's except *SAN_OPTIONS.
    QMap<QString, QString> environment;
    QString workingDirectory = QStringLiteral("/");
    /// Speed of time for the tool as libfaketime takes it ("x60": sixty times faster);
    /// empty leaves the time alone.
    QString faketime;
    KeypadDisplay display;
    QStringList wrapper; ///< program and arguments put before the tool, for example valgrind
    /// Resource limits of the tool: RLIMIT_... and the value for both limits.
    QList<QPair<int, quint64>> limits;
    /// Folders or files of the PC to show at the same path in the keypad, needed only for paths
    /// below /tmp, /run, /root, /mnt, /boot, /etc, /dev, /home/default.
    QStringList visible;
    /// Board paths to leave out before the tool starts, for example "/dev/ttySP0",
    /// "/home/default/tarnwick.png" or "/sys/class/leds/ready".
    QStringList without;
};

/// A test calls all of this on the keypad: `keypad.writeFile()` comes from KeypadBoard,
/// `keypad.touch()` from KeypadHand.
class VirtualKeypad : public QObject,
                      private HostClient,
                      public KeypadBoard,
                      public KeypadLook,
                      public KeypadHand,
                      public KeypadStandins
{
    Q_OBJECT

public:
    /// One message of the tool, or one line it (or a library) wrote without Qt.
    typedef KeypadLog::Line LogLine;

    struct ExitStatus {
        bool running = false;
        int code = -1;  ///< exit status, -1 while running and after a signal
        int signal = 0; ///< that ended the tool, 0 if none
    };

    explicit VirtualKeypad(const KeypadOptions &options = KeypadOptions(),
                           QObject *parent = nullptr);
    ~VirtualKeypad() override;

    /// Empty when virtual keypads can run here, else the reason in one line. Tried
    /// once per process.
    static QString whyNot();

    /// Builds the board. False with errorString() when it cannot be built.
    bool prepare();
    /// Runs the tool; it can run again after it ended. False with errorString().
    bool start();
    /// Ends the tool and removes the board. start() builds a new one.
    void stop();
    using HostClient::errorString;

    bool isRunning();
    bool waitForExit(int msecs = 20000);
    /// Of the tool's latest run.
    ExitStatus exitStatus();
    /// The tool's process as the caller sees it: /proc/<pid>/fd, smaps and so on. 0 when not
    /// running.
    qint64 toolPid();
    /// Sends @p signal to the tool. False when it is not running.
    bool kill(int signal);

    // The serial line.

    /// The master of the tool's pty, blocking, owned by the keypad; -1 after hangUp().
    using HostClient::lineFd;
    /// A pty that any program of the PC can open to talk with the tool. From the
    /// first call on the bytes are carried by the bench and lineFd() is not to be
    /// read. The bytes of one write may reach the other side in one piece or more.
    QString linePath();
    /// Closes the far end, as unplugging a USB adapter does: a read that waits fails with
    /// EIO, later reads give nothing, writes fail with EIO.
    void hangUp();

    // The log.

    QList<LogLine> log();
    /// Waits until a message that contains @p text has been logged since the
    /// keypad was prepared, or since clearLog().
    bool waitForLog(const QString &text, int msecs = 20000);
    int countLog(const QString &text);
    /// @return what was in it
    QList<LogLine> clearLog();

    // What the tool stored in the virtual /sys.

    QList<SysfsModel::Store> stores();
    QList<SysfsModel::Store> stores(const QString &path);
    void clearStores();
    bool waitForStore(const QString &path, const QByteArray &text, int msecs = 20000);

signals:
    void logged(const VirtualKeypad::LogLine &line);
    void stored(const SysfsModel::Store &store);
    /// The tool ended; exitStatus() says how.
    void exited();

private slots:
    void takeIn();

private:
    Q_DISABLE_COPY(VirtualKeypad)

    void happened(HostProtocol::Event event, const Packet &packet) override;
    void lost() override;
    void takeLines(const QList<LogLine> &lines);
    void end();

    QString toolPath() const;
    QString toolPathInKeypad() const;
    QJsonArray commandLine() const;
    QJsonArray environment() const;
    bool checkFaketime();
    bool launchHost();
    bool fillBoard();

    const KeypadOptions m_options;
    QScopedPointer<QSocketNotifier> m_notifier;
    pid_t m_tool = 0;
    ExitStatus m_status;
    KeypadLog m_parser;
    QList<LogLine> m_log;
    QList<SysfsModel::Store> m_stores;
};

#endif
