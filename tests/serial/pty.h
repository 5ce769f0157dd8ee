/// A pseudo terminal as it comes: with echo, line editing and changed line ends,
/// until the code under test sets it up. Both ends are open to the test.
#ifndef TESTS_SERIAL_PTY_H
#define TESTS_SERIAL_PTY_H

#include <QByteArray>
#include <QString>

#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

class Pty
{
public:
    Pty() : m_master(posix_openpt(O_RDWR | O_NOCTTY)), m_slave(-1)
    {
        char name[128];
        if (m_master < 0 || grantpt(m_master) != 0 || unlockpt(m_master) != 0 ||
            ptsname_r(m_master, name, sizeof name) != 0)
            return;
        m_path = QString::fromLatin1(name);
        // Held open, or the line would hang up whenever the device under test closes.
        m_slave = open(name, O_RDWR | O_NOCTTY | O_NONBLOCK);
    }
    ~Pty()
    {
        close(m_slave);
        close(m_master);
    }
    Q_DISABLE_COPY(Pty)

    bool isValid() const { return m_slave >= 0; }
    QString path() const { return m_path; }
    int master() const { return m_master; }

    /// A descriptor on the line's own side, beside the one of the device under test.
    int slave() const { return m_slave; }

    /// What the far end sends.
    bool send(const QByteArray &bytes) const
    {
        return write(m_master, bytes.constData(), size_t(bytes.size())) == bytes.size();
    }

    /// What the far end has received, @p size bytes or as many as came.
    QByteArray received(int size) const { return readFrom(m_master, size); }

    /// Waits for @p size bytes on @p fd; fewer when no more come.
    static QByteArray readFrom(int fd, int size)
    {
        QByteArray bytes;
        pollfd waiting = {fd, POLLIN, 0};
        while (bytes.size() < size && poll(&waiting, 1, 5000) == 1) {
            char chunk[4096];
            const size_t most = qMin(sizeof chunk, size_t(size - bytes.size()));
            const ssize_t count = read(fd, chunk, most);
            if (count <= 0)
                break;
            bytes.append(chunk, int(count));
        }
        return bytes;
    }

private:
    int m_master;
    int m_slave;
    QString m_path;
};

#endif
