#include "calibration/pointercaldriver.h"

#include "calibration/affinefit.h"
#include "calibration/pointercalfile.h"
#include "calibration/residual.h"
#include "calibration/touchpointer.h"
#include "calibration/touchscreen.h"
#include "compat/screen.h"

#include <QFile>

PointerDriver *PointerDriver::create(QObject *parent)
{
    return new PointercalDriver(parent);
}

PointercalDriver::PointercalDriver(QObject *parent)
    : PointerDriver(parent), m_inForce(load()), m_touchScreen(nullptr), m_pointer(nullptr)
{
    openTouchScreen();
}

void PointercalDriver::getCalibration(QWSPointerCalibrationData *data) const
{
    *data = m_inForce.points;
}

void PointercalDriver::clearCalibration()
{
    if (m_touchScreen && !m_touchScreen->isOpen())
        qWarning("There is no touchscreen to calibrate");
    setRaw(true);
}

void PointercalDriver::calibrate(const QWSPointerCalibrationData *data)
{
    setRaw(false);

    Calibration wanted = m_inForce;
    const bool isHandedBack = *data == m_inForce.points;
    AffineMap map;
    if (!isHandedBack && !computed(*data, &wanted, &map)) {
        qWarning("The calibration points determine no map, nothing is stored");
        return;
    }
    if (wanted.content.isEmpty())
        return;

    QString error;
    if (!PointercalFile::store(PointercalFile::toWrite(), wanted.content, &error)) {
        qWarning("Failed to store the calibration: %s", qPrintable(error));
        return;
    }
    if (!isHandedBack)
        logResidual(map, *data);
    const bool isNew = wanted.content != m_inForce.content;
    m_inForce = wanted;
    if (isNew && m_touchScreen)
        m_touchScreen->recalibrate(m_inForce.forLibrary);
}

QPoint PointercalDriver::mapToDevice(const QPoint &point, const QSize &) const
{
    return point;
}

PointercalDriver::Calibration PointercalDriver::load()
{
    const QSize screen = screenGeometry().size();
    const AffineMap identity = {1, 0, 0, 0, 1, 0, 1};
    Calibration calibration;
    calibration.points = pointsOf(identity, screen);

    const QString path = PointercalFile::toRead();
    const QByteArray content = PointercalFile::read(path);
    if (content.isEmpty())
        return calibration;
    AffineMap map;
    calibration.forLibrary = PointercalFile::forLibrary(content, screen);
    if (calibration.forLibrary.isEmpty() || !PointercalFile::parse(content, &map)) {
        qWarning("No calibration in %s", qPrintable(path));
        return calibration;
    }
    calibration.points = pointsOf(map, screen);
    calibration.content = content;
    return calibration;
}

bool PointercalDriver::computed(const QWSPointerCalibrationData &data, Calibration *result,
                                AffineMap *map)
{
    if (!fitAffine(data, map))
        return false;
    const QByteArray content = PointercalFile::format(*map);
    const QByteArray forLibrary = PointercalFile::forLibrary(content, screenGeometry().size());
    if (forLibrary.isEmpty())
        return false;
    result->points = data;
    result->content = content;
    result->forLibrary = forLibrary;
    return true;
}

void PointercalDriver::openTouchScreen()
{
    const QString device = QFile::decodeName(qgetenv("TSLIB_TSDEVICE"));
    if (device.isEmpty())
        return;
    m_touchScreen = TouchScreen::open(device, m_inForce.forLibrary, this);
    if (!m_touchScreen)
        return;
    m_pointer = new TouchPointer(this);
    connect(m_touchScreen, SIGNAL(touched(QPoint)), m_pointer, SLOT(touch(QPoint)));
    connect(m_touchScreen, SIGNAL(lifted()), m_pointer, SLOT(lift()));
}

void PointercalDriver::setRaw(bool raw)
{
    if (!m_touchScreen)
        return;
    m_touchScreen->setRaw(raw);
    m_pointer->setRaw(raw);
}
