/// One end of the socket between a bench and the keypad's host process. Every packet is
/// one JSON object, with descriptors attached when it is about open files. Bytes that are
/// not text are sent as Latin-1.
#ifndef BENCH_KEYPAD_CHANNEL_H
#define BENCH_KEYPAD_CHANNEL_H

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <sys/types.h>

struct Packet {
    QJsonObject object;
    QList<int> descriptors; ///< owned by whoever holds the packet
    pid_t sender = 0;       ///< as seen by the receiver, 0 if it did not ask for credentials
};

class Channel
{
public:
    enum Result { Done, WouldBlock, Closed };

    /// @param fd  a SOCK_SEQPACKET socket, not owned
    explicit Channel(int fd = -1) : m_fd(fd) {}
    int fd() const { return m_fd; }

    /// The receiver's own copies of @p descriptors are made; the sender's stay open.
    Result send(const QJsonObject &object, const QList<int> &descriptors = QList<int>()) const;
    /// Does not wait.
    Result receive(Packet *packet) const;
    /// Waits until there is something to receive (or the end). False after @p msecs; -1 waits
    /// for ever.
    bool waitReadable(int msecs) const;
    /// Sends; waits for room as long as it takes. False when the other end is gone.
    bool sendWaiting(const QJsonObject &object, const QList<int> &descriptors = QList<int>()) const;

    /// With its size, since Qt 5 otherwise takes the bytes up to the first NUL.
    static QString toText(const QByteArray &bytes)
    {
        return QString::fromLatin1(bytes.constData(), int(bytes.size()));
    }
    static QByteArray toBytes(const QJsonValue &value) { return value.toString().toLatin1(); }

private:
    int m_fd;
};

#endif
