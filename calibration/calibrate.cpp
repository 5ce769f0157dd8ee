#include "calibration/calibrate.h"

#include "calibration/calibrationmath.h"
#include "calibration/pointerdriver.h"
#include "compat/qtcompat.h"
#include "compat/screen.h"

#include <QMouseEvent>
#include <QTimer>

#include <unistd.h>

namespace
{

const int center = QWSPointerCalibrationData::Center;
const int lastTarget = QWSPointerCalibrationData::LastLocation;

const int holdTime = 500; // ms; the instructions ask for longer, to be safe
const int beepTime = 50;  // ms

enum Page { CenterPage, InstructionsPage };

} // namespace

Calibrate::Calibrate(QWidget *parent, PointerDriver *driver)
    : QDialog(parent, Qt::FramelessWindowHint), m_index(0), m_hold(nullptr), m_driver(driver)
{
    ui.setupUi(this);
    // In the order of the locations of QWSPointerCalibrationData.
    m_targets << ui.m_tl << ui.m_bl << ui.m_br << ui.m_tr << ui.m_center;

    m_hold = new QTimer(this);
    m_hold->setSingleShot(true);
    m_hold->setInterval(holdTime);
    makePrecise(m_hold);
    connect(m_hold, SIGNAL(timeout()), this, SLOT(showNextTarget()));
}

void Calibrate::restart(int i)
{
    m_index = i;
    showTarget(i);
}

/// The touch has been held long enough. The operator sees and hears it at once;
/// the point is taken when the finger lifts.
void Calibrate::showNextTarget()
{
    const int next = m_index + 1;
    showTarget(next > lastTarget ? 0 : next);
    emit beep(true);
    QTimer::singleShot(beepTime, this, SLOT(beepOff()));
    emit beep(true); // twice: whoever records the buzzer's stores expects both
}

void Calibrate::beepOff()
{
    emit beep(false);
}

void Calibrate::mousePressEvent(QMouseEvent *event)
{
    m_pos = devicePosition(event);
    m_hold->start();
}

void Calibrate::mouseMoveEvent(QMouseEvent *event)
{
    m_pos = averageTowardZero(m_pos, devicePosition(event));
}

void Calibrate::mouseReleaseEvent(QMouseEvent *event)
{
    emit beep(false);
    // Too short a touch. The timer goes on: the next target is still shown, but
    // the point that is collected stays the same.
    if (m_hold->isActive())
        return;

    mouseMoveEvent(event);
    m_data.devPoints[m_index] = m_pos;
    emit calibratePoint(m_index, m_pos);
    ++m_index;
    showTarget(m_index);
    if (m_index <= lastTarget)
        return;
    finishCycle();
    m_index = 0;
    showTarget(0);
}

/// QDialog's own handler is not called: it only finds a place for a dialog that has none,
/// and this one covers the screen.
void Calibrate::showEvent(QShowEvent *)
{
    grabMouse();
    computeScreenPoints();
    m_driver->getCalibration(&m_saved);
    m_driver->clearCalibration();
    setResult(0);
    m_index = 0;
    showTarget(0);
}

void Calibrate::hideEvent(QHideEvent *)
{
    qDebug("Setting calibration");
    m_driver->calibrate(&m_saved);
    ::sync();
    emit beep(false);
    qDebug("releasing mouse");
    releaseMouse();
}

void Calibrate::showTarget(int i)
{
    for (int corner = 0; corner < center; ++corner)
        m_targets.at(corner)->setVisible(corner == i);
    ui.m_stk->setCurrentIndex(i == center ? CenterPage : InstructionsPage);
}

void Calibrate::computeScreenPoints()
{
    // Only what is visible has a place in the layout.
    for (int corner = 0; corner < center; ++corner)
        m_targets.at(corner)->show();
    layout()->activate();

    for (int corner = 0; corner < center; ++corner) {
        const QRect place = m_targets.at(corner)->geometry();
        m_data.screenPoints[corner] =
            QPoint(place.left() + place.width() / 2, place.top() + place.height() / 2);
    }
    m_data.screenPoints[center] = QPoint(width() / 2, height() / 2);
}

void Calibrate::finishCycle()
{
    const bool accepted = isPlausible(m_data.devPoints);
    if (accepted)
        m_saved = m_data;
    else
        qDebug("Calibration data invalid");
    setResult(accepted ? 1 : 0);
    emit finished(accepted);
}

QPoint Calibrate::devicePosition(const QMouseEvent *event) const
{
    return m_driver->mapToDevice(event->pos(), screenGeometry().size());
}
