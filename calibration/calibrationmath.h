/// The arithmetic of a calibration cycle, as functions over points.
#ifndef CALIBRATION_CALIBRATIONMATH_H
#define CALIBRATION_CALIBRATIONMATH_H

#include <QPoint>

/// Half way between @p before and @p now, each component truncated toward zero.
QPoint averageTowardZero(const QPoint &before, const QPoint &now);

/// Distance of two points, truncated to an integer. The squares are added in
/// 32 bits, as on the board; a sum that wraps to a negative number counts as
/// length 0. No panel of up to 15 bits gets there.
int diagonalLength(const QPoint &from, const QPoint &to);

/// Whether both lengths lie within 2 % of their average, bounds included.
bool diagonalsAgree(int first, int second);

/// Whether the corners of a set can be those of the screen: its two diagonals
/// agree. @p devPoints are in the order of QWSPointerCalibrationData; the fifth,
/// the centre, is not looked at.
bool isPlausible(const QPoint *devPoints);

#endif
