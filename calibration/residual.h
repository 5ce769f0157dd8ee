/// How well a calibration fits the five points that it was made from.
#ifndef CALIBRATION_RESIDUAL_H
#define CALIBRATION_RESIDUAL_H

#include "calibration/affinefit.h"
#include "calibration/pointercalibrationdata.h"

/// Logs how many pixels @p map is off at the worst point of @p data. When no finger would
/// miss a target by as much, it is a warning that names the target.
void logResidual(const AffineMap &map, const QWSPointerCalibrationData &data);

#endif
