#include "bench/line/afterunit.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>

#include <algorithm>

namespace
{

const int LookEveryMs = 50; ///< at the interrupt, which sends no event
/// Enough time to tell another system that a unit was interrupted; a person is waiting
/// for the end.
const int InterruptedLimitMs = 2000;

/// It is shown on a terminal, so it may hold only what can be printed.
QString lastLine(const QByteArray &output)
{
    QString line = QString::fromLocal8Bit(output.trimmed()).section(QLatin1Char('\n'), -1);
    for (QChar &character : line) {
        if (!character.isPrint())
            character = QLatin1Char('?');
    }
    return line;
}

} // namespace

QString runAfterUnit(const QString &program, const QString &record, int limitMs,
                     const Interrupt *interrupt)
{
    QDeadlineTimer deadline(limitMs);
    bool isInterrupted = false;
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice()); // the operator's answers are not for it
    QEventLoop loop;
    QObject::connect(&process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    const auto look = [&] {
        if (!isInterrupted && interrupt != nullptr && interrupt->isRaised()) {
            isInterrupted = true;
            deadline.setRemainingTime(
                std::min<qint64>(deadline.remainingTime(), InterruptedLimitMs));
        }
        if (deadline.hasExpired())
            loop.quit();
    };
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, look);
    timer.start(LookEveryMs);
    process.start(program, {record});
    if (!process.waitForStarted())
        return QStringLiteral("%1: %2").arg(
            program, process.errorString().section(QStringLiteral(": "), -1));
    if (process.state() != QProcess::NotRunning)
        loop.exec();
    QString reason;
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        reason = isInterrupted ? QStringLiteral("not done when the run was interrupted")
                               : QStringLiteral("not done in %1 s").arg(limitMs / 1000.0);
    } else if (process.exitStatus() != QProcess::NormalExit) {
        reason = QStringLiteral("ended by a signal");
    } else if (process.exitCode() != 0) {
        reason = QStringLiteral("exit status %1").arg(process.exitCode());
    }
    if (reason.isEmpty())
        return QString();
    const QString said = lastLine(process.readAll());
    return QStringLiteral("%1: %2%3")
        .arg(program, reason, said.isEmpty() ? said : QStringLiteral(": ") + said);
}
