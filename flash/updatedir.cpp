#include "flash/updatedir.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include "compat/wildcard.h"

namespace
{
QString pathBelow(const QString &base, const QString &name)
{
    return base + QLatin1Char('/') + name;
}

QStringList subfolders(const QString &base)
{
    return QDir(base).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}
} // namespace

QString chooseUpdateDir(const QString &base, const QString &dir)
{
    if (dir.isEmpty()) {
        const QStringList names = subfolders(base);
        return names.isEmpty() ? QDir(base).absolutePath() : pathBelow(base, names.last());
    }

    if (dir.startsWith(QLatin1Char('/')))
        return dir;

    if (QFileInfo(pathBelow(base, dir)).exists())
        return pathBelow(base, dir);

    const QString name = lastContaining(dir, subfolders(base));
    return name.isEmpty() ? dir : pathBelow(base, name);
}
