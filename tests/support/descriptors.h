/// What this process has open, and what is in a file.
#ifndef TESTS_SUPPORT_DESCRIPTORS_H
#define TESTS_SUPPORT_DESCRIPTORS_H

#include <QDir>
#include <QFile>
#include <QList>
#include <QString>
#include <QStringList>

/// How many descriptors this process has.
inline int openDescriptors()
{
    return int(QDir(QLatin1String("/proc/self/fd"))
                   .entryList(QDir::NoDotAndDotDot | QDir::Files | QDir::System)
                   .size());
}

/// Those that are open on @p path.
inline QList<int> descriptorsOn(const QString &path)
{
    QList<int> found;
    const QDir folder(QLatin1String("/proc/self/fd"));
    const QStringList names = folder.entryList(QDir::Files | QDir::System);
    for (const QString &name : names) {
        if (QFile::symLinkTarget(folder.filePath(name)) == path)
            found.append(name.toInt());
    }
    return found;
}

/// "(none)" when it cannot be read.
inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

#endif
