/// The data of the replies that carry values, as pure functions.
/// Numbers are padded with zeros to their field's width and never cut: a wider
/// value makes the data longer, and the frame's length field follows.
#ifndef PROTOCOL_REPLYDATA_H
#define PROTOCOL_REPLYDATA_H

#include <QByteArray>
#include <QPoint>
#include <QString>

/// @return "01" for true, "00" for false
QByteArray verdictData(bool good);

/// @return @p index as 2 hexadecimal digits, x and y of @p p as 5 decimal digits each
QByteArray calibrationPointData(int index, const QPoint &p);

/// @return x and y of @p p as 3 decimal digits each
QByteArray touchData(const QPoint &p);

/// @return @p stage and @p percent as 2 hexadecimal digits each
QByteArray flashStatusData(int stage, int percent);

/// @return @p state as 2 hexadecimal digits
QByteArray buttonsData(uint state);

/// @return 8 characters: @p reading with zeros on
///         its left, or its first 8 characters when it is longer
QByteArray voltageData(const QByteArray &reading);

/// The version as two numbers (low 8 bits of each, 2 hexadecimal digits), its
/// text in 14 characters, and sixteen zeros: always 34 characters, in upper case.
/// @param version  "1.2", or the same after a date of eight digits and a blank; a missing
///                 or unreadable number counts as 0
QByteArray versionData(const QString &version);

/// The result of the SD card test: the constant 1, @p timeout, @p portNum, @p status
/// and @p values, each in upper-case hexadecimal of at least two digits. A value that
/// needs more is written in full; a negative one as its 32-bit two's complement.
QString sdCardResponse(int timeout, int portNum, int status, const int (&values)[10]);

#endif
