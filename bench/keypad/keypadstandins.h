/// The stand-ins of kobs-ng, ubiformat, ubiattach and mount: what they play, and
/// what they were called with.
#ifndef BENCH_KEYPAD_KEYPADSTANDINS_H
#define BENCH_KEYPAD_KEYPADSTANDINS_H

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QStringList>

class KeypadBoard;

class KeypadStandins
{
public:
    /// What a stand-in was called with.
    struct StandinCall {
        QString program; ///< "kobs-ng", "ubiformat", "ubiattach" or "mount"
        QStringList arguments;
        QString workingDirectory;
        QMap<QString, QString> environment;
    };

    /// What @p program does when it is next run:
    ///   "auto"     (at first) what the real one would: succeed, or fail for a missing, empty,
    ///              odd-sized or too large image, an attached partition, a second attach, a
    ///              volume that is not there or is mounted already
    ///   "good", "no-image", "image-too-large", "image-truncated", "attached",
    ///   "no-device", "twice", "no-ubi", "already", "no-volume"
    ///              that captured run, byte for byte, with its exit code
    ///   "crash"    half of the good output, then death by SIGSEGV
    ///   "hang"     half of the good output, then nothing more
    ///   "endless"  the good output over and over
    ///   "missing"  there is no such program
    bool setStandin(const QString &program, const QString &play);
    /// How long a run of good output takes; 0 (at first) is full speed.
    bool setStandinSeconds(const QString &program, double seconds);
    /// The program stops after the first update that contains @p text, until
    /// releaseStandin() or until it is to stop at a later text.
    bool holdStandin(const QString &program, const QByteArray &text);
    bool releaseStandin(const QString &program);
    /// Every run so far, in order.
    QList<StandinCall> standinCalls();

protected:
    explicit KeypadStandins(KeypadBoard *board) : m_board(board) {}
    /// Those of a new board play what the real ones would do.
    void resetStandins() { m_plays.clear(); }

private:
    struct Play {
        QString play = QStringLiteral("auto");
        double seconds = 0;
        QByteArray hold;
    };

    bool writePlay(const QString &program);

    KeypadBoard *m_board;
    QMap<QString, Play> m_plays;
};

#endif
