/// The lines of the SD card events, as a function over bytes.
#ifndef HARDWARE_SDEVENT_H
#define HARDWARE_SDEVENT_H

#include <QByteArray>
#include <QString>

struct SdEvent {
    enum Kind {
        Nothing, ///< an empty line, or one that is only its line end
        Mounted, ///< "#" and the folder where a card was mounted
        Removed, ///< "!" and the folder of a card that is gone
        Invalid  ///< anything else
    };
    Kind kind;
    QString dir; ///< up to the first zero byte, without the white space around it
};

/// Reads one line as a writer of the pipe sends it, line end included.
SdEvent parseSdEvent(const QByteArray &line);

#endif
