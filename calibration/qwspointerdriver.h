/// The pointer driver of Qt 4 for Embedded Linux, behind the tool's interface.
#ifndef CALIBRATION_QWSPOINTERDRIVER_H
#define CALIBRATION_QWSPOINTERDRIVER_H

#include "calibration/pointerdriver.h"

#include <QByteArray>
#include <QString>

/// Qt's mouse handlers calculate the map, and read and write the file that
/// POINTERCAL_FILE names. What they would do with points that lie on a line, or
/// with a file that holds no map, ends the program at the next touch; and five
/// points handed back to them are no longer quite the map that they came from. So
/// the driver looks at both before Qt does, and restores a calibration by the file.
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
    /// What was in force is restored by new mouse handlers, which read its file;
    /// stored first in the file that POINTERCAL_FILE names now, where that is
    /// another one.
    void calibrate(const QWSPointerCalibrationData *data) override;

    /// By the screen, which may be rotated.
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
