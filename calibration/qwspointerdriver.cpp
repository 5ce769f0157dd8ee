#include "calibration/qwspointerdriver.h"

#include "calibration/affinefit.h"
#include "calibration/pointercalfile.h"
#include "calibration/residual.h"
#include "compat/cursor.h"
#include "compat/screen.h"

#include <QFile>
#include <QFileInfo>
#include <QScreen>
#include <QStringList>
#include <QWSMouseHandler>
#include <QWSServer>

#include <cmath>
#include <cstdlib>

namespace
{

typedef QWSPointerCalibrationData Data;

/// Height to longest side of the flattest triangle that three corners may be.
const double flattest = 0.01;

QWSMouseHandler *handler()
{
    // mouseHandler() asks the server's own data, which other programs do not have.
    QWSMouseHandler *found = QWSServer::instance() ? QWSServer::mouseHandler() : nullptr;
    if (!found)
        qWarning("There is no mouse handler to calibrate");
    return found;
}

QByteArray usable(const QByteArray &content)
{
    const bool leadsSomewhere =
        !PointercalFile::forLibrary(content, screenGeometry().size()).isEmpty();
    return leadsSomewhere ? content : QByteArray();
}

double squared(const QPoint &vector)
{
    return double(vector.x()) * vector.x() + double(vector.y()) * vector.y();
}

bool isTriangle(const QPoint &one, const QPoint &two, const QPoint &three)
{
    const QPoint u = two - one;
    const QPoint v = three - one;
    const double longest = qMax(squared(u), qMax(squared(v), squared(v - u)));
    const double twiceTheArea = std::fabs(double(u.x()) * v.y() - double(u.y()) * v.x());
    return twiceTheArea > flattest * longest;
}

/// Qt makes its map from three of the corners and divides by their determinant.
bool determineAMap(const Data &data)
{
    const QPoint *corners = data.devPoints;
    for (int i = 0; i < Data::Center; ++i) {
        if (!isTriangle(corners[i], corners[(i + 1) % Data::Center],
                        corners[(i + 2) % Data::Center]))
            return false;
    }
    AffineMap map;
    return fitAffine(data, &map);
}

/// Why Qt could not write the file at @p path; empty when it can. Creates it if it is
/// missing.
QString whyNotWritable(const QString &path)
{
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return QLatin1String("is no regular file");
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Append) ? QString() : file.errorString();
}

/// While it exists, the drivers use the file given to it.
class LentVariable
{
public:
    LentVariable(const char *name, const QString &path)
        : m_name(name), m_wasSet(std::getenv(name) != nullptr), m_before(qgetenv(name))
    {
        qputenv(name, QFile::encodeName(path));
    }

    ~LentVariable()
    {
        if (m_wasSet)
            qputenv(m_name, m_before);
        else
            ::unsetenv(m_name);
    }

private:
    Q_DISABLE_COPY(LentVariable)
    const char *m_name;
    bool m_wasSet;
    QByteArray m_before;
};

void openMouse()
{
    QWSServer::instance()->openMouse();
    hideMouseCursor();
}

void openMouseWith(const QString &path)
{
    if (path == PointercalFile::ofQt()) {
        openMouse();
        return;
    }
    const LentVariable ofQt("POINTERCAL_FILE", path);
    const LentVariable ofLibrary("TSLIB_CALIBFILE", path);
    openMouse();
}

/// After a calibration that Qt could not use.
void putBack(const QString &path, const QByteArray &content)
{
    QString error;
    if (content.isEmpty())
        QFile::remove(path);
    else if (!PointercalFile::store(QStringList(path), content, &error))
        qWarning("Failed to put back the calibration: %s", qPrintable(error));
}

} // namespace

PointerDriver *PointerDriver::create(QObject *parent)
{
    return new QWSPointerDriver(parent);
}

QWSPointerDriver::QWSPointerDriver(QObject *parent)
    : PointerDriver(parent), m_cleared(false), m_path(PointercalFile::ofQt())
{
    hideMouseCursor();
    const QByteArray content = PointercalFile::read(m_path);
    m_content = usable(content);
    if (content.isEmpty() || !m_content.isEmpty())
        return;
    qWarning("No calibration in %s", qPrintable(m_path));
    clearUnusable();
}

void QWSPointerDriver::getCalibration(QWSPointerCalibrationData *data) const
{
    if (m_cleared) {
        *data = m_before;
        return;
    }
    // Qt takes the screen points from here, and fills in only the device points.
    const AffineMap identity = {1, 0, 0, 0, 1, 0, 1};
    *data = pointsOf(identity, screenGeometry().size());
    if (const QWSMouseHandler *found = handler())
        found->getCalibration(data);
}

void QWSPointerDriver::clearCalibration()
{
    QWSMouseHandler *found = handler();
    if (!found)
        return;
    if (!m_cleared)
        getCalibration(&m_before);
    m_cleared = true;
    found->clearCalibration();
}

void QWSPointerDriver::calibrate(const QWSPointerCalibrationData *data)
{
    if (!handler())
        return;
    if (!m_cleared)
        getCalibration(&m_before);
    m_cleared = false;
    if (*data == m_before || !takeUp(*data))
        restore();
}

QPoint QWSPointerDriver::mapToDevice(const QPoint &point, const QSize &screenSize) const
{
    const QScreen *screen = QScreen::instance();
    return screen ? screen->mapToDevice(point, screenSize) : point;
}

/// Makes @p data the calibration in force. @return false, logged, when they
/// determine none or it cannot be stored; the file then holds what it held.
bool QWSPointerDriver::takeUp(const QWSPointerCalibrationData &data)
{
    if (!determineAMap(data)) {
        qWarning("The calibration points determine no map, nothing is stored");
        return false;
    }
    const QString path = PointercalFile::ofQt();
    const QByteArray before = PointercalFile::read(path);
    const QString whyNot = whyNotWritable(path);
    if (!whyNot.isEmpty()) {
        qWarning("Failed to store the calibration: %s: %s", qPrintable(path), qPrintable(whyNot));
        return false;
    }
    handler()->calibrate(&data);
    const QByteArray content = usable(PointercalFile::read(path));
    AffineMap map;
    if (!PointercalFile::parse(content, &map)) {
        qWarning("Failed to store the calibration: no map in %s", qPrintable(path));
        putBack(path, before);
        return false;
    }
    m_path = path;
    m_content = content;
    logResidual(map, data);
    return true;
}

/// New handlers read the file of the calibration in force: nothing in it is calculated
/// again.
void QWSPointerDriver::restore()
{
    const QString path = PointercalFile::ofQt();
    QString error;
    if (!m_content.isEmpty()) {
        if (PointercalFile::store(QStringList(path), m_content, &error))
            m_path = path;
        else
            qWarning("Failed to store the calibration: %s", qPrintable(error));
    }
    openMouseWith(m_path);
    if (m_content.isEmpty() && !PointercalFile::read(m_path).isEmpty())
        clearUnusable();
}

/// Qt has read the file all the same, and would divide by what it holds.
void QWSPointerDriver::clearUnusable()
{
    if (QWSMouseHandler *found = handler())
        found->clearCalibration();
}
