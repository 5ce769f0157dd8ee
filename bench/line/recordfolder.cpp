#include "bench/line/recordfolder.h"

#include "bench/line/junit.h"
#include "bench/line/report.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

#include <cerrno>
#include <cstring>

namespace
{

bool save(const QString &path, const QByteArray &bytes, QString *error)
{
    // As a whole: who watches the folder never reads half a record. Of what is still in
    // its buffer commit() does not say that a full disk did not take it.
    QSaveFile file(path);
    errno = 0;
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
        file.commit())
        return true;
    // Of a disk that takes only a part Qt does not know what was wrong with it.
    const int number = errno;
    *error = QStringLiteral("%1: %2").arg(
        path, number != 0 ? QString::fromLocal8Bit(strerror(number)) : file.errorString());
    return false;
}

} // namespace

bool RecordFolder::create(const QString &dir, int units, QString *error)
{
    m_units = units;
    const QString time = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString name = time;
    for (int other = 2; QFile::exists(dir + QLatin1Char('/') + name); ++other)
        name = QStringLiteral("%1-%2").arg(time).arg(other);
    m_path = dir + QLatin1Char('/') + name;
    if (!QDir().mkpath(m_path)) {
        *error = QStringLiteral("%1 cannot be made: %2")
                     .arg(m_path, QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    const QString latest = dir + QStringLiteral("/latest");
    if (QFileInfo(latest).isSymLink())
        QFile::remove(latest);
    QFile::link(name, latest); // a convenience: without it nothing is missing
    return true;
}

QString RecordFolder::unitName(int number) const
{
    return QStringLiteral("unit-%1").arg(number, 2, 10, QLatin1Char('0'));
}

QString RecordFolder::unitPath(int number) const
{
    if (m_units == 1)
        return m_path;
    QDir(m_path).mkpath(unitName(number));
    return m_path + QLatin1Char('/') + unitName(number);
}

bool RecordFolder::write(const UnitRecord &unit, const Transcript &transcript,
                         const QByteArray &log, QString *error) const
{
    const QString dir = unitPath(unit.number) + QLatin1Char('/');
    return save(dir + QStringLiteral("record.json"), QJsonDocument(toJson(unit)).toJson(), error) &&
           save(dir + QStringLiteral("junit.xml"), toJunit({unit}), error) &&
           (log.isEmpty() || save(dir + QStringLiteral("tool.log"), log, error)) &&
           save(dir + QStringLiteral("report.html"), unitReport(unit, dir, transcript, log), error);
}

bool RecordFolder::writeSummary(const QList<UnitRecord> &units, QString *error) const
{
    QStringList folders;
    for (const UnitRecord &unit : units)
        folders.append(unitName(unit.number));
    return save(m_path + QStringLiteral("/junit.xml"), toJunit(units), error) &&
           save(m_path + QStringLiteral("/report.html"), lineReport(units, folders), error);
}
