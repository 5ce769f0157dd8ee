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
        m_line.append(chunk.constData() + begin, i + 1 - begin);
        begin = i + 1;
        handleLine(m_line);
        m_line.clear();
    }
    m_line.append(chunk.constData() + begin, static_cast<int>(chunk.size()) - begin);
}
