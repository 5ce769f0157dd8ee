#include "calibration/touchpointer.h"

#include "compat/screen.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWindow>

namespace
{

QPoint keptTo(const QRect &screen, const QPoint &position)
{
    return QPoint(qBound(screen.left(), position.x(), screen.right()),
                  qBound(screen.top(), position.y(), screen.bottom()));
}

} // namespace

TouchPointer::TouchPointer(QObject *parent) : QObject(parent), m_raw(false), m_state(Up) {}

void TouchPointer::setRaw(bool raw)
{
    if (raw == m_raw)
        return;
    m_raw = raw;
    if (m_state == Down)
        m_state = Dropped;
}

void TouchPointer::touch(const QPoint &position)
{
    if (m_state == Dropped)
        return;
    const QPoint now = m_raw ? position : keptTo(screenGeometry(), position);
    if (m_state == Down && now == m_last)
        return;
    m_last = now;
    if (m_state == Down) {
        send(QEvent::MouseMove);
        return;
    }
    // Before the press: its handler may change the state again.
    m_state = Down;
    m_pressed = receiver(now);
    send(QEvent::MouseButtonPress);
}

void TouchPointer::lift()
{
    const State before = m_state;
    m_state = Up;
    if (before == Down)
        send(QEvent::MouseButtonRelease);
}

/// Which window the windowing system would choose. Inside the window Qt finds
/// the widget, and hands everything to the one that has grabbed the mouse.
QWidget *TouchPointer::receiver(const QPoint &position)
{
    if (QWidget *grabber = QWidget::mouseGrabber())
        return grabber->window();
    if (QWidget *popup = QApplication::activePopupWidget())
        return popup;
    if (QWidget *modal = QApplication::activeModalWidget())
        return modal;
    if (QWidget *top = QApplication::topLevelAt(position))
        return top;
    return QApplication::activeWindow();
}

void TouchPointer::send(QEvent::Type type)
{
    QWindow *window = m_pressed ? m_pressed->windowHandle() : nullptr;
    if (!window)
        return;
    const bool moves = type == QEvent::MouseMove;
    const bool released = type == QEvent::MouseButtonRelease;
    const QPoint local = window->mapFromGlobal(m_last);
    QMouseEvent event(type, QPointF(local), QPointF(local), QPointF(m_last),
                      moves ? Qt::NoButton : Qt::LeftButton,
                      released ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(window, &event);
}
