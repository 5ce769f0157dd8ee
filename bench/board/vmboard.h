/// A board with a real kernel: Debian for ARM with the tool's own package in an
/// emulator, on the image that "bench board" makes.
///
///     VmBoard board(options);
///     board.prepare();
///     Station station; station.adopt(dup(board.lineFd()));
///     board.powerOn();            // boots; the tool is started by systemd
///     board.waitForTool();
///
/// What the board plays and what a hand does at it goes through an agent in it
/// (agent.h), the picture and the power through the emulator (monitor.h). Its disk
/// is its own: what is written lasts until the object is gone, the image stays.
#ifndef BENCH_BOARD_VMBOARD_H
#define BENCH_BOARD_VMBOARD_H

#include "bench/board/agent.h"
#include "bench/board/journal.h"
#include "bench/board/monitor.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

struct VmBoardOptions {
    enum Line {
        Usb, ///< a USB serial adapter: hands over whole frames
        Uart ///< a 16550: hands them over in pieces
    };

    QString image; ///< folder of the image, see BoardImage
    Line line = Usb;
    /// Modules and input devices ("bochs", "home", "touch") that the board does not have
    /// when it starts.
    QStringList late;
    /// Asked while waiting; true ends the wait. May be empty.
    std::function<bool()> isInterrupted;
};

class VmBoard : public QObject
{
    Q_OBJECT

public:
    struct Store {
        int error = 0; ///< an errno value of Linux, 0 for none
        QString path;
        QString text;
    };

    struct Ending {
        bool known = false; ///< the tool ran and has ended
        int status = -1;    ///< exit status; -1 after a signal
        int signal = 0;
    };

    /// Limit for a boot, which takes minutes on a busy PC.
    static constexpr int BootLimitMs = 900000;

    explicit VmBoard(const VmBoardOptions &options, QObject *parent = nullptr);
    ~VmBoard() override;

    /// Makes the board's disk and its line. False with errorString().
    bool prepare();
    /// The bench's end of the test line, a socket; the board's power does not matter to
    /// it. Owned by the board.
    int lineFd() const { return m_line[0]; }

    /// Starts the emulator and waits for the agent, which is there long before the tool.
    /// False with errorString().
    bool powerOn();
    /// As if the plug were pulled.
    void powerOff();
    bool isOn() const { return m_emulator.state() != QProcess::NotRunning; }
    /// Waits until the tool has been started and the line has something to say, or
    /// @p limitMs have passed.
    bool waitForTool(int limitMs = BootLimitMs);

    Agent &agent() { return m_agent; }
    /// Runs a shell script in the board. False with errorString() when it fails.
    bool run(const QByteArray &script);

    /// All stores of the tool in sysfs that were made before this call.
    QList<Store> stores();
    QList<Journal::Entry> log() const { return m_log; }
    Ending ending() const { return m_ending; }
    /// What is on the screen; null when it cannot be had.
    QImage screen();
    /// What the kernel and the emulator said.
    QByteArray console() const;
    QString errorString() const { return m_error; }

signals:
    /// The log has one more entry.
    void logged();

private slots:
    void takeStore(const QByteArray &line);
    void takeLine(int mark, const QByteArray &line);

private:
    bool makeDisk();
    bool start();
    bool lockImage();
    QStringList command(int lineFd, int agentFd, int monitorFd) const;
    bool isInterrupted() const;
    bool failed(const QString &reason);
    QString path(const char *name) const;
    void drainLine();

    const VmBoardOptions m_options;
    QTemporaryDir m_dir;
    int m_lock = -1; ///< an open file of the image, see image/clear.sh
    int m_line[2] = {-1, -1};
    QProcess m_emulator;
    Agent m_agent;
    Monitor m_monitor;
    int m_journal = -1; ///< mark of the journal's lines
    QList<Store> m_stores;
    QList<Journal::Entry> m_log;
    bool m_started = false; ///< the tool, since power on
    Ending m_ending;
    QString m_error;
};

#endif
