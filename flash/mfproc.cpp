#include "flash/mfproc.h"

#include "compat/qtcompat.h"

namespace
{
struct ErrorText {
    QProcess::ProcessError error;
    const char *text;
};

const ErrorText errorTexts[] = {
    {QProcess::FailedToStart, "Failed to Start"},
    {QProcess::Crashed, "Crashed"},
    {QProcess::Timedout, "Timed Out"},
    {QProcess::ReadError, "Read Error"},
    {QProcess::WriteError, "Write Error"},
};

/// A hundred times what a tool prints in a line. What a broken one prints without
/// a line end must not fill the memory.
const int longestLine = 64 * 1024;

QString textOf(QProcess::ProcessError error)
{
    for (const ErrorText &row : errorTexts) {
        if (row.error == error)
            return QLatin1String(row.text);
    }
    return QLatin1String("Unknown");
}
} // namespace

MFProc::MFProc(QObject *parent) : QObject(parent), m_process(new QProcess(this))
{
    // Nobody reads it, and QProcess would keep it in the tool's memory.
    m_process->setStandardErrorFile(QLatin1String("/dev/null"));
    connect(m_process, SIGNAL(finished(int, QProcess::ExitStatus)),
            SLOT(finished(int, QProcess::ExitStatus)));
    connect(m_process, SIGNAL(readyReadStandardOutput()), SLOT(readyRead()));
    connect(m_process, MFTOOL_SIGNAL_PROCESS_ERROR, SLOT(error(QProcess::ProcessError)));
}

void MFProc::start()
{
    run();
}

void MFProc::finished(int exitCode, QProcess::ExitStatus exitStatus)
{
    qDebug("process finished with code %d", exitCode);
    if (exitStatus == QProcess::NormalExit && exitCode == 0) {
        emit status(100);
        emit complete();
        return;
    }
    emit failed(
        QLatin1String(exitStatus == QProcess::CrashExit ? "Crashed" : "Finished with Error"));
}

void MFProc::error(QProcess::ProcessError processError)
{
    const QString text = textOf(processError);
    qDebug("Process error '%s'", text.toLocal8Bit().constData());
    emit failed(text);
}

void MFProc::readyRead()
{
    const QByteArray chunk = m_process->readAll();
    int begin = 0;
    for (int i = 0; i < chunk.size(); ++i) {
        const char byte = chunk.at(i);
        if (byte != '\r' && byte != '\n')
            continue;
        extendLine(chunk.mid(begin, i - begin));
        begin = i + 1;
        handleLine(m_line + byte);
        m_line.clear();
    }
    extendLine(chunk.mid(begin));
}

void MFProc::extendLine(const QByteArray &bytes)
{
    m_line.append(bytes.left(longestLine - static_cast<int>(m_line.size())));
}
