/// Reading a picture from a file that anybody may have put there.
#ifndef APP_PICTUREFILE_H
#define APP_PICTUREFILE_H

#include <QImage>
#include <QString>

/// The picture in @p path; null when there is none.
///
/// The ending may be left out: where nothing but a folder is called @p path, the
/// first file counts that is called so with the ending of a known format ("bars1"
/// means "bars1.png"). Pipes and devices are not opened, they could block for ever.
QImage loadPicture(const QString &path);

#endif
