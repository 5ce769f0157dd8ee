/// The emulator's own control line: QEMU's machine protocol, QMP.
#ifndef BENCH_BOARD_MONITOR_H
#define BENCH_BOARD_MONITOR_H

#include <QJsonObject>
#include <QString>

#include <memory>

QT_BEGIN_NAMESPACE
class QLocalSocket;
QT_END_NAMESPACE

class Monitor
{
public:
    static constexpr int DefaultLimitMs = 60000;

    Monitor();
    ~Monitor();
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    /// Talks over @p descriptor, a connected socket that is closed in the end. Waits
    /// for the emulator's greeting.
    bool open(int descriptor, int limitMs = DefaultLimitMs);
    void close();
    /// Executes a command. False with errorString().
    bool execute(const QString &command, const QJsonObject &arguments = QJsonObject(),
                 int limitMs = DefaultLimitMs);
    QString errorString() const { return m_error; }

private:
    bool next(QJsonObject *message, int limitMs);

    const std::unique_ptr<QLocalSocket> m_socket;
    QString m_error;
};

#endif
