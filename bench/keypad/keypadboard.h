/// The board as it can be changed and examined from outside: its files, as the tool sees
/// them, and its virtual /sys. Paths are always the tool's.
#ifndef BENCH_KEYPAD_KEYPADBOARD_H
#define BENCH_KEYPAD_KEYPADBOARD_H

#include "bench/keypad/hostprotocol.h"
#include "bench/keypad/sysfsmodel.h"

#include <QByteArray>
#include <QStringList>

class HostClient;

class KeypadBoard
{
public:
    /// Result of run().
    struct RunResult {
        int code = -1;  ///< exit status; 127 when there is no such program, -1 when it was killed
        int signal = 0; ///< that killed it
        QByteArray output;
        QByteArray errors;
    };

    // The virtual /sys. Paths are whole ("/sys/class/leds/ready/brightness").

    /// What reading it gives now; "" if it does not exist. Not trimmed.
    QByteArray attribute(const QString &path);
    /// Sets what reading it gives. For values of pins this is the level at the pin,
    /// before active_low. No store is recorded. False if it does not exist.
    bool setAttribute(const QString &path, const QByteArray &text);
    /// Every @p operation on @p path fails with @p error (an errno value) from now on. The path
    /// need not exist yet.
    void fail(const QString &path, SysfsModel::Operation operation, int error);
    void clearFault(const QString &path);
    bool addLed(const QString &name, int maximum = 255);
    /// Adds an attribute that keeps what is stored; missing folders are made.
    bool addAttribute(const QString &path, const QByteArray &text);
    /// Removes an attribute, a device with its link, or a whole folder.
    bool removeNode(const QString &path);
    bool hasNode(const QString &path);

    // Files as the tool sees them. False or -1 sets errorString() and errno.

    /// open(2) done inside the keypad; the caller owns the descriptor. On failure -1 and
    /// errno. Everything that a descriptor can do works with it.
    int openFile(const QString &path, int flags, unsigned mode = 0644);
    QByteArray readFile(const QString &path, bool *ok = nullptr);
    bool writeFile(const QString &path, const QByteArray &bytes, unsigned mode = 0644);
    bool exists(const QString &path);
    /// A file or a whole folder; true also if there was none.
    bool removeFile(const QString &path);
    bool renameFile(const QString &path, const QString &to);
    bool makeLink(const QString &target, const QString &path);
    bool makeDir(const QString &path);
    QStringList listDir(const QString &path);
    /// Runs a program inside the keypad with the PC's search path and waits for it.
    RunResult run(const QString &program, const QStringList &arguments = QStringList(),
                  int msecs = 20000);

protected:
    explicit KeypadBoard(HostClient *host) : m_host(host) {}

private:
    QJsonObject sysfs(HostProtocol::SysfsCall call, const QString &path,
                      const QByteArray &text = QByteArray(), int number = 0, int error = 0);
    bool changed(HostProtocol::Operation operation, const QString &path,
                 const QString &to = QString());

    HostClient *m_host;
};

#endif
