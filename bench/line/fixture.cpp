#include "bench/line/fixture.h"

#include <QCoreApplication>
#include <QJsonDocument>

#include <csignal>

Fixture::Fixture(const QString &name, const QString &port) : m_name(name), m_port(port) {}

Fixture::~Fixture()
{
    if (!m_process)
        return;
    disconnect(m_process.get(), nullptr, this, nullptr);
    m_process->kill();
    m_process->waitForFinished();
}

void Fixture::start(const QStringList &arguments)
{
    m_process = std::make_unique<QProcess>();
    connect(m_process.get(), SIGNAL(readyReadStandardOutput()), SLOT(readEvents()));
    connect(m_process.get(), SIGNAL(finished(int, QProcess::ExitStatus)), SLOT(finish()));
    connect(m_process.get(), SIGNAL(errorOccurred(QProcess::ProcessError)),
            SLOT(fail(QProcess::ProcessError)));
    m_process->start(QCoreApplication::applicationFilePath(), arguments);
    if (m_process && m_isHungUp) // it may have failed at once
        m_process->closeWriteChannel();
}

void Fixture::say(const QJsonObject &object)
{
    if (m_process)
        m_process->write(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void Fixture::hangUp()
{
    m_isHungUp = true;
    if (m_process)
        m_process->closeWriteChannel();
}

void Fixture::signalTo(int number)
{
    if (m_process && m_process->processId() > 0)
        ::kill(static_cast<pid_t>(m_process->processId()), number);
}

void Fixture::readEvents()
{
    while (m_process->canReadLine()) {
        const QJsonDocument line = QJsonDocument::fromJson(m_process->readLine());
        if (line.isObject())
            emit heard(line.object());
    }
}

void Fixture::finish()
{
    readEvents();
    QString how = QStringLiteral("it was killed, or crashed");
    if (m_process->exitStatus() == QProcess::NormalExit)
        how = QStringLiteral("it ended with status %1").arg(m_process->exitCode());
    const QByteArray complaint = m_process->readAllStandardError().trimmed();
    if (!complaint.isEmpty())
        how += QStringLiteral(", \"%1\"")
                   .arg(QString::fromUtf8(complaint.mid(complaint.lastIndexOf('\n') + 1)));
    m_process.release()->deleteLater(); // it is in the middle of a signal
    emit ended(how);
}

/// The program was there a moment ago, so this is a lack of memory or of processes.
void Fixture::fail(QProcess::ProcessError error)
{
    if (error != QProcess::FailedToStart || !m_process)
        return;
    const QString how = QStringLiteral("it could not be started: %1").arg(m_process->errorString());
    m_process.release()->deleteLater();
    emit ended(how);
}
