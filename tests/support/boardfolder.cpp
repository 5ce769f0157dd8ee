#include "tests/support/boardfolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{

/// Links are not followed.
void removeAll(const QString &path)
{
    QDir folder(path);
    const QFileInfoList entries =
        folder.entryInfoList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden | QDir::System);
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() && !entry.isSymLink())
            removeAll(entry.filePath());
        else
            QFile::remove(entry.filePath());
    }
    folder.rmdir(path);
}

} // namespace

void BoardFolder::write(const QString &path, const QByteArray &content)
{
    makeFolder(QFileInfo(path).path());
    QFile file(at(path));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(at(path)));
}

QByteArray BoardFolder::read(const QString &path) const
{
    QFile file(at(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
}

void BoardFolder::makeFolder(const QString &path)
{
    if (!QDir().mkpath(at(path)))
        qFatal("cannot make %s", qPrintable(at(path)));
}

void BoardFolder::remove(const QString &path)
{
    if (QFileInfo(at(path)).isDir() && !QFileInfo(at(path)).isSymLink())
        removeAll(at(path));
    else
        QFile::remove(at(path));
}

bool BoardFolder::exists(const QString &path) const
{
    return QFile::exists(at(path));
}

void BoardFolder::link(const QString &path, const QString &target)
{
    makeFolder(QFileInfo(path).path());
    if (!QFile::link(target, at(path)))
        qFatal("cannot link %s", qPrintable(at(path)));
}
