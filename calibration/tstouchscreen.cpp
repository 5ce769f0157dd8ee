#include "calibration/tstouchscreen.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstdio>
#include <tslib.h>

namespace
{

const char calibrationVariable[] = "TSLIB_CALIBFILE";

/// One wake-up of the notifier reads this many samples at most, so that a flood
/// of them leaves the rest of the tool its turn.
const int samplesAtOnce = 64;

/// A device that is always readable but never has a sample (at its end, or taken
/// away) is given up after so many wake-ups; it would keep the processor busy.
const int fruitlessLimit = 8;

#if defined(__GNUC__)
__attribute__((format(printf, 1, 0)))
#endif
int logError(const char *format, va_list arguments)
{
    char text[256];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    qWarning("%s", QByteArray(text).trimmed().constData());
    return length;
}

/// The library finds the calibration by one environment variable alone. Where the
/// file has been named in another way, the variable is lent to it while it looks.
class CalibrationVariable
{
public:
    explicit CalibrationVariable(const QString &calibrationFile)
        : m_lent(qgetenv(calibrationVariable).isEmpty())
    {
        if (m_lent)
            ::setenv(calibrationVariable, QFile::encodeName(calibrationFile).constData(), 1);
    }

    ~CalibrationVariable()
    {
        if (m_lent)
            ::unsetenv(calibrationVariable);
    }

private:
    Q_DISABLE_COPY(CalibrationVariable)
    bool m_lent;
};

} // namespace

TouchScreen *TouchScreen::open(const QString &device, const QString &calibrationFile,
                               QObject *parent)
{
    TsTouchScreen *screen = new TsTouchScreen(parent);
    if (screen->start(device, calibrationFile))
        return screen;
    delete screen;
    return nullptr;
}

TsTouchScreen::TsTouchScreen(QObject *parent)
    : TouchScreen(parent), m_device(nullptr), m_notifier(nullptr), m_raw(false), m_fruitless(0)
{
}

TsTouchScreen::~TsTouchScreen()
{
    stop();
}

/// Not with ts_setup(), which waits for a device that is not there, and looks for
/// others by itself: the first input device of the board is the home key.
bool TsTouchScreen::start(const QString &device, const QString &calibrationFile)
{
    ts_error_fn = logError;
    m_name = device;
    m_device = ts_open(QFile::encodeName(device).constData(), 1);
    if (!m_device) {
        qWarning("Failed to open touchscreen %s", qPrintable(device));
        return false;
    }
    const CalibrationVariable variable(calibrationFile);
    if (ts_config(m_device) != 0) {
        qWarning("Failed to configure touchscreen %s", qPrintable(device));
        return false;
    }
    if (!discardPending()) {
        qWarning("%s is no touchscreen", qPrintable(device));
        return false;
    }
    m_notifier = new QSocketNotifier(ts_fd(m_device), QSocketNotifier::Read, this);
    connect(m_notifier, SIGNAL(activated(int)), this, SLOT(readSamples()));
    return true;
}

void TsTouchScreen::setRaw(bool raw)
{
    m_raw = raw;
}

/// The library reads the file when it is configured. Its ts_reconfig() would do,
/// but loses some memory each time.
void TsTouchScreen::reload(const QString &calibrationFile)
{
    stop();
    if (!start(m_name, calibrationFile))
        stop();
}

void TsTouchScreen::stop()
{
    // Switched off before the file descriptor that it watches goes; deleted when
    // it is not itself at work, for a touch may lead to here.
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier->deleteLater();
    }
    m_notifier = nullptr;
    if (m_device)
        ts_close(m_device);
    m_device = nullptr;
    m_fruitless = 0;
}

void TsTouchScreen::readSamples()
{
    bool fruitful = false;
    for (int i = 0; i < samplesAtOnce; ++i) {
        ts_sample sample;
        const Outcome outcome = readSample(&sample);
        if (outcome == Sample)
            deliver(sample);
        // A touch that was delivered may have led to a reload.
        if (!m_notifier)
            return;
        if (outcome == Sample || outcome == Waiting)
            fruitful = true;
        if (outcome == Waiting || outcome == Failed)
            break;
    }
    m_fruitless = fruitful ? 0 : m_fruitless + 1;
    if (m_fruitless < fruitlessLimit)
        return;
    qWarning("The touchscreen has failed, it is read no longer");
    m_notifier->setEnabled(false);
}

TsTouchScreen::Outcome TsTouchScreen::readSample(ts_sample *sample)
{
    errno = 0;
    const int count = m_raw ? ts_read_raw(m_device, sample, 1) : ts_read(m_device, sample, 1);
    if (count > 0)
        return Sample;
    if (count == 0)
        return Eaten;
    // Some of the library's modules return the error, others leave it in errno.
    const bool waiting = errno == EAGAIN || errno == EINTR || count == -EAGAIN || count == -EINTR;
    return waiting ? Waiting : Failed;
}

/// Drops what was touched before the device was set up, all but that a finger has
/// gone. Only reading shows whether the device is a touchscreen at all.
bool TsTouchScreen::discardPending()
{
    for (int i = 0; i < samplesAtOnce; ++i) {
        ts_sample sample;
        const Outcome outcome = readSample(&sample);
        if (outcome == Waiting)
            return true;
        if (outcome == Failed)
            return false;
        if (outcome == Sample && sample.pressure == 0)
            emit lifted();
    }
    return true;
}

void TsTouchScreen::deliver(const ts_sample &sample)
{
    if (sample.pressure > 0)
        emit touched(QPoint(sample.x, sample.y));
    else
        emit lifted();
}
