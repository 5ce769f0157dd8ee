#include "hardware/testimage.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

QString findTestImage(const QString &directory, const QString &name)
{
    if (name.startsWith(QLatin1Char('/')))
        return name;

    const QDir images(directory);
    const QString exact = images.filePath(name);
    if (QFileInfo(exact).isFile())
        return exact;

    const QStringList wildcard(QLatin1Char('*') + name + QLatin1Char('*'));
    const QStringList matches = images.entryList(wildcard, QDir::Files, QDir::Name);
    return matches.isEmpty() ? name : images.filePath(matches.last());
}
