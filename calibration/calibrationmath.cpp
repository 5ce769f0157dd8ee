#include "calibration/calibrationmath.h"

#include "calibration/pointercalibrationdata.h"

#include <cmath>

namespace
{

/// In 64 bits: the sum of two coordinates need not fit into an int.
int averageTowardZero(int before, int now)
{
    return static_cast<int>((static_cast<qint64>(before) + now) / 2);
}

/// Unsigned arithmetic wraps where that of int would be undefined.
quint32 squaredDifference(int one, int other)
{
    const quint32 difference = static_cast<quint32>(one) - static_cast<quint32>(other);
    return difference * difference;
}

} // namespace

QPoint averageTowardZero(const QPoint &before, const QPoint &now)
{
    return QPoint(averageTowardZero(before.x(), now.x()), averageTowardZero(before.y(), now.y()));
}

int diagonalLength(const QPoint &from, const QPoint &to)
{
    const quint32 sum = squaredDifference(from.x(), to.x()) + squaredDifference(from.y(), to.y());
    const qint32 squared = static_cast<qint32>(sum);
    // The board's conversion of "not a number" to an integer gives 0.
    if (squared < 0)
        return 0;
    return static_cast<int>(std::sqrt(static_cast<double>(squared)));
}

bool diagonalsAgree(int first, int second)
{
    const int average = qAbs(first + second) >> 1;
    const int tolerance = average / 50;
    const int low = average - tolerance;
    const int high = average + tolerance;
    return first >= low && first <= high && second >= low && second <= high;
}

bool isPlausible(const QPoint *devPoints)
{
    typedef QWSPointerCalibrationData Data;
    return diagonalsAgree(diagonalLength(devPoints[Data::TopLeft], devPoints[Data::BottomRight]),
                          diagonalLength(devPoints[Data::BottomLeft], devPoints[Data::TopRight]));
}
