/// A person's hands at a virtual keypad: one line of text is one command.
#ifndef BENCH_KEYPAD_KEYPADCONSOLE_H
#define BENCH_KEYPAD_KEYPADCONSOLE_H

#include "bench/keypad/virtualkeypad.h"

#include <QString>
#include <QStringList>

class KeypadConsole
{
public:
    explicit KeypadConsole(VirtualKeypad &keypad) : m_keypad(keypad) {}

    /// What a command did.
    struct Outcome {
        bool ok = true;
        QString text; ///< answer, or the reason why not; may be empty or several lines
    };

    /// Carries out one line. Empty lines and lines that begin with "#" do nothing.
    Outcome execute(const QString &line);
    /// Whether the keypad is switched on, whether or not the tool still runs.
    bool isPowered() const { return m_powered; }
    /// "quit" has been given.
    bool isOver() const { return m_over; }
    /// What is wrong with a line on any keypad: an unknown command, too few or too many
    /// arguments. Empty when it can be tried.
    static QString misspelt(const QString &line);
    /// All commands, one a line.
    static QString help();

private:
    typedef Outcome (KeypadConsole::*Action)(const QStringList &arguments);
    struct Row {
        const char *name;
        const char *arguments;
        const char *help;
        int least; ///< number of arguments
        int most;
        Action action;
    };
    static const Row rows[];
    static const Row *rowOf(const QString &name);

    Outcome result(bool ok, const QString &reason = QString()) const;
    Outcome power(const QStringList &arguments);
    Outcome powerOn();
    Outcome powerOff();
    Outcome home(const QStringList &arguments);
    Outcome card(const QStringList &arguments);
    Outcome voltage(const QStringList &arguments);
    Outcome tamper(const QStringList &arguments);
    Outcome revision(const QStringList &arguments);
    Outcome touch(const QStringList &arguments);
    Outcome screenshot(const QStringList &arguments);
    Outcome stores(const QStringList &arguments);
    Outcome show(const QStringList &arguments);
    Outcome set(const QStringList &arguments);
    Outcome fault(const QStringList &arguments);
    Outcome remove(const QStringList &arguments);
    Outcome play(const QStringList &arguments);
    Outcome seconds(const QStringList &arguments);
    Outcome unplug(const QStringList &arguments);
    Outcome help(const QStringList &arguments);
    Outcome quit(const QStringList &arguments);

    VirtualKeypad &m_keypad;
    bool m_powered = false;
    bool m_over = false;
};

#endif
