#include "calibration/qwspointerdriver.h"

#include <QScreen>
#include <QWSMouseHandler>
#include <QWSServer>

namespace
{

QWSMouseHandler *handler()
{
    // mouseHandler() asks the server's own data, which other programs do not have.
    QWSMouseHandler *found = QWSServer::instance() ? QWSServer::mouseHandler() : nullptr;
    if (!found)
        qWarning("There is no mouse handler to calibrate");
    return found;
}

} // namespace

PointerDriver *PointerDriver::create(QObject *parent)
{
    return new QWSPointerDriver(parent);
}

QWSPointerDriver::QWSPointerDriver(QObject *parent) : PointerDriver(parent) {}

void QWSPointerDriver::getCalibration(QWSPointerCalibrationData *data) const
{
    if (QWSMouseHandler *found = handler())
        found->getCalibration(data);
}

void QWSPointerDriver::clearCalibration()
{
    if (QWSMouseHandler *found = handler())
        found->clearCalibration();
}

void QWSPointerDriver::calibrate(const QWSPointerCalibrationData *data)
{
    if (QWSMouseHandler *found = handler())
        found->calibrate(data);
}

QPoint QWSPointerDriver::mapToDevice(const QPoint &point, const QSize &screenSize) const
{
    const QScreen *screen = QScreen::instance();
    return screen ? screen->mapToDevice(point, screenSize) : point;
}
