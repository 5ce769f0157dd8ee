/// Whether the five points of a touchscreen's calibration can be right. Only a station
/// can say: the keypad compares two diagonals and accepts whatever fits them.
#ifndef BENCH_LINE_CALIBRATIONCHECK_H
#define BENCH_LINE_CALIBRATIONCHECK_H

#include "bench/line/plan.h"
#include "bench/line/record.h"

#include <QMap>
#include <QPoint>

/// The points in the touchscreen's own counts, by index: top left, bottom left, bottom
/// right, top right, centre.
using CalibrationPoints = QMap<int, QPoint>;

/// Takes a point that the unit has reported; the first one starts a new calibration.
/// Frames of other types are ignored.
void takeCalibrationPoint(const wire::Frame &frame, CalibrationPoints *points);

struct CalibrationResult {
    Measurement error; ///< the largest distance of a point from where the best map puts it
    QString complaint; ///< why the points are not good; empty when they are
};

/// @param isReal  the unit has a touchscreen: if its points are the screen's own, its
///                counts were not raw. A virtual keypad has no others
CalibrationResult checkCalibration(const CalibrationPoints &points, const Plan::Calibration &wanted,
                                   bool isReal);

#endif
