#include "calibration/residual.h"

#include <QtDebug>

namespace
{

/// A fingertip that aims at a target hits it within this many pixels.
const int largestMiss = 10;

/// In the order of the locations of QWSPointerCalibrationData.
const char *const targetNames[] = {"top left", "bottom left", "bottom right", "top right",
                                   "centre"};

} // namespace

void logResidual(const AffineMap &map, const QWSPointerCalibrationData &data)
{
    int worst = 0;
    const int error = largestError(map, data, &worst);
    if (error <= largestMiss)
        qDebug("The calibration fits its points to %d pixels", error);
    else
        qWarning("The calibration is off by %d pixels at the %s target, it is stored all the same",
                 error, targetNames[worst]);
}
