#include "app/picturefile.h"

#include <QFileInfo>
#include <QImageReader>
#include <QList>

namespace
{

/// QImageReader tries the endings by itself, but opens whatever has such a name.
QString withEnding(const QString &path)
{
    const QList<QByteArray> formats = QImageReader::supportedImageFormats();
    for (const QByteArray &format : formats) {
        const QString candidate = path + QLatin1Char('.') + QLatin1String(format.constData());
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return QString();
}

} // namespace

QImage loadPicture(const QString &path)
{
    const QFileInfo info(path);
    // A folder of that name does no harm: QImageReader cannot open it and tries the
    // endings, too.
    const QString file = info.exists() && !info.isDir() ? path : withEnding(path);
    return QFileInfo(file).isFile() ? QImage(file) : QImage();
}
