/// The pointer driver for versions of Qt without one that can be calibrated: the map is
/// fitted here, stored in the touchscreen library's file, and applied by that library to
/// the touches it reads.
#ifndef CALIBRATION_POINTERCALDRIVER_H
#define CALIBRATION_POINTERCALDRIVER_H

#include "calibration/pointerdriver.h"

#include <QByteArray>

struct AffineMap;
class TouchPointer;
class TouchScreen;

class PointercalDriver : public PointerDriver
{
public:
    /// Loads the stored calibration, and reads the touchscreen that TSLIB_TSDEVICE names,
    /// as soon as it is there. The library is given the calibration that was accepted
    /// here, never the file. Qt's own mouse, where there is one, works as well: it
    /// reports screen coordinates, so no map is applied to it, but a calibration is
    /// stored all the same.
    explicit PointercalDriver(QObject *parent = 0);

    /// The set that was calibrated last, or five points that stand for the map
    /// in the file; the screen's own points where there is no calibration.
    void getCalibration(QWSPointerCalibrationData *data) const override;

    void clearCalibration() override;

    /// Stores to every file of PointercalFile::toWrite(). The calibration in force is
    /// stored with exactly the bytes that it was loaded from or last stored as; when
    /// there is none yet, nothing is stored.
    void calibrate(const QWSPointerCalibrationData *data) override;

    /// @p point itself: a mouse of these versions of Qt knows no rotation.
    QPoint mapToDevice(const QPoint &point, const QSize &screenSize) const override;

private:
    // A calibration as points, as the content of its file, and as given to the library;
    // without content there is none.
    struct Calibration {
        QWSPointerCalibrationData points;
        QByteArray content;
        QByteArray forLibrary;
    };

    static Calibration load();
    static bool computed(const QWSPointerCalibrationData &data, Calibration *result,
                         AffineMap *map);
    void openTouchScreen();
    void setRaw(bool raw);

    Calibration m_inForce;
    TouchScreen *m_touchScreen;
    TouchPointer *m_pointer;
};

#endif
