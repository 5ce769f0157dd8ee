/// Reading a picture from a file that anybody may have put there.
#ifndef APP_PICTUREFILE_H
#define APP_PICTUREFILE_H

#include <QImage>
#include <QString>

/// The picture in @p path; null when there is none.
///
/// The ending may be left out: if @p path is missing or a folder, the first file of that
/// name with the ending of a known format is taken ("bars1" means "bars1.png"). Pipes and
/// devices are not opened; they could block for ever.
QImage loadPicture(const QString &path);

#endif
