// For a build without the touchscreen library.
#include "calibration/touchscreen.h"

TouchScreen *TouchScreen::open(const QString &device, const QByteArray &, QObject *)
{
    qWarning("Built without the touchscreen library, %s is not read", qPrintable(device));
    return nullptr;
}
