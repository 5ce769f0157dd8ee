/// The speed of the passthrough line, as given on the command line.
#ifndef APP_PASSTHROUGHSPEED_H
#define APP_PASSTHROUGHSPEED_H

#include <QStringList>

/// @param arguments  the command line; "-b" and the argument after it are read
/// @return 9600, 19200, 38400, 57600 or 115200 bits per second; 115200 when none is
///         given, and when it is none of these, which is logged
int passthroughSpeed(const QStringList &arguments);

#endif
