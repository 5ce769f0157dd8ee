/// The mouse of Qt 4.8 for Embedded Linux, as far as calibration goes: stand-ins
/// with the arithmetic of the real classes, which a PC has not got.
#ifndef TESTS_API_QWS_H
#define TESTS_API_QWS_H

#include <QtCore/QPoint>

namespace qws
{

enum Handler {
    LinuxInput, ///< applies the map itself, and reads POINTERCAL_FILE
    Tslib       ///< leaves the map to the touchscreen library, which reads TSLIB_CALIBFILE
};

/// A window server whose mouse is of kind @p handler; the one before is gone.
void start(Handler handler);
/// One without a mouse.
void startWithoutMouse();
/// No window server at all.
void stop();

bool cursorIsVisible();

/// Where a touch at @p device arrives; 0,0 without a mouse. One whose map divides by zero arrives
/// nowhere: divisionsByZero() has grown.
QPoint touch(const QPoint &device);

/// How many times the real classes would have ended the process so far.
int divisionsByZero();

} // namespace qws

#endif
