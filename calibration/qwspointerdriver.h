/// The pointer driver of Qt 4 for Embedded Linux, behind the tool's interface.
#ifndef CALIBRATION_QWSPOINTERDRIVER_H
#define CALIBRATION_QWSPOINTERDRIVER_H

#include "calibration/pointerdriver.h"

class QWSPointerDriver : public PointerDriver
{
public:
    explicit QWSPointerDriver(QObject *parent = 0);

    // Without a mouse handler (the tool was started with none, or is not the
    // window server) each of these is logged and does nothing.
    void getCalibration(QWSPointerCalibrationData *data) const override;
    void clearCalibration() override;
    void calibrate(const QWSPointerCalibrationData *data) override;

    /// By the screen, which may be rotated.
    QPoint mapToDevice(const QPoint &point, const QSize &screenSize) const override;
};

#endif
