// The calibration file's reader, what the touchscreen library makes of the file, and
// the fit over any ten points.
//
// The first byte of an input chooses: odd is ten points to fit, even a file.
#include "tests/fuzz/fuzz.h"

#include <QCoreApplication>
#include <QFile>
#include <QRect>
#include <QSize>
#include <QTemporaryDir>
#include <QVector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "calibration/affinefit.h"
#include "calibration/pointercalfile.h"
#include "calibration/touchscreen.h"

namespace
{

const QSize screen(800, 480);

bool sameMap(const AffineMap &one, const AffineMap &other)
{
    return one.a == other.a && one.b == other.b && one.c == other.c && one.d == other.d &&
           one.e == other.e && one.f == other.f && one.s == other.s;
}

/// With x in @p first and y in @p second, and the constant between them.
bool staysWithin32Bits(qint64 first, qint64 second, qint64 constant, const QPoint &point)
{
    const qint64 largest = qAbs(first * point.x()) + qAbs(second * point.y()) + qAbs(constant);
    return largest <= 0x7FFFFFFF;
}

#ifdef MFTOOL_HAVE_TSLIB

/// The real library on a panel in a pipe, whose module takes packets of five bytes with
/// coordinates of 11 bits.
class Panel
{
public:
    Panel()
    {
        const QByteArray folder = QFile::encodeName(m_folder.path());
        const QByteArray pipe = folder + "/panel";
        QFile configuration(m_folder.filePath("ts.conf"));
        if (!configuration.open(QIODevice::WriteOnly) || ::mkfifo(pipe.constData(), 0600) != 0)
            std::abort();
        configuration.write("module_raw touchkit\nmodule linear\n");
        configuration.close();
        qputenv("TSLIB_CONFFILE", folder + "/ts.conf");
        m_pipe = ::open(pipe.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        m_screen = TouchScreen::open(QFile::decodeName(pipe), QByteArray(), &m_owner);
        QObject::connect(m_screen, &TouchScreen::touched, &m_owner,
                         [this](const QPoint &at) { m_seen << at; });
    }

    /// Where touches at @p points arrive when the library is given @p calibration.
    QVector<QPoint> touch(const QByteArray &calibration, const QVector<QPoint> &points)
    {
        m_seen.clear();
        m_screen->recalibrate(calibration);
        for (const QPoint &at : points) {
            const char packet[] = {char(0x81), char(at.x() >> 7), char(at.x() & 0x7f),
                                   char(at.y() >> 7), char(at.y() & 0x7f)};
            if (::write(m_pipe, packet, sizeof packet) != ssize_t(sizeof packet))
                std::abort();
        }
        QMetaObject::invokeMethod(m_screen, "readSamples", Qt::DirectConnection);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return m_seen;
    }

private:
    QTemporaryDir m_folder;
    QObject m_owner;
    int m_pipe = -1;
    TouchScreen *m_screen = nullptr;
    QVector<QPoint> m_seen;
};

/// The library survives every file, and calculates what the tool expects.
void checkLibrary(const QByteArray &content)
{
    static int argc = 1;
    static char name[] = "fuzz_pointercal";
    static char *argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
    static Panel panel;

    const QByteArray given = PointercalFile::forLibrary(content, screen);
    const QVector<QPoint> points = {{0, 0}, {2047, 0}, {0, 2047}, {2047, 2047}, {1023, 511}};
    const QVector<QPoint> seen = panel.touch(given, points);
    FUZZ_VERIFY(seen.size() == points.size(), content);
    AffineMap map = {1, 0, 0, 0, 1, 0, 1};
    if (!given.isEmpty())
        FUZZ_VERIFY(PointercalFile::parse(given, &map), content);
    // What follows may turn the screen.
    const QList<QByteArray> words = given.simplified().split(' ');
    if (words.size() == 10 && words.last() != "0")
        return;
    for (int i = 0; i < points.size(); ++i)
        FUZZ_VERIFY(seen.at(i) == mapped(map, points.at(i)), content);
}

#else

void checkLibrary(const QByteArray &) {}

#endif

void checkGiven(const QByteArray &content)
{
    const QByteArray given = PointercalFile::forLibrary(content, screen);
    if (given.isEmpty())
        return;
    AffineMap map = {1, 2, 3, 4, 5, 6, 7};
    FUZZ_VERIFY(PointercalFile::parse(given, &map), content);
    FUZZ_VERIFY(map.s >= 1, content);
    for (const QPoint &corner : {QPoint(65535, 65535), QPoint(-65535, 65535)}) {
        FUZZ_VERIFY(staysWithin32Bits(map.a, map.b, map.c, corner), content);
        FUZZ_VERIFY(staysWithin32Bits(map.d, map.e, map.f, corner), content);
    }
}

void checkFile(const QByteArray &content)
{
    checkGiven(content);
    checkLibrary(content);
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

    // The points that represent the map are on the screen, whatever the file says.
    const QWSPointerCalibrationData points = pointsOf(map, screen);
    for (const QPoint &point : points.screenPoints)
        FUZZ_VERIFY(QRect(QPoint(0, 0), screen).contains(point), content);
    for (const QPoint &point : points.devPoints)
        mapped(map, point);
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
