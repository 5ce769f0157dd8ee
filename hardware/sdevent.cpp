#include "hardware/sdevent.h"

#include <QFile>

SdEvent parseSdEvent(const QByteArray &line)
{
    SdEvent event = {SdEvent::Nothing, QString()};
    if (line.isEmpty() || line == "\n" || line == "\r\n")
        return event;
    switch (line.at(0)) {
    case '#':
        event.kind = SdEvent::Mounted;
        break;
    case '!':
        event.kind = SdEvent::Removed;
        break;
    default:
        event.kind = SdEvent::Invalid;
        return event;
    }
    // Without its length, so that the text ends at the first zero byte.
    event.dir = QFile::decodeName(line.mid(1).constData()).trimmed();
    return event;
}
