/// The touchscreen as the touchscreen library (tslib) reads it.
#ifndef CALIBRATION_TSTOUCHSCREEN_H
#define CALIBRATION_TSTOUCHSCREEN_H

#include "calibration/touchscreen.h"

class QSocketNotifier;
class QTimer;

struct ts_sample;
struct tsdev;

class TsTouchScreen : public TouchScreen
{
    Q_OBJECT
public:
    TsTouchScreen(const QString &device, const QByteArray &calibration, QObject *parent);
    ~TsTouchScreen() override;

    bool isOpen() const override { return m_notifier != nullptr; }
    void setRaw(bool raw) override;
    void recalibrate(const QByteArray &calibration) override;

private slots:
    void readSamples();
    void look();

private:
    enum Outcome {
        Sample,  // there is one
        Eaten,   // a filter took it
        Waiting, // nothing there yet
        Failed
    };

    bool start();
    void stop();
    void lookAgain();
    void lose();
    void complain(const char *text) const;
    Outcome readSample(ts_sample *sample);
    bool discardPending();
    void deliver(const ts_sample &sample);

    const QString m_name;
    QByteArray m_calibration;
    tsdev *m_device;
    QSocketNotifier *m_notifier; ///< null while the device is not there
    QTimer *m_pause;             ///< runs from one look for the device to the next
    bool m_missing;              ///< it has been logged as missing
    bool m_raw;
    int m_fruitless;
};

#endif
