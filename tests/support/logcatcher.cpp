#include "tests/support/logcatcher.h"

#include <QMutex>

namespace
{

QMutex mutex;
QStringList caught;

QString levelName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("debug: ");
    case QtWarningMsg:
        return QStringLiteral("warning: ");
    default:
        return QStringLiteral("other: ");
    }
}

void keep(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker locker(&mutex);
    caught.append(levelName(type) + text);
}

} // namespace

LogCatcher::LogCatcher()
{
    clear();
    m_previous = qInstallMessageHandler(keep);
}

LogCatcher::~LogCatcher()
{
    qInstallMessageHandler(m_previous);
}

QStringList LogCatcher::lines() const
{
    const QMutexLocker locker(&mutex);
    return caught;
}

int LogCatcher::count(const QString &line) const
{
    return static_cast<int>(lines().count(line));
}

QStringList LogCatcher::take()
{
    const QMutexLocker locker(&mutex);
    const QStringList taken = caught;
    caught.clear();
    return taken;
}

void LogCatcher::clear()
{
    const QMutexLocker locker(&mutex);
    caught.clear();
}
