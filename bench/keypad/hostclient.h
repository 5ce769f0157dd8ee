/// The bench's end of a keypad's host process: starts it, sends it requests, and receives
/// and waits for its reports. No event loop is needed.
#ifndef BENCH_KEYPAD_HOSTCLIENT_H
#define BENCH_KEYPAD_HOSTCLIENT_H

#include "bench/keypad/channel.h"
#include "bench/keypad/hostprotocol.h"

#include <QMap>
#include <QStringList>

#include <functional>

class HostClient
{
public:
    static const int CallMsecs = 20000; ///< generous: the machine may be busy

    HostClient() = default;
    virtual ~HostClient();
    HostClient(const HostClient &) = delete;
    HostClient &operator=(const HostClient &) = delete;

    /// Starts the host, which builds the board.
    /// @param toolDir  folder of the PC that holds the tool
    /// @param visible  more paths of the PC to show in the keypad
    bool launch(const QString &toolDir, const QStringList &visible);
    /// Ends it, and with it every process of the keypad.
    void close();
    bool isLaunched() const { return m_host >= 0; }
    int channelFd() const { return m_channel.fd(); }

    /// The master of the tool's pty; -1 when there is none.
    int lineFd() const { return m_line; }
    void closeLine();

    /// The reply; an object with Key::Error when the keypad is gone.
    /// @param descriptors  set to those that came with it, owned by the caller from now on
    QJsonObject call(HostProtocol::Operation operation, QJsonObject request = QJsonObject(),
                     QList<int> *descriptors = nullptr, int msecs = CallMsecs);

    /// Receives whatever has arrived. False when the keypad is gone.
    bool drain();
    /// Receives what comes until @p done or until @p msecs have passed.
    bool waitUntil(const std::function<bool()> &done, int msecs);

    /// Why the last call that failed has failed.
    QString errorString() const { return m_error; }
    /// @return false, for the caller to return
    bool failed(const QString &reason);
    /// @p number is an errno value and becomes errno; 0 means success and returns true.
    bool succeeded(const QString &what, int number);

protected:
    virtual void happened(HostProtocol::Event event, const Packet &packet) = 0;
    /// The keypad is gone.
    virtual void lost() = 0;

private:
    QJsonObject ask(QJsonObject request, QList<int> *descriptors, int msecs);
    void take(const Packet &packet);

    QString m_error;
    Channel m_channel;
    pid_t m_host = -1;
    int m_line = -1;
    int m_nextRequest = 1;
    QMap<int, Packet> m_replies;
    QMap<int, QList<int>> m_handedOver; ///< descriptors of replies that are still to come
};

#endif
