#include "bench/line/calibrationcheck.h"

#include "bench/station/meaning.h"
#include "bench/station/messages.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace
{

enum Location { TopLeft, BottomLeft, BottomRight, TopRight, Centre };

struct Target {
    const char *name;
    int x;
    int y;
};

/// Where the screen has them, in pixels.
const std::array<Target, 5> Targets = {{{"top left", 24, 24},
                                        {"bottom left", 24, 456},
                                        {"bottom right", 776, 456},
                                        {"top right", 776, 24},
                                        {"centre", 400, 240}}};

/// Raw counts are never this near to all five targets: half a target.
const int NothingRawPx = 24;

/// A share of the product of both spreads; below it the points lie on one line.
const double LeastDeterminant = 1e-6;

/// Deviations from the means of all five.
struct Sums {
    double uu = 0;
    double uv = 0;
    double vv = 0;
};

/// One coordinate of the screen over the touchscreen's two: value + u * du + v * dv.
struct Plane {
    double value = 0;
    double u = 0;
    double v = 0;
};

struct Means {
    double u = 0;
    double v = 0;
};

Means meansOf(const CalibrationPoints &points)
{
    Means means;
    for (const QPoint &point : points) {
        means.u += point.x() / static_cast<double>(Targets.size());
        means.v += point.y() / static_cast<double>(Targets.size());
    }
    return means;
}

Sums sumsOf(const CalibrationPoints &points, const Means &means)
{
    Sums sums;
    for (const QPoint &point : points) {
        const double u = point.x() - means.u;
        const double v = point.y() - means.v;
        sums.uu += u * u;
        sums.uv += u * v;
        sums.vv += v * v;
    }
    return sums;
}

double determinant(const Sums &sums)
{
    return sums.uu * sums.vv - sums.uv * sums.uv;
}

/// The plane with the least squares of the distances.
Plane planeOf(const CalibrationPoints &points, const Means &means, const Sums &sums,
              int Target::*coordinate)
{
    Plane plane;
    double ut = 0;
    double vt = 0;
    for (std::size_t i = 0; i < Targets.size(); ++i) {
        const QPoint point = points.value(static_cast<int>(i));
        const double target = Targets[i].*coordinate;
        plane.value += target / static_cast<double>(Targets.size());
        ut += (point.x() - means.u) * target;
        vt += (point.y() - means.v) * target;
    }
    plane.u = (ut * sums.vv - vt * sums.uv) / determinant(sums);
    plane.v = (vt * sums.uu - ut * sums.uv) / determinant(sums);
    return plane;
}

double at(const Plane &plane, const Means &means, const QPoint &point)
{
    return plane.value + plane.u * (point.x() - means.u) + plane.v * (point.y() - means.v);
}

/// "right targets do not lie right of left ones"; empty when they lie right.
QString wrongOrder(const CalibrationPoints &points, const Plan::Calibration &wanted)
{
    const int x = wanted.xGrowsRight ? 1 : -1;
    const int y = wanted.yGrowsDown ? 1 : -1;
    const auto liesRight = [&](int one, int other) {
        return x * points[one].x() > x * points[other].x();
    };
    const auto liesBelow = [&](int one, int other) {
        return y * points[one].y() > y * points[other].y();
    };
    for (const int left : {TopLeft, BottomLeft}) {
        for (const int right : {TopRight, BottomRight}) {
            if (!liesRight(right, left))
                return QStringLiteral("right targets do not lie right of left ones");
        }
    }
    for (const int top : {TopLeft, TopRight}) {
        for (const int bottom : {BottomLeft, BottomRight}) {
            if (!liesBelow(bottom, top))
                return QStringLiteral("bottom targets do not lie below top ones");
        }
    }
    return QString();
}

bool isTheScreensOwn(const CalibrationPoints &points)
{
    for (std::size_t i = 0; i < Targets.size(); ++i) {
        const QPoint point = points.value(static_cast<int>(i));
        if (std::abs(point.x() - Targets[i].x) > NothingRawPx ||
            std::abs(point.y() - Targets[i].y) > NothingRawPx)
            return false;
    }
    return true;
}

QString missingPoints(const CalibrationPoints &points)
{
    QStringList names;
    for (std::size_t i = 0; i < Targets.size(); ++i) {
        if (!points.contains(static_cast<int>(i)))
            names.append(QLatin1String(Targets[i].name));
    }
    return names.join(QStringLiteral(", "));
}

} // namespace

void takeCalibrationPoint(const wire::Frame &frame, CalibrationPoints *points)
{
    if (frame.type != wire::CalibrationPoint)
        return;
    const wire::Meaning meaning = wire::meaningOf(frame);
    const int index = meaning.fields.value(QStringLiteral("index"), -1).toInt();
    if (index == 0)
        points->clear();
    (*points)[index] = QPoint(meaning.fields.value(QStringLiteral("x")).toInt(),
                              meaning.fields.value(QStringLiteral("y")).toInt());
}

CalibrationResult checkCalibration(const CalibrationPoints &points, const Plan::Calibration &wanted,
                                   bool isReal)
{
    CalibrationResult result;
    result.error.name = QStringLiteral("calibration error");
    result.error.unit = QStringLiteral("px");
    result.error.max = wanted.maxErrorPx;
    result.error.limits = wanted.describe();
    const QString missing = missingPoints(points);
    if (!missing.isEmpty()) {
        result.complaint = QStringLiteral("no point for: ") + missing;
        return result;
    }
    const Means means = meansOf(points);
    const Sums sums = sumsOf(points, means);
    if (determinant(sums) <= LeastDeterminant * std::max(1.0, sums.uu * sums.vv)) {
        result.complaint = QStringLiteral("the points lie on one line");
        return result;
    }
    const Plane x = planeOf(points, means, sums, &Target::x);
    const Plane y = planeOf(points, means, sums, &Target::y);
    double largest = 0;
    const char *worst = "";
    for (std::size_t i = 0; i < Targets.size(); ++i) {
        const QPoint point = points.value(static_cast<int>(i));
        const double distance =
            std::hypot(at(x, means, point) - Targets[i].x, at(y, means, point) - Targets[i].y);
        if (distance <= largest)
            continue;
        largest = distance;
        worst = Targets[i].name;
    }
    result.error.value = std::round(largest * 10) / 10;
    result.error.good = largest <= wanted.maxErrorPx;
    if (!result.error.good)
        result.complaint =
            QStringLiteral("%1, most at the %2").arg(result.error.shown(), QLatin1String(worst));
    else
        result.complaint = wrongOrder(points, wanted);
    if (result.complaint.isEmpty() && isReal && isTheScreensOwn(points))
        result.complaint = QStringLiteral("the points are the screen's own: nothing was raw");
    return result;
}
