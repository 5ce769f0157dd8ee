/// A touchscreen that is read apart from Qt.
#ifndef CALIBRATION_TOUCHSCREEN_H
#define CALIBRATION_TOUCHSCREEN_H

#include <QObject>
#include <QPoint>
#include <QString>

class TouchScreen : public QObject
{
    Q_OBJECT
public:
    /// Opens @p device, with the calibration in @p calibrationFile; never waits
    /// for either. The touchscreen belongs to @p parent.
    /// @return null when the device cannot be opened or is no touchscreen, or
    /// when the tool was built without the touchscreen library; logged.
    static TouchScreen *open(const QString &device, const QString &calibrationFile,
                             QObject *parent);

    /// Whether coordinates are the panel's own, or calibrated ones of the screen.
    virtual void setRaw(bool raw) = 0;

    /// Takes up the calibration that is now in @p calibrationFile.
    virtual void reload(const QString &calibrationFile) = 0;

signals:
    /// A finger is at @p position.
    void touched(QPoint position);
    /// The finger has gone; where to is not known.
    void lifted();

protected:
    explicit TouchScreen(QObject *parent) : QObject(parent) {}
};

#endif
