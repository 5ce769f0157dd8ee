/// The file that a calibration is stored in, in the touchscreen library's
/// format: the seven integers a b c d e f s of an AffineMap as text.
#ifndef CALIBRATION_POINTERCALFILE_H
#define CALIBRATION_POINTERCALFILE_H

#include "calibration/affinefit.h"

#include <QByteArray>
#include <QSize>
#include <QString>
#include <QStringList>

namespace PointercalFile
{

/// The file that the touchscreen library reads: the one that TSLIB_CALIBFILE
/// names, else the one of POINTERCAL_FILE, else /etc/pointercal. Asked each
/// time: the environment changes when the NAND is mounted.
QString toRead();

/// The file that the drivers of Qt 4 for Embedded Linux read and write: the one of
/// POINTERCAL_FILE, else /etc/pointercal.
QString ofQt();

/// The files that a calibration goes to: that of POINTERCAL_FILE, and that of
/// TSLIB_CALIBFILE where it is another; /etc/pointercal where neither is set.
QStringList toWrite();

/// Reads the seven integers at the beginning of @p content, with any white space between
/// them; what follows (the library's own tool adds screen size and rotation) is ignored.
/// @return false when there are fewer, when one does not fit into 32 bits, or
/// when the scale is 0.
bool parse(const QByteArray &content, AffineMap *map);

/// The file's content for @p map: one line.
QByteArray format(const AffineMap &map);

/// What to give the library when the file holds @p content: its map as mapForLibrary()
/// makes it for @p screenSize, and what the library reads after the seven integers
/// (screen size and rotation at the time) where that makes sense. Empty when
/// mapForLibrary() refuses the map.
QByteArray forLibrary(const QByteArray &content, const QSize &screenSize);

/// The content of the file at @p path; empty when it cannot be read or is not a regular
/// file. Never blocks.
QByteArray read(const QString &path);

/// Stores @p content in every file of @p paths, in all or in none. Each is replaced as a
/// whole: after a power cut the old file is there or the new one. A file that holds
/// @p content already is left alone. A symbolic link stays one; what it points to is
/// replaced. Anything but a regular file is never replaced.
/// @return false when a file could not be stored; @p error then says which one
/// and why, and every file holds what it held before.
bool store(const QStringList &paths, const QByteArray &content, QString *error);

} // namespace PointercalFile

#endif
