#include "tests/api/qws.h"

#include <QScreen>
#include <QWSMouseHandler>
#include <QWSServer>

#include <QtCore/QFile>
#include <QtCore/QRect>
#include <QtCore/QTextStream>

#include <cmath>
#include <memory>

namespace
{

typedef QWSPointerCalibrationData Data;

struct Map {
    qint64 a, b, c, d, e, f, s;
};

const Map identity = {1, 0, 0, 0, 1, 0, 1};
const qint64 scale = 65536;
const QRect screen(0, 0, 800, 480);

int zeroDivisions = 0;
bool cursorVisible = false;

QString named(const char *variable)
{
    const QString path = QFile::decodeName(qgetenv(variable));
    return path.isEmpty() ? QStringLiteral("/etc/pointercal") : path;
}

/// The seven numbers of a file; @p map is untouched when there are fewer.
bool readMap(const char *variable, Map *map)
{
    QFile file(named(variable));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QTextStream text(&file);
    Map read = identity;
    text >> read.a >> read.b >> read.c >> read.d >> read.e >> read.f >> read.s;
    if (text.status() != QTextStream::Ok)
        return false;
    *map = read;
    return true;
}

QPoint transformed(const Map &map, const QPoint &device)
{
    if (map.s == 0) {
        ++zeroDivisions;
        return QPoint();
    }
    return QPoint(int((map.a * device.x() + map.b * device.y() + map.c) / map.s),
                  int((map.d * device.x() + map.e * device.y() + map.f) / map.s));
}

/// Cramer's rule for one row of the map, over three corners.
void solve(const QPoint *dev, const int *wanted, qint64 det, qint64 *x, qint64 *y, qint64 *c)
{
    const qint64 x0 = dev[0].x() - dev[2].x(), x1 = dev[1].x() - dev[2].x();
    const qint64 y0 = dev[0].y() - dev[2].y(), y1 = dev[1].y() - dev[2].y();
    const qint64 w0 = wanted[0] - wanted[2], w1 = wanted[1] - wanted[2];
    *x = (w0 * y1 - w1 * y0) * scale / det;
    *y = (x0 * w1 - x1 * w0) * scale / det;
    *c = wanted[2] * scale - *x * dev[2].x() - *y * dev[2].y();
}

class CalibratedHandler : public QWSMouseHandler
{
public:
    CalibratedHandler() : m_map(identity)
    {
        Map stored = identity;
        if (readMap("POINTERCAL_FILE", &stored) && stored.s != 0)
            m_map = stored;
    }

    void clearCalibration() override { m_map = identity; }

    /// From three of the corners; the centre and the fourth are not looked at.
    void calibrate(const Data *data) override
    {
        const Data::Location used[] = {Data::TopLeft, Data::TopRight, Data::BottomRight};
        QPoint dev[3];
        int wantedX[3];
        int wantedY[3];
        for (int i = 0; i < 3; ++i) {
            dev[i] = data->devPoints[used[i]];
            wantedX[i] = data->screenPoints[used[i]].x();
            wantedY[i] = data->screenPoints[used[i]].y();
        }
        const qint64 det = qint64(dev[0].x() - dev[2].x()) * (dev[1].y() - dev[2].y()) -
                           qint64(dev[1].x() - dev[2].x()) * (dev[0].y() - dev[2].y());
        m_map = Map{0, 0, 0, 0, 0, 0, 0};
        if (det != 0) {
            solve(dev, wantedX, det, &m_map.a, &m_map.b, &m_map.c);
            solve(dev, wantedY, det, &m_map.d, &m_map.e, &m_map.f);
            m_map.s = scale;
        }
        QFile file(named("POINTERCAL_FILE"));
        if (!file.open(QIODevice::WriteOnly))
            return;
        QTextStream(&file) << m_map.a << ' ' << m_map.b << ' ' << m_map.c << ' ' << m_map.d << ' '
                           << m_map.e << ' ' << m_map.f << ' ' << m_map.s;
    }

    /// Not what was stored: the device points of the screen points in @p data.
    void getCalibration(Data *data) const override
    {
        const qint64 det = m_map.a * m_map.e - m_map.b * m_map.d;
        if (det == 0) {
            ++zeroDivisions;
            return;
        }
        for (int i = 0; i <= Data::LastLocation; ++i) {
            const qint64 x = m_map.s * data->screenPoints[i].x() - m_map.c;
            const qint64 y = m_map.s * data->screenPoints[i].y() - m_map.f;
            data->devPoints[i] = QPoint(int((m_map.e * x - m_map.b * y) / det),
                                        int((m_map.a * y - m_map.d * x) / det));
        }
    }

    void resume() override {}
    void suspend() override {}

    virtual QPoint touch(const QPoint &device) const
    {
        const bool isCleared = m_map.s == 1 && m_map.a == 1 && m_map.e == 1;
        // Raw counts beyond the screen are cut off.
        const QPoint point = isCleared ? QPoint(qBound(screen.left(), device.x(), screen.right()),
                                                qBound(screen.top(), device.y(), screen.bottom()))
                                       : device;
        return transformed(m_map, point);
    }

private:
    Map m_map;
};

class TslibHandler : public CalibratedHandler
{
public:
    TslibHandler() : m_ofLibrary(identity), m_raw(false) { configure(); }

    void clearCalibration() override
    {
        CalibratedHandler::clearCalibration();
        m_raw = true;
    }

    void calibrate(const Data *data) override
    {
        CalibratedHandler::calibrate(data);
        configure();
        m_raw = false;
    }

    QPoint touch(const QPoint &device) const override
    {
        return m_raw ? device : transformed(m_ofLibrary, device);
    }

private:
    void configure()
    {
        m_ofLibrary = identity;
        readMap("TSLIB_CALIBFILE", &m_ofLibrary);
    }

    Map m_ofLibrary;
    bool m_raw;
};

std::unique_ptr<QWSServer> server;
std::unique_ptr<CalibratedHandler> mouse;
qws::Handler kind = qws::LinuxInput;

} // namespace

QWSMouseHandler::~QWSMouseHandler() {}
void QWSMouseHandler::clearCalibration() {}
void QWSMouseHandler::calibrate(const QWSPointerCalibrationData *) {}
void QWSMouseHandler::getCalibration(QWSPointerCalibrationData *) const {}

QWSServer *QWSServer::instance()
{
    return server.get();
}

QWSMouseHandler *QWSServer::mouseHandler()
{
    return mouse.get();
}

void QWSServer::setCursorVisible(bool visible)
{
    cursorVisible = visible;
}

/// The old handlers are gone, and the cursor is there again.
void QWSServer::openMouse()
{
    mouse.reset();
    mouse.reset(kind == qws::Tslib ? new TslibHandler : new CalibratedHandler);
    cursorVisible = true;
}

QScreen::~QScreen() {}

QScreen *QScreen::instance()
{
    static QScreen upsideDown;
    return &upsideDown;
}

QPoint QScreen::mapToDevice(const QPoint &point, const QSize &size) const
{
    return QPoint(size.width() - 1 - point.x(), size.height() - 1 - point.y());
}

void qws::start(Handler handler)
{
    kind = handler;
    server.reset(new QWSServer);
    server->openMouse();
}

void qws::startWithoutMouse()
{
    server.reset(new QWSServer);
    mouse.reset();
}

void qws::stop()
{
    mouse.reset();
    server.reset();
}

bool qws::cursorIsVisible()
{
    return cursorVisible;
}

QPoint qws::touch(const QPoint &device)
{
    return mouse ? mouse->touch(device) : QPoint();
}

int qws::divisionsByZero()
{
    return zeroDivisions;
}
