/// The records of the kernel's input event interface, as bytes.
#ifndef HARDWARE_INPUTEVENT_H
#define HARDWARE_INPUTEVENT_H

#include <QtGlobal>

struct InputEvent {
    quint16 type;
    quint16 code;
    qint32 value;
};

/// Length of a record in bytes on a 32-bit kernel, whose two time fields have four bytes
/// each. The host's own struct input_event has 24 bytes on a 64-bit machine, so it is
/// never used.
const int inputEventSize = 16;

/// Decodes the little-endian record of inputEventSize bytes at @p record. The
/// time stamp in its first half is ignored.
InputEvent decodeInputEvent(const char *record);

/// True for a press, release or auto-repeat of the home key.
bool isHomeKey(const InputEvent &event);

#endif
