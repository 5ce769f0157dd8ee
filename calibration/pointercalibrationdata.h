/// The five pairs of points that a calibration is made from.
#ifndef CALIBRATION_POINTERCALIBRATIONDATA_H
#define CALIBRATION_POINTERCALIBRATIONDATA_H

#include <QtGlobal>

// As a number: the moc of Qt 4 reads this too and cannot evaluate QT_VERSION_CHECK.
#if QT_VERSION < 0x050000

// Qt for Embedded Linux brings its own, which its drivers take.
#include <QWSPointerCalibrationData>

#else

#include <QPoint>

/// Same name and layout as in Qt 4 for Embedded Linux, which later versions of
/// Qt have dropped together with its pointer drivers.
class QWSPointerCalibrationData
{
public:
    enum Location {
        TopLeft = 0,
        BottomLeft = 1,
        BottomRight = 2,
        TopRight = 3,
        Center = 4,
        LastLocation = Center
    };

    QPoint devPoints[5];    ///< where the panel saw each target, in its own units
    QPoint screenPoints[5]; ///< where each target was on the screen, in pixels
};

#endif

inline bool operator==(const QWSPointerCalibrationData &one, const QWSPointerCalibrationData &other)
{
    for (int i = 0; i <= QWSPointerCalibrationData::LastLocation; ++i) {
        if (one.devPoints[i] != other.devPoints[i] || one.screenPoints[i] != other.screenPoints[i])
            return false;
    }
    return true;
}

#endif
