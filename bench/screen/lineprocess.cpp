#include "bench/screen/lineprocess.h"

#include "bench/common/command.h"

#include <QJsonDocument>

#include <cerrno>
#include <csignal>

#include <unistd.h>

namespace
{

const int Signals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// There is one line in this process.
volatile std::sig_atomic_t lineProcess = 0;
volatile std::sig_atomic_t lineStatus = BenchExit::Unable; // valid once it has ended
volatile std::sig_atomic_t signalled = 0;

void passOn(int number)
{
    const int errnoBefore = errno;
    signalled = 1;
    if (lineProcess <= 0)
        _exit(lineStatus);
    ::kill(lineProcess, number);
    errno = errnoBefore;
}

void followSignals()
{
    struct sigaction action = {};
    action.sa_handler = passOn;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : Signals) {
        struct sigaction before = {};
        sigaction(number, nullptr, &before);
        if (number == SIGHUP && before.sa_handler == SIG_IGN) // as under nohup
            continue;
        sigaction(number, &action, nullptr);
    }
}

} // namespace

LineProcess::LineProcess()
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    connect(&m_process, SIGNAL(readyReadStandardOutput()), SLOT(read()));
    connect(&m_process, SIGNAL(finished(int, QProcess::ExitStatus)),
            SLOT(finish(int, QProcess::ExitStatus)));
    connect(&m_process, SIGNAL(errorOccurred(QProcess::ProcessError)),
            SLOT(fail(QProcess::ProcessError)));
}

void LineProcess::start(const QString &program, const QStringList &arguments)
{
    m_process.start(program, arguments);
    lineProcess = static_cast<std::sig_atomic_t>(m_process.processId());
    if (lineProcess > 0)
        followSignals();
}

bool LineProcess::wasSignalled()
{
    return signalled != 0;
}

void LineProcess::say(const QJsonObject &line)
{
    m_process.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
}

void LineProcess::interrupt()
{
    if (m_process.processId() > 0)
        ::kill(static_cast<pid_t>(m_process.processId()), SIGINT);
}

void LineProcess::read()
{
    emit said(m_process.readAllStandardOutput());
}

void LineProcess::finish(int status, QProcess::ExitStatus how)
{
    read();
    lineStatus = status;
    if (how != QProcess::NormalExit)
        lineStatus =
            complain(QStringLiteral("line"),
                     QStringLiteral("the process behind the screen was killed, or crashed"),
                     BenchExit::Unable);
    lineProcess = 0;
    emit ended(lineStatus);
}

void LineProcess::fail(QProcess::ProcessError error)
{
    if (error != QProcess::FailedToStart)
        return;
    lineProcess = 0;
    emit ended(complain(QStringLiteral("line"), m_process.errorString(), BenchExit::Unable));
}
