#include "hardware/inputevent.h"

#include <QtEndian>

namespace
{

// Fixed by the kernel's interface, whatever header this is built with.
const quint16 keyEvent = 1;
const quint16 homeKey = 102;

} // namespace

InputEvent decodeInputEvent(const char *record)
{
    const uchar *const bytes = reinterpret_cast<const uchar *>(record);
    InputEvent event;
    event.type = qFromLittleEndian<quint16>(bytes + 8);
    event.code = qFromLittleEndian<quint16>(bytes + 10);
    event.value = qFromLittleEndian<qint32>(bytes + 12);
    return event;
}

bool isHomeKey(const InputEvent &event)
{
    return event.type == keyEvent && event.code == homeKey;
}
