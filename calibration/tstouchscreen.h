/// The touchscreen as the touchscreen library (tslib) reads it.
#ifndef CALIBRATION_TSTOUCHSCREEN_H
#define CALIBRATION_TSTOUCHSCREEN_H

#include "calibration/touchscreen.h"

class QSocketNotifier;

struct ts_sample;
struct tsdev;

class TsTouchScreen : public TouchScreen
{
    Q_OBJECT
public:
    explicit TsTouchScreen(QObject *parent);
    ~TsTouchScreen() override;

    /// Opens and configures; see TouchScreen::open().
    bool start(const QString &device, const QString &calibrationFile);

    void setRaw(bool raw) override;
    void reload(const QString &calibrationFile) override;

private slots:
    void readSamples();

private:
    enum Outcome {
        Sample,  // there is one
        Eaten,   // a filter took it
        Waiting, // nothing there yet
        Failed
    };

    void stop();
    Outcome readSample(ts_sample *sample);
    bool discardPending();
    void deliver(const ts_sample &sample);

    QString m_name;
    tsdev *m_device;
    QSocketNotifier *m_notifier;
    bool m_raw;
    int m_fruitless;
};

#endif
