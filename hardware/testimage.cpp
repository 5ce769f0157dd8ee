#include "hardware/testimage.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include "compat/wildcard.h"

QString findTestImage(const QString &directory, const QString &name)
{
    if (name.startsWith(QLatin1Char('/')))
        return name;

    const QDir images(directory);
    const QString exact = images.filePath(name);
    if (QFileInfo(exact).isFile())
        return exact;

    const QString match = lastContaining(name, images.entryList(QDir::Files, QDir::Name));
    return match.isEmpty() ? name : images.filePath(match);
}
