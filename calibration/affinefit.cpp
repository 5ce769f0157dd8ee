#include "calibration/affinefit.h"

#include <QSize>

#include <cmath>
#include <limits>

namespace
{

const int pointCount = QWSPointerCalibrationData::LastLocation + 1;

/// The usual scale of the touchscreen library's own calibration.
const qint32 largestScale = 65536;

/// Up to here the sums below are exact in 64 bits. No panel counts that far.
const int largestCoordinate = 1 << 24;

/// Square of the smallest ratio of width to length that a cloud of points may
/// have. A panel whose second axis is dead gives a line one or two counts wide.
const double thinnest = 0.01 * 0.01;

/// Counts of the widest touch panel, which has 16 bits.
const int widestPanel = 65535;

/// What rounding a map for the library may cost, in pixels: less than a fingertip.
const int roundingError = 4;

/// The targets lie inside the panel; touches reach further out by this factor.
const double reach = 1.25;

struct Row {
    double x, y, constant;
};

/// Sums of products of deviations from the mean, each deviation times pointCount
/// so that it is an integer.
struct Moments {
    qint64 sumX, sumY;
    qint64 xx, xy, yy;
};

bool isCountable(const QPoint &point)
{
    return point.x() >= -largestCoordinate && point.x() <= largestCoordinate &&
           point.y() >= -largestCoordinate && point.y() <= largestCoordinate;
}

/// A panel may end before the screen does, but not by its own width.
bool isOnAPanel(const QPoint &point)
{
    return qAbs(point.x()) <= 2 * widestPanel && qAbs(point.y()) <= 2 * widestPanel;
}

Moments momentsOf(const QPoint *points)
{
    Moments m = {0, 0, 0, 0, 0};
    for (int i = 0; i < pointCount; ++i) {
        m.sumX += points[i].x();
        m.sumY += points[i].y();
    }
    for (int i = 0; i < pointCount; ++i) {
        const qint64 u = qint64(pointCount) * points[i].x() - m.sumX;
        const qint64 v = qint64(pointCount) * points[i].y() - m.sumY;
        m.xx += u * u;
        m.xy += u * v;
        m.yy += v * v;
    }
    return m;
}

double determinant(const Moments &m)
{
    return double(m.xx) * double(m.yy) - double(m.xy) * double(m.xy);
}

double determinant(const AffineMap &map)
{
    return double(map.a) * map.e - double(map.b) * map.d;
}

/// For a thin cloud determinant / trace^2 is the square of width / length.
bool isOnALine(const Moments &m)
{
    const double trace = double(m.xx) + double(m.yy);
    return determinant(m) <= thinnest * trace * trace;
}

/// One row of the map: the best x and y factor and constant for @p wanted.
Row fitRow(const Moments &m, const QPoint *points, const int *wanted)
{
    qint64 sum = 0;
    for (int i = 0; i < pointCount; ++i)
        sum += wanted[i];
    qint64 xw = 0;
    qint64 yw = 0;
    for (int i = 0; i < pointCount; ++i) {
        const qint64 w = qint64(pointCount) * wanted[i] - sum;
        xw += (qint64(pointCount) * points[i].x() - m.sumX) * w;
        yw += (qint64(pointCount) * points[i].y() - m.sumY) * w;
    }
    Row row;
    row.x = (double(xw) * double(m.yy) - double(yw) * double(m.xy)) / determinant(m);
    row.y = (double(yw) * double(m.xx) - double(xw) * double(m.xy)) / determinant(m);
    row.constant = (double(sum) - row.x * double(m.sumX) - row.y * double(m.sumY)) / pointCount;
    return row;
}

/// Whether every intermediate sum of the library fits into 32 bits for a touch at
/// @p farX, @p farY counts, in whatever order it adds.
bool holds(const Row &row, double scale, double farX, double farY)
{
    const double largest =
        (std::fabs(row.x) * farX + std::fabs(row.y) * farY + std::fabs(row.constant)) * scale;
    return largest < double(std::numeric_limits<qint32>::max());
}

/// The largest of the library's sums, in whatever order it adds, on @p counts.
qint64 largestSum(const AffineMap &map, qint64 counts)
{
    const qint64 ofX = (qAbs(qint64(map.a)) + qAbs(qint64(map.b))) * counts + qAbs(qint64(map.c));
    const qint64 ofY = (qAbs(qint64(map.d)) + qAbs(qint64(map.e))) * counts + qAbs(qint64(map.f));
    return qMax(ofX, ofY);
}

qint32 scaled(double value, qint32 scale)
{
    return static_cast<qint32>(std::floor(value * scale + 0.5));
}

/// A map edited by hand can give any value; the result is kept within the range of a count.
int nearestCount(double value)
{
    const double largest = largestCoordinate;
    // Not qRound(), whose numbers Qt 4 has in single precision on an ARM.
    return static_cast<int>(std::floor(qBound(-largest, value, largest) + 0.5));
}

int truncated(qint64 sum, qint32 scale)
{
    return static_cast<int>(sum / scale);
}

} // namespace

QPoint mapped(const AffineMap &map, const QPoint &device)
{
    const qint64 x = device.x();
    const qint64 y = device.y();
    return QPoint(truncated(map.a * x + map.b * y + map.c, map.s),
                  truncated(map.d * x + map.e * y + map.f, map.s));
}

bool fitAffine(const QWSPointerCalibrationData &data, AffineMap *map)
{
    int wantedX[pointCount];
    int wantedY[pointCount];
    double farX = 0;
    double farY = 0;
    for (int i = 0; i < pointCount; ++i) {
        if (!isCountable(data.devPoints[i]) || !isCountable(data.screenPoints[i]))
            return false;
        wantedX[i] = data.screenPoints[i].x();
        wantedY[i] = data.screenPoints[i].y();
        farX = qMax(farX, reach * qAbs(data.devPoints[i].x()));
        farY = qMax(farY, reach * qAbs(data.devPoints[i].y()));
    }

    const Moments moments = momentsOf(data.devPoints);
    if (isOnALine(moments))
        return false;

    Row toX = fitRow(moments, data.devPoints, wantedX);
    Row toY = fitRow(moments, data.devPoints, wantedY);
    toX.constant += 0.5;
    toY.constant += 0.5;

    // Rounding moves a factor by up to half a step of the scale, and a touch by that
    // times its coordinate: below this scale by more than a pixel.
    const double smallestScale = qMax(farX, farY) / 2;
    qint32 scale = largestScale;
    while (!holds(toX, scale, farX, farY) || !holds(toY, scale, farX, farY)) {
        scale /= 2;
        if (scale < 1 || scale < smallestScale)
            return false;
    }

    map->a = scaled(toX.x, scale);
    map->b = scaled(toX.y, scale);
    map->c = scaled(toX.constant, scale);
    map->d = scaled(toY.x, scale);
    map->e = scaled(toY.y, scale);
    map->f = scaled(toY.constant, scale);
    map->s = scale;
    return true;
}

bool mapForLibrary(const AffineMap &map, const QSize &screenSize, AffineMap *given)
{
    if (map.s == 0 || determinant(map) == 0)
        return false;

    const QWSPointerCalibrationData points = pointsOf(map, screenSize);
    for (int i = 0; i < pointCount; ++i) {
        if (!isOnAPanel(points.devPoints[i]))
            return false;
    }

    const double scaleBefore = map.s;
    double scale = std::fabs(scaleBefore);
    const qint64 sum = largestSum(map, widestPanel);
    const qint64 largest = std::numeric_limits<qint32>::max();
    // Each of the three numbers of a sum may be rounded up by half.
    if (sum > largest)
        scale = std::floor(scale * double(largest - 2 * widestPanel) / double(sum));
    if (scale < 1)
        return false;

    const qint32 s = static_cast<qint32>(scale);
    const AffineMap rounded = {scaled(map.a / scaleBefore, s),
                               scaled(map.b / scaleBefore, s),
                               scaled(map.c / scaleBefore, s),
                               scaled(map.d / scaleBefore, s),
                               scaled(map.e / scaleBefore, s),
                               scaled(map.f / scaleBefore, s),
                               s};
    if (largestError(rounded, points) > largestError(map, points) + roundingError)
        return false;
    *given = rounded;
    return true;
}

int largestError(const AffineMap &map, const QWSPointerCalibrationData &data, int *worst)
{
    int largest = -1;
    for (int i = 0; i < pointCount; ++i) {
        const QPoint off = mapped(map, data.devPoints[i]) - data.screenPoints[i];
        const int error = qMax(qAbs(off.x()), qAbs(off.y()));
        if (error <= largest)
            continue;
        largest = error;
        if (worst)
            *worst = i;
    }
    return largest;
}

QWSPointerCalibrationData pointsOf(const AffineMap &map, const QSize &screenSize)
{
    const int right = screenSize.width() - 1;
    const int bottom = screenSize.height() - 1;
    QWSPointerCalibrationData data;
    data.screenPoints[QWSPointerCalibrationData::TopLeft] = QPoint(0, 0);
    data.screenPoints[QWSPointerCalibrationData::BottomLeft] = QPoint(0, bottom);
    data.screenPoints[QWSPointerCalibrationData::BottomRight] = QPoint(right, bottom);
    data.screenPoints[QWSPointerCalibrationData::TopRight] = QPoint(right, 0);
    data.screenPoints[QWSPointerCalibrationData::Center] = QPoint(right / 2, bottom / 2);

    const double det = determinant(map);
    if (det == 0)
        return data;
    for (int i = 0; i < pointCount; ++i) {
        const double x = double(map.s) * data.screenPoints[i].x() - map.c;
        const double y = double(map.s) * data.screenPoints[i].y() - map.f;
        data.devPoints[i] = QPoint(nearestCount((map.e * x - map.b * y) / det),
                                   nearestCount((map.a * y - map.d * x) / det));
    }
    return data;
}
