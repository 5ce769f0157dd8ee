#include "bench/line/recordfolder.h"

#include "bench/line/junit.h"
#include "bench/line/report.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

namespace
{

bool save(const QString &path, const QByteArray &bytes, QString *error)
{
    // As a whole: who watches the folder never reads half a record.
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit())
        return true;
    *error = QStringLiteral("%1: %2").arg(path, file.errorString());
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
        *error = QStringLiteral("%1 cannot be made").arg(m_path);
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
