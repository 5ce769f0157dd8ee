/// What the calibration needs from the driver of the touchscreen.
#ifndef CALIBRATION_POINTERDRIVER_H
#define CALIBRATION_POINTERDRIVER_H

#include "calibration/pointercalibrationdata.h"

#include <QObject>
#include <QPoint>
#include <QSize>

class PointerDriver : public QObject
{
public:
    /// The driver of this build: Qt's own on Qt 4 for Embedded Linux, the
    /// PointercalDriver on later versions. Create it once, after the
    /// application object; it belongs to @p parent.
    static PointerDriver *create(QObject *parent);

    /// The calibration in force, which clearCalibration() does not change.
    /// Handing it back unchanged to calibrate(), with no other in between,
    /// restores it exactly.
    virtual void getCalibration(QWSPointerCalibrationData *data) const = 0;

    /// From now on touches arrive in raw device coordinates, until calibrate()
    /// is called. What is stored stays as it is.
    virtual void clearCalibration() = 0;

    /// Computes the transformation from @p data, puts it in force and stores
    /// it. When that fails the reason is logged, and the transformation from
    /// before clearCalibration() is in force again.
    virtual void calibrate(const QWSPointerCalibrationData *data) = 0;

    /// Where @p point, in pixels of a screen of @p screenSize, lies in the
    /// coordinates of the device; differs from @p point on a rotated screen.
    virtual QPoint mapToDevice(const QPoint &point, const QSize &screenSize) const = 0;

protected:
    explicit PointerDriver(QObject *parent) : QObject(parent) {}
};

#endif
