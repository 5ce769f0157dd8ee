#include "bench/keypad/keypadsession.h"

#include "bench/common/command.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

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
    if (!m_keypad.start()) {
        *reason = m_keypad.errorString();
        return false;
    }
    if (!m_keypad.displayName().isEmpty())
        say(QLatin1String("display ") + m_keypad.displayName());
    say(QStringLiteral("tool %1").arg(m_keypad.toolPid()));
    // What has happened so far, and from here on as it happens.
    const QList<VirtualKeypad::LogLine> lines = m_keypad.log();
    for (const VirtualKeypad::LogLine &line : lines)
        printLog(line);
    connect(&m_keypad, &VirtualKeypad::logged, this, &KeypadSession::printLog);
    connect(&m_keypad, &VirtualKeypad::exited, this, &KeypadSession::toolEnded);
    if (!m_keypad.isRunning())
        QTimer::singleShot(0, this, &KeypadSession::toolEnded);
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
    const VirtualKeypad::ExitStatus status = m_keypad.exitStatus();
    if (status.signal != 0)
        say(QStringLiteral("the tool was ended by signal %1").arg(status.signal));
    else
        say(QStringLiteral("the tool ended with exit status %1").arg(status.code));
    QCoreApplication::exit(status.code == 0 ? BenchExit::Good : BenchExit::Failed);
}
