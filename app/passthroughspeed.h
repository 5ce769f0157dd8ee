/// The speed of the passthrough line, as the command line has it.
#ifndef APP_PASSTHROUGHSPEED_H
#define APP_PASSTHROUGHSPEED_H

#include <QStringList>

/// @param arguments  the command line; "-b" and the argument behind it count
/// @return 9600, 19200, 38400, 57600 or 115200 bits per second; 115200 also where
///         nothing or something else is asked for, the latter with a log line
int passthroughSpeed(const QStringList &arguments);

#endif
