/// A touchscreen that is read apart from Qt.
#ifndef CALIBRATION_TOUCHSCREEN_H
#define CALIBRATION_TOUCHSCREEN_H

#include <QByteArray>
#include <QObject>
#include <QPoint>
#include <QString>

class TouchScreen : public QObject
{
    Q_OBJECT
public:
    /// Reads @p device. One that is missing or goes away is logged once and looked for
    /// until it is there. The touchscreen belongs to @p parent.
    /// @param calibration  what the touchscreen library is to calculate with, in the
    ///                     format of its file and checked by
    ///                     PointercalFile::forLibrary(); empty where there is none
    /// @return null when the tool was built without the touchscreen library; logged.
    static TouchScreen *open(const QString &device, const QByteArray &calibration, QObject *parent);

    /// Whether the device is there.
    virtual bool isOpen() const = 0;

    /// Whether coordinates are the panel's own, or calibrated ones of the screen.
    virtual void setRaw(bool raw) = 0;

    /// From now on @p calibration, as for open(), is in force.
    virtual void recalibrate(const QByteArray &calibration) = 0;

signals:
    /// A finger is at @p position.
    void touched(QPoint position);
    /// The finger has gone, or the device has.
    void lifted();

protected:
    explicit TouchScreen(QObject *parent) : QObject(parent) {}
};

#endif
