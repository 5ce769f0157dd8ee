/// The bench's hand inside an emulated board: the client of guest/agent.cpp.
#ifndef BENCH_BOARD_AGENT_H
#define BENCH_BOARD_AGENT_H

#include <QByteArray>
#include <QHash>
#include <QObject>

#include <memory>

QT_BEGIN_NAMESPACE
class QLocalSocket;
QT_END_NAMESPACE

/// One request after the other; each waits for its answer. What comes unasked is
/// announced by the signals, while a request waits and in the event loop.
class Agent : public QObject
{
    Q_OBJECT

public:
    struct Answer {
        bool came = false; ///< false: not within the limit, or the board is gone
        int status = -1;   ///< a script's exit status, else 0 or an errno value of Linux
        QByteArray output;

        bool ok() const { return came && status == 0; }
    };

    static constexpr int DefaultLimitMs = 600000; ///< an emulated board on a busy PC is slow

    explicit Agent(QObject *parent = nullptr);
    ~Agent() override;

    /// Talks over @p descriptor, a connected socket that is closed in the end.
    bool open(int descriptor);
    void close();
    /// Whether the agent in the board has said that it is there.
    bool isThere() const { return m_there; }

    /// Runs a shell script in the board. Its output is that of both streams.
    Answer run(const QByteArray &script, int limitMs = DefaultLimitMs);
    /// Starts a shell script whose output comes in lines by the signal printed().
    /// @return what the lines are marked with
    int follow(const QByteArray &script);
    Answer get(const QString &path);
    /// Stores @p bytes in one write; a file that is not there is made.
    Answer put(const QString &path, const QByteArray &bytes);
    /// The other requests, as guest/agent.cpp lists them: "key 102 1".
    Answer ask(const QByteArray &request);

signals:
    void printed(int mark, const QByteArray &line);
    /// What the tool stored in sysfs: "0 /sys/class/leds/ready/brightness 255".
    void stored(const QByteArray &line);

private slots:
    void take();

private:
    struct Stream {
        bool follows = false; ///< or else is gathered
        bool ended = false;
        int status = -1;
        QByteArray bytes;
    };

    int send(const QByteArray &request, const QByteArray &bytes = QByteArray());
    Answer answer(int id, int limitMs);
    bool takeOne();
    void takeOutput(const QByteArray &id, const QByteArray &bytes);
    void passLines(QByteArray *pending, int mark);

    const std::unique_ptr<QLocalSocket> m_socket;
    QByteArray m_input;
    QByteArray m_stores;
    QHash<int, Stream> m_streams;
    int m_last = 0; ///< number of a request
    bool m_there = false;
};

#endif
