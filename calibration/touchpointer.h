/// Hands the touches of a TouchScreen to the widgets, as a mouse with one button.
#ifndef CALIBRATION_TOUCHPOINTER_H
#define CALIBRATION_TOUCHPOINTER_H

#include <QEvent>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QWidget>

class TouchPointer : public QObject
{
    Q_OBJECT
public:
    explicit TouchPointer(QObject *parent = 0);

    /// Raw coordinates go to the widgets unchanged, however far off the screen. Others
    /// are kept on the screen, since calibration may put a touch at the edge beside it. A
    /// touch that is under way when this changes is dropped: its two ends would be in
    /// different coordinates.
    void setRaw(bool raw);

public slots:
    /// A finger is at @p position: a press, or a move when it has moved.
    void touch(const QPoint &position);
    /// The finger has gone: a release where it was last.
    void lift();

private:
    enum State { Up, Down, Dropped };

    static QWidget *receiver(const QPoint &position);
    void send(QEvent::Type type);

    bool m_raw;
    State m_state;
    QPoint m_last;
    QPointer<QWidget> m_pressed;
};

#endif
