#include "bench/keypad/keypadsession.h"

#include "bench/common/command.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cstdio>
#include <unistd.h>

namespace
{

void say(const QString &text)
{
    if (text.isEmpty())
        return;
    fputs(qPrintable(text), stdout);
    fputc('\n', stdout);
    fflush(stdout);
}

} // namespace

KeypadSession::KeypadSession(const KeypadOptions &options) : m_keypad(options), m_console(m_keypad)
{
    // Queued: what a command did is printed before what the tool does about it.
    qRegisterMetaType<VirtualKeypad::LogLine>("VirtualKeypad::LogLine");
    connect(&m_keypad, &VirtualKeypad::logged, this, &KeypadSession::printLog,
            Qt::QueuedConnection);
    connect(&m_keypad, &VirtualKeypad::exited, this, &KeypadSession::toolEnded,
            Qt::QueuedConnection);
}

bool KeypadSession::start(QString *reason)
{
    if (!m_keypad.prepare()) {
        *reason = m_keypad.errorString();
        return false;
    }
    for (const char *program : {"kobs-ng", "ubiformat"})
        m_keypad.setStandinSeconds(QLatin1String(program), flashSeconds);
    for (const QString &command : qAsConst(firstCommands)) {
        const KeypadConsole::Outcome outcome = m_console.execute(command);
        say(outcome.text);
        if (!outcome.ok) {
            *reason = QStringLiteral("\"%1\" did not work").arg(command);
            return false;
        }
    }
    say(QLatin1String("line ") + m_keypad.linePath());
    if (startsOff) {
        say(QStringLiteral("the keypad is off; \"power on\" switches it on"));
    } else {
        const KeypadConsole::Outcome outcome = m_console.execute(QStringLiteral("power on"));
        if (!outcome.ok) {
            *reason = outcome.text;
            return false;
        }
        say(outcome.text);
    }
    if (readsInput) {
        m_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        connect(m_notifier, SIGNAL(activated(int)), this, SLOT(readInput()));
    }
    return true;
}

void KeypadSession::printLog(const VirtualKeypad::LogLine &line)
{
    const QString text = QStringLiteral("%1 %2").arg(line.severity, -8).arg(line.text);
    say(line.time.isEmpty() ? text : line.time + QLatin1Char(' ') + text);
}

void KeypadSession::readInput()
{
    char chunk[4096];
    const ssize_t count = read(STDIN_FILENO, chunk, sizeof chunk);
    if (count <= 0) {
        m_notifier->setEnabled(false);
        say(QStringLiteral("end of the commands, end of the keypad; --no-input lets it run on"));
        QCoreApplication::exit(BenchExit::Good);
        return;
    }
    m_input.append(chunk, int(count));
    for (int end = int(m_input.indexOf('\n')); end >= 0; end = int(m_input.indexOf('\n'))) {
        const QString line = QString::fromLocal8Bit(m_input.left(end));
        m_input.remove(0, end + 1);
        carryOut(line);
    }
}

void KeypadSession::carryOut(const QString &line)
{
    const KeypadConsole::Outcome outcome = m_console.execute(line);
    if (outcome.ok)
        say(outcome.text);
    else
        say(QLatin1String("? ") + outcome.text);
    if (m_console.isOver())
        QCoreApplication::exit(BenchExit::Good);
}

void KeypadSession::toolEnded()
{
    if (!m_console.isPowered() || m_keypad.isRunning())
        return; // switched off, and perhaps on again
    const VirtualKeypad::ExitStatus status = m_keypad.exitStatus();
    if (status.signal != 0)
        say(QStringLiteral("the tool was ended by signal %1").arg(status.signal));
    else
        say(QStringLiteral("the tool ended with exit status %1").arg(status.code));
    if (startsOff)
        say(QStringLiteral("\"power on\" switches the keypad on again"));
    else
        QCoreApplication::exit(status.code == 0 ? BenchExit::Good : BenchExit::Failed);
}
