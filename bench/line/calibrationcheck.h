/// Whether the five points of a touchscreen's calibration can be right, as only a station
/// can tell: the keypad compares two diagonals and takes whatever fits them.
#ifndef BENCH_LINE_CALIBRATIONCHECK_H
#define BENCH_LINE_CALIBRATIONCHECK_H

#include "bench/line/plan.h"
#include "bench/line/record.h"

#include <QMap>
#include <QPoint>

/// The points in the touchscreen's own counts, by index: top left, bottom left, bottom
/// right, top right, centre.
using CalibrationPoints = QMap<int, QPoint>;

/// Takes a point that the unit has told; its first begins a calibration anew. A frame of
/// another type is none.
void takeCalibrationPoint(const wire::Frame &frame, CalibrationPoints *points);

struct CalibrationResult {
    Measurement error; ///< the largest distance of a point from where the best map has it
    QString complaint; ///< why the points are not good; empty when they are
};

/// @param isReal  the unit has a touchscreen: points that are the screen's own show that
///                its counts were never raw. On a virtual keypad they are the only ones
CalibrationResult checkCalibration(const CalibrationPoints &points, const Plan::Calibration &wanted,
                                   bool isReal);

#endif
