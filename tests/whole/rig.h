/// A keypad and a test station at its line, and what happens between them: the base of
/// all whole-tool tests.
#ifndef TESTS_WHOLE_RIG_H
#define TESTS_WHOLE_RIG_H

#include "bench/keypad/virtualkeypad.h"
#include "bench/station/station.h"
#include "tests/whole/patience.h"

#include <QStringList>
#include <QTemporaryDir>
#include <QtTest>

/// For initTestCase() of a program that needs a virtual keypad.
#define SKIP_UNLESS_KEYPADS_RUN()                                                                  \
    do {                                                                                           \
        const QString reason = VirtualKeypad::whyNot();                                            \
        if (!reason.isEmpty()) {                                                                   \
            skipProgram(reason);                                                                   \
            QSKIP(qPrintable(reason));                                                             \
        }                                                                                          \
    } while (false)

/// The same, for one that also needs a screen.
#define SKIP_UNLESS_SCREENS_RUN()                                                                  \
    do {                                                                                           \
        SKIP_UNLESS_KEYPADS_RUN();                                                                 \
        const QString noScreen = VirtualKeypad::whyNoDisplay(KeypadDisplay::Xvfb);                 \
        if (!noScreen.isEmpty()) {                                                                 \
            skipProgram(noScreen);                                                                 \
            QSKIP(qPrintable(noScreen));                                                           \
        }                                                                                          \
    } while (false)

/// For a single test that moves the clock of the tool.
#define SKIP_UNLESS_CLOCKS_MOVE()                                                                  \
    do {                                                                                           \
        const QString noClock = ToolClock::whyNot();                                               \
        if (!noClock.isEmpty())                                                                    \
            QSKIP(qPrintable(noClock));                                                            \
    } while (false)

/// Says it so that CTest shows the program as skipped, not as passed.
void skipProgram(const QString &reason);

/// Everything that one message to the tool brought about, in order.
struct Outcome {
    /// Frames as type and data ("0004", "6003 ABCD"), anything else on the line
    /// as "line ..." or "damaged ...".
    QStringList line;
    /// "debug: text" or "warning: text", without the lines about what was received.
    QStringList log;
    /// Stores in /sys as "file=text", the file from below /sys/class on; a refused one
    /// with " refused" after it.
    QStringList stores;
};

/// A keypad whose waits have the patience of the tests.
class RigKeypad : public VirtualKeypad
{
public:
    using VirtualKeypad::VirtualKeypad;

    bool waitForExit();
    bool waitForLog(const QString &text);
    bool waitForStore(const QString &path, const QByteArray &text);
    bool waitForPixel(int x, int y, QRgb colour);
    bool insertCard(const QString &dir = QStringLiteral("/media/mmcblk0p1"));
    bool removeCard(const QString &dir = QStringLiteral("/media/mmcblk0p1"));
};

/// A station of the same kind.
class RigStation : public Station
{
public:
    using Station::Station;

    /// The next thing on the line. @p ownPause as in Patience::wait().
    std::optional<Received> receive(int ownPause = 0);
    /// Only what is there already.
    std::optional<Received> receiveNow() { return Station::receive(0); }
    std::optional<wire::Frame> waitFor(quint16 type);
    bool waitForReady() { return waitFor(wire::Ready).has_value(); }
    /// Whether the next thing is this frame, or this line without its end.
    bool expect(quint16 type, const QByteArray &data = QByteArray());
    bool expectLine(const QByteArray &text);

private:
    bool expectRaw(const QByteArray &raw);
};

class Rig
{
public:
    explicit Rig(const KeypadOptions &options = KeypadOptions());

    RigKeypad keypad;
    RigStation station;

    /// Runs the tool with the station at its line. False, with why(), when it cannot.
    bool start();
    /// start(), then waits until the tool has reported ready; what came before
    /// is dropped.
    bool startReady();
    QString why() const { return m_why; }

    /// Sends a request and waits until the tool has dealt with it. An echo ends the
    /// outcome, so it also shows that the tool goes on.
    Outcome request(quint16 type, const QByteArray &data = QByteArray());
    /// The same with any bytes that the tool gets in one read.
    Outcome raw(const QByteArray &bytes);
    /// Has the tool attach and mount. False when it does not, or says that it could not.
    bool mount();
    /// What came since the last call of any of these, up to an echo made once the
    /// tool has dealt with all that has reached it, touches included.
    Outcome settle();

    /// The next thing on the line, written as in Outcome; says why when nothing comes.
    /// @p ownPause as in Patience::wait().
    QString next(int ownPause = 0);
    /// The log so far, written as in Outcome; of lines from the thread that
    /// watches the card none.
    QStringList log();
    /// The same, including what was forgotten.
    QStringList wholeLog();
    /// Whether exactly this line, written as in Outcome, is or gets logged.
    bool waitForLog(const QString &line);
    QStringList stores();
    /// Forgets log, stores and what came on the line.
    void forget();

private:
    QByteArray newEcho();
    Outcome collect();

    QString m_why;
    int m_echoes = 0;
    QStringList m_forgottenLog;
};

/// Processor time that a process has had, in milliseconds; -1 when there is none.
/// One that spins would have a processor to itself.
qint64 processorTime(qint64 pid);

/// The clock of the tool, moved by hand: what takes ten minutes takes none.
class ToolClock
{
public:
    /// Empty when the clock of a tool can be moved here, else the reason.
    static QString whyNot();

    /// Puts the tool of @p options on this clock.
    void wind(KeypadOptions &options);
    /// Sets the clock to so many seconds more than real time. The tool looks at
    /// its clock when something wakes it.
    bool set(int seconds);

private:
    QTemporaryDir m_folder;
};

#endif
