/// The calibration dialog: five targets to press, one after the other.
#ifndef CALIBRATION_CALIBRATE_H
#define CALIBRATION_CALIBRATE_H

#include "calibration/pointercalibrationdata.h"

#include "ui_calibrate.h"

#include <QDialog>
#include <QList>
#include <QPoint>

class PointerDriver;
class QTimer;

/// Covers the screen and takes every touch while it is shown. Showing it clears
/// the calibration of the pointer driver, hiding it gives the driver the set
/// accepted last, or else the calibration from before.
class Calibrate : public QDialog
{
    Q_OBJECT
public:
    /// @param driver  not owned; has to outlive the dialog
    Calibrate(QWidget *parent, PointerDriver *driver);

    /// Starts again at target @p i, 0 to 4. What an earlier cycle collected for other
    /// targets is kept.
    void restart(int i);

signals:
    /// The point for target @p loc, 0 to 4, is @p p in device coordinates.
    void calibratePoint(int loc, QPoint p);
    /// All five points are there; true when they were accepted.
    void finished(bool accepted);
    /// Switch the buzzer on or off.
    void beep(bool on);

private slots:
    void showNextTarget();
    void beepOff();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void showTarget(int i);
    void computeScreenPoints();
    void finishCycle();
    QPoint devicePosition(const QMouseEvent *event) const;

    Ui::CalibrateClass ui;
    QList<QWidget *> m_targets;
    int m_index;
    QWSPointerCalibrationData m_saved;
    QWSPointerCalibrationData m_data;
    QPoint m_pos;
    QTimer *m_hold;
    PointerDriver *m_driver;
};

#endif
