/// A test station: the other end of the keypad's serial line.
#ifndef BENCH_STATION_STATION_H
#define BENCH_STATION_STATION_H

#include "bench/station/frame.h"
#include "bench/station/messages.h"
#include "bench/station/transcript.h"

#include <QDeadlineTimer>
#include <QMetaType>
#include <QObject>
#include <QTimer>

#include <deque>
#include <optional>

QT_BEGIN_NAMESPACE
class QSocketNotifier;
QT_END_NAMESPACE

/// Sends requests, reassembles what comes into frames and lines, checks every
/// frame strictly and keeps a transcript.
///
/// Every wait has a time limit and sleeps meanwhile. If the thread has a Qt event loop
/// (there is a QCoreApplication), a wait runs it: other objects of the thread keep
/// working, and what comes between waits is received too. Without one a wait polls only
/// the line. What was received is queued until a wait takes it, and announced by the
/// signals when it arrives.
class Station : public QObject
{
    Q_OBJECT

public:
    /// One thing that the keypad's side put on the line.
    struct Received {
        enum Kind {
            GoodFrame,    ///< a frame that passed every check
            DamagedFrame, ///< meant to be a frame: see report
            Text          ///< an unframed line, such as one relayed for the QB740 module
        };

        Kind kind = Text;
        wire::Frame frame;   ///< GoodFrame; DamagedFrame as far as it can be read
        wire::Report report; ///< the checks of a frame
        QByteArray raw;      ///< as it came, with its line end
        qint64 time = 0;     ///< arrival, as in Transcript::Entry

        bool isFrame() const { return kind == GoodFrame; }
        /// A text line without its line end.
        QByteArray line() const;
        /// Decoded, for a person, in one line.
        QString describe() const;
    };

    /// How a request ended.
    struct Answer {
        enum Outcome {
            Accepted,      ///< all replies that belong to the request came
            Nak,           ///< refused: NAK
            NotApplicable, ///< refused: NA
            TimedOut,      ///< a reply is missing; what came is in the answer
            Damaged,       ///< a damaged frame came
            LineFailed     ///< not open, hung up, or could not be written
        };

        Outcome outcome = LineFailed;
        bool acked = false;        ///< an ACK was among the replies
        QList<wire::Frame> frames; ///< every frame that came, in order, not only replies
        QList<QByteArray> lines;   ///< every unframed line that came, in order, without line end
        QString error;             ///< for a person; empty when accepted
        qint64 elapsedUs = 0;      ///< from the request to the last reply

        bool ok() const { return outcome == Accepted; }
        bool refused() const { return outcome == Nak || outcome == NotApplicable; }
        /// The first frame of @p type, if one came.
        std::optional<wire::Frame> frame(quint16 type) const;
        /// The data of the first frame of @p type; null when none came.
        QByteArray data(quint16 type) const;
    };

    /// A time limit for an answer that should come at once; generous, since a busy
    /// machine is slow.
    static constexpr int DefaultLimitMs = 5000;
    /// For request(): the late reply's usual limit for this request.
    static constexpr int LimitOfRequest = -1;

    explicit Station(QObject *parent = nullptr);
    ~Station() override;

    static bool isBaudRate(int rate);

    /// Opens a terminal raw, 8 data bits, no parity, 1 stop bit, never as
    /// controlling terminal, and locks it against other stations.
    /// @param baudRate  a standard rate; without effect on a pty
    /// @return false with errorString() when it cannot be opened or set
    bool open(const QString &path, int baudRate = 115200);

    /// Takes over an open descriptor, such as a pty's master, and closes it at the end.
    /// Its terminal settings stay as they are; it is made non-blocking and is not passed
    /// on to programs.
    void adopt(int descriptor);

    void close();
    bool isOpen() const { return m_fd >= 0; }
    /// The other side has closed the line. What came before can still be taken.
    bool isHungUp() const { return m_hungUp; }
    int descriptor() const { return m_fd; }
    /// Why the last operation that returned a failure failed, in one line.
    QString errorString() const { return m_error; }

    /// @name Sending. All of it goes out in one write, as the keypad needs it;
    /// false with errorString() when the line does not take it.
    /// @{
    bool send(quint16 type, const QByteArray &data = QByteArray());
    /// Sends @p bytes as they are; no line end is added.
    bool sendRaw(const QByteArray &bytes);
    /// @}

    /// @name Receiving. Limits are in milliseconds; 0 takes only what is there.
    /// Nothing returned (or false) means that the limit passed or the line hung
    /// up, and errorString() says which and what was waited for.
    /// @{

    /// The next thing of any kind. A frame left unfinished when the limit
    /// passes is handed over as damaged (with a limit of 0 it may still grow).
    std::optional<Received> receive(int limitMs = DefaultLimitMs);

    /// The next good or damaged frame; lines before it are dropped.
    std::optional<Received> waitForFrame(int limitMs = DefaultLimitMs);

    /// The next good frame of @p type; everything before it is dropped.
    std::optional<wire::Frame> waitFor(quint16 type, int limitMs = DefaultLimitMs);

    /// The start of the keypad: the ready frame (the logo's ACK or NAK before
    /// it is dropped).
    bool waitForReady(int limitMs = 15000);

    /// Whether the very next thing is a good frame with this type and data.
    bool expect(quint16 type, const QByteArray &data = QByteArray(), int limitMs = DefaultLimitMs);

    /// Whether the very next thing is an unframed line with this text (without
    /// its line end).
    bool expectLine(const QByteArray &text, int limitMs = DefaultLimitMs);

    /// Whether nothing at all comes in this time.
    bool expectSilence(int forMs);

    /// Waits this long; what comes meanwhile is queued. False when the line is not open
    /// or hangs up, which ends the wait.
    bool idle(int forMs);

    /// @}

    /// Sends a request and waits for its immediate and its late reply, in any order, as a
    /// station must before it sends the next one. Frames that do not belong to the
    /// request (a touch, a flash that ended) are kept in the answer. What was queued
    /// before is dropped. A type that is not a request is expected to be refused or
    /// acknowledged.
    /// @param limitMs      for the first reply
    /// @param lateLimitMs  for the reply that follows an ACK (flash, mount);
    ///                     0 does not wait for it
    Answer request(quint16 type, const QByteArray &data = QByteArray(),
                   int limitMs = DefaultLimitMs, int lateLimitMs = LimitOfRequest);

    /// As above, the request written as in wire::parseRequest() (requests.h): "backlight 100".
    Answer request(const QString &command, int limitMs = DefaultLimitMs,
                   int lateLimitMs = LimitOfRequest);

    /// Drops everything received so far.
    void clear();

    /// Bytes received that do not make a line yet.
    QByteArray pending() const { return m_pending; }

    Transcript &transcript() { return m_transcript; }
    const Transcript &transcript() const { return m_transcript; }

signals:
    /// Everything that arrives, when it arrives; it is queued for a wait as well.
    void received(const Station::Received &received);
    void hungUp();

private slots:
    void readAvailable();

private:
    void start(int descriptor);
    bool write(const QByteArray &bytes, const QString &meaning);
    void hangUp();
    void pause(const QDeadlineTimer &deadline);
    bool poll(short events, const QDeadlineTimer &deadline) const;
    void splitPending();
    void flushPending();
    void takeLine(const QByteArray &line);
    void deliver(const Received &received);
    std::optional<Received> next(const QDeadlineTimer &deadline, int limitMs,
                                 const QString &wanted);
    bool expectNext(const QByteArray &raw, const QString &wanted, int limitMs);
    bool fail(const QString &error);

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QTimer m_wake; ///< ends a wait in the event loop when its limit passes
    bool m_hungUp = false;
    QString m_error;
    QByteArray m_pending;
    std::deque<Received> m_queue;
    Transcript m_transcript;
};

Q_DECLARE_METATYPE(Station::Received)

#endif
