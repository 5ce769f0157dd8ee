/// The affine map from device to screen coordinates that fits a calibration best.
#ifndef CALIBRATION_AFFINEFIT_H
#define CALIBRATION_AFFINEFIT_H

#include "calibration/pointercalibrationdata.h"

#include <QPoint>
#include <QSize>

/// The touchscreen library's form of the map, in integers:
///     x' = (a x + b y + c) / s
///     y' = (d x + e y + f) / s
/// where the division truncates toward zero.
struct AffineMap {
    qint32 a, b, c;
    qint32 d, e, f;
    qint32 s;
};

/// The screen point of @p device, computed as the touchscreen library does.
QPoint mapped(const AffineMap &map, const QPoint &device);

/// The least-squares fit over the five points of @p data.
///
/// The map holds half a pixel in c and f, so that the truncating division
/// rounds to the nearest pixel. The scale is 65536, or the next smaller power
/// of two with which the library's sums stay within 32 bits.
///
/// @return false, with @p map untouched, when the points determine no map: they
/// lie on a line, or so close to one (closer than a hundredth of its length)
/// that noise and not the panel would decide; or the map needs numbers that
/// the library cannot calculate with.
bool fitAffine(const QWSPointerCalibrationData &data, AffineMap *map);

/// @p map in a form that the touchscreen library can calculate with in 32 bits: the scale
/// is at least 1, and so small that no sum overflows on any point of a panel of up to 16
/// bits. On a wider panel a sum may wrap, which gives a wrong touch, but no division ends
/// the process.
/// @return false, with @p given untouched, when @p map is of no use (its scale is 0, it
/// puts the whole panel on a line, or the screen of @p screenSize outside of any panel),
/// or needs numbers so large that rounding them moves a corner of that screen by more
/// than 4 pixels.
bool mapForLibrary(const AffineMap &map, const QSize &screenSize, AffineMap *given);

/// The largest distance in pixels, in x or in y, between a screen point of
/// @p data and where @p map puts its device point.
/// @param worst  gets the location of that point, 0 to 4; may be null
int largestError(const AffineMap &map, const QWSPointerCalibrationData &data, int *worst = nullptr);

/// Five points that represent @p map: the corners and the centre of a screen of
/// @p screenSize, and the device points that @p map takes there, within 2^24 counts. A
/// map that cannot be inverted gives device points of 0,0.
QWSPointerCalibrationData pointsOf(const AffineMap &map, const QSize &screenSize);

#endif
