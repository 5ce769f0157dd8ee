/// Wildcards that mean the same with Qt 4.8, 5.15 and 6: QDir's name filters treat sets
/// of characters differently in each, QRegExp does not.
#ifndef COMPAT_WILDCARD_H
#define COMPAT_WILDCARD_H

#include <QRegExp>
#include <QString>
#include <QStringList>

/// The last of @p names that contains @p part, upper or lower case; null when there
/// is none.
/// @param part  may hold the wildcards "*", "?" and "[...]"
inline QString lastContaining(const QString &part, const QStringList &names)
{
    const QRegExp pattern(QLatin1Char('*') + part + QLatin1Char('*'), Qt::CaseInsensitive,
                          QRegExp::Wildcard);
    for (int i = int(names.size()) - 1; i >= 0; --i) {
        if (pattern.exactMatch(names.at(i)))
            return names.at(i);
    }
    return QString();
}

#endif
