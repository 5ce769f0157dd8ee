#include "bench/line/storefeed.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

namespace
{

/// Waits for a process in the event loop, so that the line is served meanwhile.
bool awaitEnd(QProcess *process, int limitMs)
{
    QEventLoop loop;
    QObject::connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    QTimer::singleShot(limitMs, &loop, &QEventLoop::quit);
    if (process->state() != QProcess::NotRunning && limitMs > 0)
        loop.exec();
    return process->state() == QProcess::NotRunning;
}

void endNow(QProcess *process)
{
    if (process->state() == QProcess::NotRunning)
        return;
    process->kill();
    process->waitForFinished();
}

} // namespace

StoreFeed::StoreFeed(const QString &outDir, const QString &place)
    : m_outDir(outDir), m_place(place), m_outbox(outDir)
{
    m_import.setStandardInputFile(QProcess::nullDevice());
    m_import.setStandardOutputFile(QProcess::nullDevice());
    connect(&m_import, SIGNAL(finished(int, QProcess::ExitStatus)), SLOT(goOn()));
}

StoreFeed::~StoreFeed()
{
    disconnect(&m_import, nullptr, this, nullptr);
    endNow(&m_import); // what it has not done stays in the list
}

QStringList StoreFeed::command(const QStringList &action) const
{
    return QStringList{QStringLiteral("records"), QStringLiteral("--store=%1").arg(m_place)} +
           action;
}

void StoreFeed::enter(const QString &record)
{
    QString error;
    if (m_place.isEmpty())
        return;
    m_ticket = m_outbox.enter(record, &error);
    if (!m_ticket.isHeld())
        m_complaint = error;
}

void StoreFeed::release()
{
    m_ticket = Outbox::Ticket();
}

void StoreFeed::bring()
{
    if (m_place.isEmpty())
        return;
    m_isDue = true;
    goOn();
}

void StoreFeed::goOn()
{
    if (!m_isDue || m_import.state() != QProcess::NotRunning)
        return;
    m_isDue = false;
    m_import.start(QCoreApplication::applicationFilePath(),
                   command({QStringLiteral("import"), QStringLiteral("--waiting"), m_outDir}));
}

QString StoreFeed::finish(int limitMs)
{
    if (m_place.isEmpty())
        return QString();
    const QDeadlineTimer deadline(limitMs);
    bool isDone = false;
    do // what ends may start the next one
        isDone = awaitEnd(&m_import, static_cast<int>(deadline.remainingTime()));
    while (!deadline.hasExpired() && m_import.state() != QProcess::NotRunning);
    m_isDue = false;
    endNow(&m_import);
    if (!m_complaint.isEmpty())
        return complaint();
    const auto waiting = m_outbox.waiting().size();
    if (waiting == 0)
        return m_place;
    const QString said = QString::fromLocal8Bit(m_import.readAllStandardError().trimmed())
                             .section(QLatin1Char('\n'), -1);
    const QString slow = QStringLiteral("it did not take them in %1 s").arg(limitMs / 1000.0);
    return QStringLiteral("%1 record%2 wait%3 for %4: %5")
        .arg(waiting)
        .arg(QLatin1String(waiting == 1 ? "" : "s"), QLatin1String(waiting == 1 ? "s" : ""),
             m_place, isDone ? said : slow);
}

QString StoreFeed::complaint() const
{
    if (m_complaint.isEmpty())
        return QString();
    return QStringLiteral("not all records are in %1: %2").arg(m_place, m_complaint);
}

QStringList StoreFeed::waiting() const
{
    QStringList files;
    const QList<Outbox::Entry> entries = m_outbox.waiting();
    for (const Outbox::Entry &entry : entries)
        files.append(entry.record);
    return files;
}

std::optional<QDateTime> StoreFeed::whenPassed(const QString &plan, const QString &serialNumber,
                                               int limitMs) const
{
    if (m_place.isEmpty())
        return std::nullopt;
    QProcess asked;
    asked.setStandardInputFile(QProcess::nullDevice());
    asked.start(QCoreApplication::applicationFilePath(),
                command({QStringLiteral("--plan=%1").arg(plan), QStringLiteral("--outcome=pass"),
                         QStringLiteral("show"), QStringLiteral("--"), serialNumber}));
    const bool ended = asked.waitForStarted() && awaitEnd(&asked, limitMs);
    endNow(&asked);
    if (!ended || asked.exitStatus() != QProcess::NormalExit || asked.exitCode() > 1)
        return std::nullopt;
    // A line for each record, the newest last, and an empty one before its steps.
    const QString lines = QString::fromUtf8(asked.readAllStandardOutput());
    const QString newest = lines.section(QStringLiteral("\n\n"), 0, 0)
                               .section(QLatin1Char('\n'), -1, -1, QString::SectionSkipEmpty);
    const int timeLength = 19;
    return QDateTime::fromString(newest.left(timeLength), QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}
