/// The pointer driver of Qt 4 for Embedded Linux, behind the tool's interface.
#ifndef CALIBRATION_QWSPOINTERDRIVER_H
#define CALIBRATION_QWSPOINTERDRIVER_H

#include "calibration/pointerdriver.h"

#include <QByteArray>
#include <QString>

/// Qt's mouse handlers calculate the map, and read and write the file that
/// POINTERCAL_FILE names. Points on a line, or a file without a map, would make them end
/// the program at the next touch, and five points handed back to them give a slightly
/// different map. So the driver checks both before Qt does, and restores a calibration
/// from its file.
class QWSPointerDriver : public PointerDriver
{
public:
    /// Hides the mouse cursor, too. A file that holds no usable map is logged and
    /// not used.
    explicit QWSPointerDriver(QObject *parent = 0);

    // Without a mouse handler (the tool was started with none, or is not the
    // window server) each of these is logged and does nothing.

    /// The corners and the centre of the screen, and the device points that the map
    /// in force takes there.
    void getCalibration(QWSPointerCalibrationData *data) const override;
    void clearCalibration() override;
    /// The calibration that was in force is restored by new mouse handlers, which read
    /// its file. If POINTERCAL_FILE names another file by now, it is stored there first.
    void calibrate(const QWSPointerCalibrationData *data) override;

    /// As the screen says, which may be rotated.
    QPoint mapToDevice(const QPoint &point, const QSize &screenSize) const override;

private:
    bool takeUp(const QWSPointerCalibrationData &data);
    void restore();
    void clearUnusable();

    bool m_cleared;                     ///< from clearCalibration() to calibrate()
    QWSPointerCalibrationData m_before; ///< what was in force when it was cleared
    QString m_path;                     ///< the file of the calibration in force
    QByteArray m_content;               ///< its content; empty where there is none
};

#endif
