#include "calibration/tstouchscreen.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <tslib.h>
#include <unistd.h>

namespace
{

const char calibrationVariable[] = "TSLIB_CALIBFILE";

/// One wake-up of the notifier reads this many samples at most, so that a flood of them
/// does not starve the rest of the tool.
const int samplesAtOnce = 64;

/// A device that is always readable but never has a sample (it has ended, or was
/// unplugged) counts as gone after this many wake-ups; it would keep the processor busy.
const int fruitlessLimit = 8;

/// Between two looks for a missing device: udev may be late, and a panel may be pulled
/// and put back.
const int pauseTime = 1000; // ms

/// What the library calculates with where there is no calibration.
const char identity[] = "1 0 0 0 1 0 1\n";

/// The library's complaints are repeated with every look for a device.
bool muted = false;

#if defined(__GNUC__)
__attribute__((format(printf, 1, 0)))
#endif
int logError(const char *format, va_list arguments)
{
    if (muted)
        return 0;
    char text[256];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    qWarning("%s", QByteArray(text).trimmed().constData());
    return length;
}

/// The library finds the calibration through an environment variable and accepts whatever
/// the file holds: a scale of zero, even a pipe that never ends. So while the library
/// looks, the variable names a pipe that holds what the tool has accepted.
class LentCalibration
{
public:
    explicit LentCalibration(const QByteArray &content)
        : m_wasSet(std::getenv(calibrationVariable) != nullptr),
          m_before(qgetenv(calibrationVariable)), m_fd(-1)
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return;
        // It is short enough for a pipe to take it all at once.
        const ssize_t size = static_cast<ssize_t>(content.size());
        const bool filled = ::write(ends[1], content.constData(), size_t(size)) == size;
        ::close(ends[1]);
        if (!filled) {
            ::close(ends[0]);
            return;
        }
        m_fd = ends[0];
        qputenv(calibrationVariable, "/proc/self/fd/" + QByteArray::number(m_fd));
    }

    ~LentCalibration()
    {
        if (m_fd < 0)
            return;
        ::close(m_fd);
        if (m_wasSet)
            qputenv(calibrationVariable, m_before);
        else
            ::unsetenv(calibrationVariable);
    }

    bool isValid() const { return m_fd >= 0; }

private:
    Q_DISABLE_COPY(LentCalibration)
    bool m_wasSet;
    QByteArray m_before;
    int m_fd;
};

} // namespace

TouchScreen *TouchScreen::open(const QString &device, const QByteArray &calibration,
                               QObject *parent)
{
    return new TsTouchScreen(device, calibration, parent);
}

TsTouchScreen::TsTouchScreen(const QString &device, const QByteArray &calibration, QObject *parent)
    : TouchScreen(parent), m_name(device), m_calibration(calibration), m_device(nullptr),
      m_notifier(nullptr), m_pause(new QTimer(this)), m_missing(false), m_raw(false), m_fruitless(0)
{
    m_pause->setSingleShot(true);
    m_pause->setInterval(pauseTime);
    connect(m_pause, SIGNAL(timeout()), this, SLOT(look()));
    look();
}

TsTouchScreen::~TsTouchScreen()
{
    stop();
}

void TsTouchScreen::look()
{
    muted = m_missing;
    if (!start()) {
        stop();
        lookAgain();
        return;
    }
    if (m_missing)
        qDebug("Touchscreen %s is there", qPrintable(m_name));
    m_missing = false;
}

void TsTouchScreen::lookAgain()
{
    m_missing = true;
    m_pause->start();
}

/// Only once for as long as the device is missing.
void TsTouchScreen::complain(const char *text) const
{
    if (!m_missing)
        qWarning("%s", qPrintable(QString::fromLatin1(text).arg(m_name)));
}

/// Not with ts_setup(), which waits for a device that is not there, and looks for
/// others by itself: the first input device of the board is the home key.
bool TsTouchScreen::start()
{
    ts_error_fn = logError;
    m_device = ts_open(QFile::encodeName(m_name).constData(), 1);
    if (!m_device) {
        complain("Failed to open touchscreen %1, looking for it every second");
        return false;
    }
    // A flashing program does not need it, and would keep a panel open that is gone.
    ::fcntl(ts_fd(m_device), F_SETFD, FD_CLOEXEC);
    const LentCalibration lent(m_calibration.isEmpty() ? QByteArray(identity) : m_calibration);
    if (!lent.isValid() || ts_config(m_device) != 0) {
        complain("Failed to configure touchscreen %1, trying again every second");
        return false;
    }
    if (!discardPending()) {
        complain("%1 is no touchscreen, looking at it every second");
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

/// The library takes a calibration when it is configured. Its ts_reconfig() would do,
/// but loses some memory each time.
void TsTouchScreen::recalibrate(const QByteArray &calibration)
{
    m_calibration = calibration;
    if (!isOpen())
        return;
    stop();
    look();
}

void TsTouchScreen::stop()
{
    // Switched off before its file descriptor is closed, and deleted later: a touch that
    // it is just delivering may have led here.
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
    lose();
}

/// Nothing will report that the finger is gone, so it counts as lifted.
void TsTouchScreen::lose()
{
    qWarning("Touchscreen %s has gone, looking for it every second", qPrintable(m_name));
    stop();
    lookAgain();
    emit lifted();
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

/// Drops touches from before the device was set up, but not the lifting of a finger. Only
/// reading shows whether the device is a touchscreen at all.
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
