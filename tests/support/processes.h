/// What /proc says of another process. All of it is empty when the process has gone.
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QStringList>

namespace process
{

inline QDir folder(qint64 pid, const QString &name)
{
    return QDir(QStringLiteral("/proc/%1/%2").arg(pid).arg(name));
}

inline QByteArray read(qint64 pid, const QString &name)
{
    QFile file(folder(pid, name).path());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// The folders of its threads below /proc/PID.
inline QStringList threads(qint64 pid)
{
    QStringList found =
        folder(pid, QStringLiteral("task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (QString &name : found)
        name.prepend(QLatin1String("task/"));
    return found;
}

/// What comes after the name in stat: the state, the parent and so on.
inline QList<QByteArray> stat(qint64 pid, const QString &thread = QStringLiteral("."))
{
    const QByteArray text = read(pid, thread + QLatin1String("/stat"));
    return text.isEmpty() ? QList<QByteArray>() : text.mid(text.lastIndexOf(')') + 2).split(' ');
}

/// The state of each of its threads, a letter each: "SSR".
inline QByteArray states(qint64 pid)
{
    QByteArray letters;
    const QStringList all = threads(pid);
    for (const QString &thread : all)
        letters += stat(pid, thread).value(0);
    return letters;
}

/// Those it has started, running or not yet waited for.
inline QList<qint64> children(qint64 pid)
{
    QList<qint64> found;
    const QStringList all = threads(pid);
    for (const QString &thread : all) {
        const QByteArray pids = read(pid, thread + QLatin1String("/children")).simplified();
        if (pids.isEmpty())
            continue;
        const QList<QByteArray> numbers = pids.split(' ');
        for (const QByteArray &number : numbers)
            found.append(number.toLongLong());
    }
    return found;
}

/// What its descriptors lead to, "5 /dev/null".
inline QStringList openFiles(qint64 pid)
{
    const QDir all = folder(pid, QStringLiteral("fd"));
    QStringList found = all.entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System);
    for (QString &name : found)
        name += QLatin1Char(' ') + QFile::symLinkTarget(all.filePath(name));
    return found;
}

/// Memory of its own, in KiB.
inline qint64 ownMemory(qint64 pid)
{
    const QList<QByteArray> lines = read(pid, QStringLiteral("smaps_rollup")).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("Private_Dirty:"))
            return line.mid(14).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

/// A sanitizer keeps what was freed for a while.
inline bool isSanitized(qint64 pid)
{
    return read(pid, QStringLiteral("maps")).contains("libasan");
}

} // namespace process

#endif
