/// A pseudo terminal that plays a serial line.
#ifndef TESTS_SUPPORT_PTYLINE_H
#define TESTS_SUPPORT_PTYLINE_H

#include <QByteArray>
#include <QString>

/// Its far end stays open, so that it does not hang up when the code under test
/// closes it. Programs that a test starts do not get it.
class PtyLine
{
public:
    enum Kind {
        Raw,
        Fresh ///< with echo, line editing and changed line ends, as a terminal comes
    };

    explicit PtyLine(Kind kind = Raw);
    ~PtyLine();
    PtyLine(const PtyLine &) = delete;
    PtyLine &operator=(const PtyLine &) = delete;

    /// Path of the end that the code under test opens.
    QString path() const { return m_path; }
    /// The test's end.
    int near() const { return m_near; }
    /// A descriptor of the other end, beside the one of the code under test.
    int far() const { return m_far; }

    /// Sends @p bytes to the code under test in one piece.
    void send(const QByteArray &bytes);
    /// The same, and waits until all of it can be read as one.
    void sendAsOne(const QByteArray &bytes);
    /// Everything that the code under test has written since the last clear().
    QByteArray received();
    /// Waits until there is something new for received(); false when nothing comes.
    /// Like received() for one thread at a time.
    bool waitForBytes(int msecs);
    void clear();
    /// Closes both ends that this side holds.
    void hangUp();

    /// Waits for @p size bytes on @p fd; fewer when no more come.
    static QByteArray readFrom(int fd, int size);

private:
    int m_near;
    int m_far;
    QString m_path;
    QByteArray m_received;
};

#endif
