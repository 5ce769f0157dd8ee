/// One store into a kernel attribute file.
#ifndef HARDWARE_ATTRIBUTE_H
#define HARDWARE_ATTRIBUTE_H

#include <QByteArray>
#include <QString>

/// Opens @p path write-only, stores @p text as it is (no line end) in one write and
/// closes the file.
/// @return false when the file cannot be opened. A store that the driver
///         refuses after a successful open goes unnoticed.
bool writeAttribute(const QString &path, const QByteArray &text);

#endif
