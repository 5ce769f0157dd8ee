/// A virtual keypad and its user: prints what the tool logs, carries out the commands
/// from standard input, and ends the program when the tool ends by itself.
#ifndef BENCH_KEYPAD_KEYPADSESSION_H
#define BENCH_KEYPAD_KEYPADSESSION_H

#include "bench/keypad/keypadconsole.h"
#include "bench/keypad/virtualkeypad.h"

#include <QObject>

class QSocketNotifier;

class KeypadSession : public QObject
{
    Q_OBJECT

public:
    explicit KeypadSession(const KeypadOptions &options);

    double flashSeconds = 0;   ///< how long each flashing program takes
    QStringList firstCommands; ///< carried out before the tool starts
    bool readsInput = true;
    /// The keypad waits for "power on", and for the next one when its tool has ended.
    bool startsOff = false;

    /// Builds the board, prints where the line is and switches the keypad on. False with
    /// a reason in one line.
    bool start(QString *reason);

private slots:
    void printLog(const VirtualKeypad::LogLine &line);
    void readInput();
    void toolEnded();

private:
    void carryOut(const QString &line);

    VirtualKeypad m_keypad;
    KeypadConsole m_console;
    QByteArray m_input;
    QSocketNotifier *m_notifier = nullptr;
};

Q_DECLARE_METATYPE(VirtualKeypad::LogLine)

#endif
