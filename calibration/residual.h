/// How well a calibration fits the five points that it was made from.
#ifndef CALIBRATION_RESIDUAL_H
#define CALIBRATION_RESIDUAL_H

#include "calibration/affinefit.h"
#include "calibration/pointercalibrationdata.h"

/// Logs by how many pixels @p map misses the worst of the points of @p data; beyond
/// what a finger misses a target by, as a warning that names the target.
void logResidual(const AffineMap &map, const QWSPointerCalibrationData &data);

#endif
