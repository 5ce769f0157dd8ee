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
/// Two phases: prepare() builds the board without starting the tool, so that a
/// test can take things away, write files or plant faults; start() runs the
/// tool (and prepares first if nobody has). The keypad is gone, with all its
/// processes and mounts, when the object is destroyed and also when the process
/// that made it dies in any way.
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
/// Everything else is the PC's own root file system, at its usual place; the
/// tool's folder is visible at its own path wherever it is.
///
/// No call needs an event loop: the calls that wait, wait by themselves. With an
/// event loop running the signals are delivered as things happen.
#ifndef BENCH_KEYPAD_VIRTUALKEYPAD_H
#define BENCH_KEYPAD_VIRTUALKEYPAD_H

#include "bench/keypad/keypadlog.h"
#include "bench/keypad/sysfsmodel.h"

#include <QImage>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QScopedPointer>
#include <QStringList>

/// What the tool is drawn on.
struct KeypadDisplay {
    enum Kind {
        Offscreen, ///< nothing to look at: no screenshots, no touches
        Xvfb,      ///< an X server at 800x480x24, started when first needed and shared by all
                   ///< keypads of this process
        Existing,  ///< the X display called name
        Vnc        ///< Qt's VNC platform at 800x480 on port `port`
    };
    Kind kind = Offscreen;
    QString name;    ///< Existing: for example ":0"; empty means $DISPLAY
    int port = 5900; ///< Vnc
};

struct KeypadOptions {
    QString tool;          ///< program to run; empty means mftool of this build
    QStringList arguments; ///< of the tool
    /// Added to the tool's environment, which is otherwise the bench's choice and
    /// holds nothing of the caller's except *SAN_OPTIONS.
    QMap<QString, QString> environment;
    QString workingDirectory = QStringLiteral("/");
    /// Speed of time for the tool as libfaketime takes it ("x60": sixty times
    /// faster); empty leaves time alone.
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

class VirtualKeypad : public QObject
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

    /// What a stand-in was called with.
    struct StandinCall {
        QString program; ///< "kobs-ng", "ubiformat", "ubiattach" or "mount"
        QStringList arguments;
        QString workingDirectory;
        QMap<QString, QString> environment;
    };

    /// How the card's folder behaves.
    enum Card {
        NoFolder,      ///< the folder does not exist
        Writable,      ///< 1 MiB of space
        ReadOnly,      ///< what was written before stays, nothing can be changed
        Full,          ///< files can be created but hold nothing
        ReadsBackWrong ///< the first byte of every file reads back with its lowest bit inverted
    };

    /// Result of run().
    struct RunResult {
        int code = -1;  ///< exit status; 127 when there is no such program, -1 when it was killed
        int signal = 0; ///< that killed it
        QByteArray output;
        QByteArray errors;
    };

    explicit VirtualKeypad(const KeypadOptions &options = KeypadOptions(),
                           QObject *parent = nullptr);
    ~VirtualKeypad() override;

    /// Empty when virtual keypads can run here, else the reason in one line. Tried
    /// once per process.
    static QString whyNot();
    /// Empty when @p kind of display can be had here, else the reason in one line.
    static QString whyNoDisplay(KeypadDisplay::Kind kind);

    /// Builds the board. False with errorString() when it cannot be built.
    bool prepare();
    /// Runs the tool; it can run again after it ended. False with errorString().
    bool start();
    /// Ends the tool and takes the board away. start() builds a new one.
    void stop();
    QString errorString() const;

    bool isRunning() const;
    bool waitForExit(int msecs = 20000);
    /// Of the tool's latest run.
    ExitStatus exitStatus();
    /// The tool's process as the caller sees it: /proc/<pid>/fd, smaps and so on. 0 when not
    /// running.
    qint64 toolPid() const;
    /// Sends @p signal to the tool. False when it is not running.
    bool kill(int signal);

    // The serial line.

    /// The master of the tool's pty, blocking, owned by the keypad; -1 after hangUp().
    int lineFd() const;
    /// A pty that any program of the PC can open to talk with the tool. From the
    /// first call on the bytes are carried by the bench and lineFd() is not to be
    /// read. The bytes of one write may reach the other side in one piece or more.
    QString linePath();
    /// Closes the far end, as a pulled plug of a USB adapter does: a read that waits fails with
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

    // The virtual /sys. Paths are whole ("/sys/class/leds/ready/brightness").

    /// What reading gives now, "" if it does not exist. Not trimmed.
    QByteArray attribute(const QString &path);
    /// Sets what reading gives. For values of pins this is the level at the pin,
    /// before active_low. No store is recorded. False if it does not exist.
    bool setAttribute(const QString &path, const QByteArray &text);
    QList<SysfsModel::Store> stores();
    QList<SysfsModel::Store> stores(const QString &path);
    void clearStores();
    bool waitForStore(const QString &path, const QByteArray &text, int msecs = 20000);
    /// Every @p operation on @p path fails with @p error (an errno value) from now on. The path
    /// need not exist yet.
    void fail(const QString &path, SysfsModel::Operation operation, int error);
    void clearFault(const QString &path);
    bool addLed(const QString &name, int maximum = 255);
    /// Adds an attribute that keeps what is stored; missing folders are made.
    bool addAttribute(const QString &path, const QByteArray &text);
    /// Takes away an attribute, a device with its link, or a whole folder.
    bool removeNode(const QString &path);
    bool hasNode(const QString &path);

    // What a hand does.

    /// A key record and a synchronisation record, in one write.
    void pressHome();
    void releaseHome();
    /// Raw bytes into the event device, one write.
    bool writeEvents(const QByteArray &bytes);
    /// One record as the board's kernel makes it: 16 bytes, little-endian.
    static QByteArray eventRecord(quint16 type, quint16 code, qint32 value);
    /// The tamper switch at GPIO 17: active, the enclosure is open, drives the pin high.
    void setTamper(bool active);

    /// Makes the card's folder behave as @p kind. Files on it stay, except to and from
    /// ReadsBackWrong and after NoFolder.
    bool setCard(Card kind, const QString &dir = QStringLiteral("/media/mmcblk0p1"));
    /// Tells the tool that a card was mounted or removed. Waits until the tool
    /// listens; false if it does not within @p msecs.
    bool insertCard(const QString &dir = QStringLiteral("/media/mmcblk0p1"), int msecs = 20000);
    bool removeCard(const QString &dir = QStringLiteral("/media/mmcblk0p1"), int msecs = 20000);
    /// Any bytes into the SD pipe, in one opening and one write.
    bool writeSdPipe(const QByteArray &bytes, int msecs = 20000);

    /// Moves the pointer there, presses, holds for @p msecs (waiting), releases. Screen pixels.
    bool touch(int x, int y, int msecs = 50);
    bool press(int x, int y);
    bool move(int x, int y);
    bool release();
    /// The X display the tool is on, for example ":3"; empty without one.
    QString displayName() const;
    /// What the display shows; null without an X display.
    QImage screen();
    bool screenshot(const QString &file);
    QRgb pixel(int x, int y);
    /// Waits until the pixel has this colour (alpha ignored).
    bool waitForPixel(int x, int y, QRgb colour, int msecs = 20000);

    // Files as the tool sees them. False or -1 sets errorString() and errno.

    /// open(2) done inside the keypad; the caller owns the descriptor. On failure
    /// -1 and errno. Anything that a descriptor can do can be tried with it.
    int openFile(const QString &path, int flags, unsigned mode = 0644);
    QByteArray readFile(const QString &path, bool *ok = nullptr);
    bool writeFile(const QString &path, const QByteArray &bytes, unsigned mode = 0644);
    bool exists(const QString &path);
    /// A file or a whole folder; true also if there was none.
    bool removeFile(const QString &path);
    bool makeDir(const QString &path);
    QStringList listDir(const QString &path);
    /// Runs a program inside the keypad with the PC's search path and waits for it.
    RunResult run(const QString &program, const QStringList &arguments = QStringList(),
                  int msecs = 20000);

    // The stand-ins of kobs-ng, ubiformat, ubiattach and mount.

    /// What @p program does when it is next run:
    ///   "auto"     (at first) what the real one would: succeed, or fail for a missing, empty,
    ///              odd-sized or too large image, an attached partition, a second attach, a
    ///              volume that is not there or is mounted already
    ///   "good", "no-image", "image-too-large", "image-truncated", "attached",
    ///   "no-device", "twice", "no-ubi", "already", "no-volume"
    ///              that captured run, byte for byte, with its exit code
    ///   "crash"    half of the good output, then death by SIGSEGV
    ///   "hang"     half of the good output, then nothing more
    ///   "endless"  the good output over and over
    ///   "missing"  there is no such program
    bool setStandin(const QString &program, const QString &play);
    /// How long a run of good output takes; 0 (at first) is full speed.
    bool setStandinSeconds(const QString &program, double seconds);
    /// The program stops after the first update that contains @p text, until releaseStandin()
    /// or until it is held at a text further on.
    bool holdStandin(const QString &program, const QByteArray &text);
    bool releaseStandin(const QString &program);
    /// Every run so far, in order.
    QList<StandinCall> standinCalls();

Q_SIGNALS:
    void logged(const VirtualKeypad::LogLine &line);
    void stored(const SysfsModel::Store &store);
    /// The tool ended; exitStatus() tells how.
    void exited();

private Q_SLOTS:
    void drain();

private:
    Q_DISABLE_COPY(VirtualKeypad)
    class Private;
    const QScopedPointer<Private> d;
};

#endif
