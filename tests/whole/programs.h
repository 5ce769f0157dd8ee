/// The programs that the tool starts, as the whole-tool tests handle them.
#ifndef TESTS_WHOLE_PROGRAMS_H
#define TESTS_WHOLE_PROGRAMS_H

#include "bench/keypad/virtualkeypad.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace Programs
{

/// Numbers, inside the keypad, of the processes called @p program.
QList<int> running(VirtualKeypad &keypad, const QString &program);
bool waitUntilRunning(VirtualKeypad &keypad, const QString &program);
bool waitUntilGone(VirtualKeypad &keypad, const QString &program);
/// Sends @p signal ("KILL") to every process called @p program; false when there was none.
bool kill(VirtualKeypad &keypad, const QString &program, const QString &signal);

/// Puts a shell script in the place of @p program. The search path of the script holds
/// only the stand-ins: other programs need their whole path.
bool setScript(VirtualKeypad &keypad, const QString &program, const QByteArray &script);
/// Puts the stand-in back, doing what the real program would.
bool restore(VirtualKeypad &keypad, const QString &program);
/// All four at once; their runs so far are forgotten, and so is an attached volume.
bool restoreAll(VirtualKeypad &keypad);

/// The runs of stand-ins so far, as "program argument argument".
QStringList calls(VirtualKeypad &keypad);
/// When the first run of @p program began, in milliseconds of a clock that goes
/// steadily; -1 when there was none.
double startTime(VirtualKeypad &keypad, const QString &program);

} // namespace Programs

#endif
