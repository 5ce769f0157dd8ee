// The calibration file's reader, and the fit over any ten points.
//
// The first byte of an input chooses: odd is ten points to fit, even a file.
#include "tests/fuzz/fuzz.h"

#include <QRect>
#include <QSize>

#include "calibration/affinefit.h"
#include "calibration/pointercalfile.h"

namespace
{

const QSize screen(800, 480);

bool sameMap(const AffineMap &one, const AffineMap &other)
{
    return one.a == other.a && one.b == other.b && one.c == other.c && one.d == other.d &&
           one.e == other.e && one.f == other.f && one.s == other.s;
}

void checkFile(const QByteArray &content)
{
    const AffineMap untouched = {1, 2, 3, 4, 5, 6, 7};
    AffineMap map = untouched;
    if (!PointercalFile::parse(content, &map)) {
        FUZZ_VERIFY(sameMap(map, untouched), content);
        return;
    }
    FUZZ_VERIFY(map.s != 0, content);
    AffineMap again = untouched;
    FUZZ_VERIFY(PointercalFile::parse(PointercalFile::format(map), &again), content);
    FUZZ_VERIFY(sameMap(again, map), content);

    // What stands for the map is on the screen, whatever the file says.
    const QWSPointerCalibrationData points = pointsOf(map, screen);
    for (const QPoint &point : points.screenPoints)
        FUZZ_VERIFY(QRect(QPoint(0, 0), screen).contains(point), content);
    for (const QPoint &point : points.devPoints)
        mapped(map, point);
}

/// With x in @p first and y in @p second, and the constant between them.
bool staysWithin32Bits(qint64 first, qint64 second, qint64 constant, const QPoint &point)
{
    const qint64 largest = qAbs(first * point.x()) + qAbs(second * point.y()) + qAbs(constant);
    return largest <= 0x7FFFFFFF;
}

void checkFit(const QByteArray &input)
{
    fuzz::Reader reader(input);
    QWSPointerCalibrationData data;
    for (QPoint &point : data.devPoints)
        point = QPoint(reader.number16(), reader.number16());
    for (QPoint &point : data.screenPoints)
        point = QPoint(reader.number16(), reader.number16());

    const AffineMap untouched = {1, 2, 3, 4, 5, 6, 7};
    AffineMap map = untouched;
    if (!fitAffine(data, &map)) {
        FUZZ_VERIFY(sameMap(map, untouched), input);
        return;
    }
    FUZZ_VERIFY(map.s >= 1 && map.s <= 65536, input);
    for (const QPoint &point : data.devPoints) {
        // The touchscreen library adds up in 32 bits.
        FUZZ_VERIFY(staysWithin32Bits(map.a, map.b, map.c, point), input);
        FUZZ_VERIFY(staysWithin32Bits(map.d, map.e, map.f, point), input);
    }
    FUZZ_VERIFY(largestError(map, data) >= 0, input);

    // Over points that lie on a map but for the pixel they are rounded to, the
    // least squares leave at most the root of five; the scale and the division
    // add a pixel each on either side.
    QWSPointerCalibrationData fitted = data;
    for (int i = 0; i <= QWSPointerCalibrationData::LastLocation; ++i)
        fitted.screenPoints[i] = mapped(map, data.devPoints[i]);
    AffineMap again = untouched;
    if (fitAffine(fitted, &again))
        FUZZ_VERIFY(largestError(again, fitted) <= 5, input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::Reader input(fuzz::bytes(data, size));
    if ((input.byte() & 1) != 0)
        checkFit(input.rest());
    else
        checkFile(input.rest());
    return 0;
}
