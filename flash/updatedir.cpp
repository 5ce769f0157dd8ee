#include "flash/updatedir.h"

#include <QDir>
#include <QFileInfo>
#include <QRegExp>
#include <QStringList>

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

/// The last of @p names that contains @p part, or nothing. QDir's own name
/// filters read some wildcards differently from one Qt to the next; QRegExp is
/// the same in all of them.
QString lastContaining(const QString &part, const QStringList &names)
{
    const QRegExp pattern(QLatin1Char('*') + part + QLatin1Char('*'), Qt::CaseInsensitive,
                          QRegExp::Wildcard);
    for (int i = int(names.size()) - 1; i >= 0; --i) {
        if (pattern.exactMatch(names.at(i)))
            return names.at(i);
    }
    return QString();
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
