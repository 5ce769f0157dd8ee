#include "bench/line/recordfolder.h"

#include "bench/common/syncfolder.h"
#include "bench/line/junit.h"
#include "bench/line/recordreader.h"
#include "bench/line/report.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

const char RecordName[] = "record.json";
const char JunitName[] = "junit.xml";
const char LogName[] = "tool.log";
const char ReportName[] = "report.html";
const mode_t FolderMode = 0777; // less what the umask takes away

QString systemError(int number)
{
    return QString::fromLocal8Bit(strerror(number));
}

/// Files of one folder; all are tried.
class Writer
{
public:
    explicit Writer(const QString &dir) : m_dir(dir) {}

    void write(const char *name, const QByteArray &bytes)
    {
        QString reason;
        if (saveWhole(m_dir + QLatin1Char('/') + QLatin1String(name), bytes, &reason))
            return;
        m_missing.append(QLatin1String(name));
        if (m_reason.isEmpty())
            m_reason = reason;
    }

    /// False with *error when one of them could not be written.
    bool finish(QString *error) const
    {
        if (m_missing.isEmpty())
            return true;
        *error = QStringLiteral("%1: %2 could not be written: %3")
                     .arg(m_dir, m_missing.join(QStringLiteral(", ")), m_reason);
        return false;
    }

private:
    const QString m_dir;
    QStringList m_missing;
    QString m_reason; ///< of the first one
};

/// Nothing when it cannot be read.
QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray recordText(const UnitRecord &unit)
{
    return QJsonDocument(toJson(unit)).toJson();
}

/// @return 0 or errno
int makeFolder(const QString &path)
{
    return mkdir(QFile::encodeName(path).constData(), FolderMode) == 0 ? 0 : errno;
}

/// @return 0 or errno; if something is there but is not a folder, the next call will say
///         so
int makeParents(const QString &dir)
{
    errno = 0;
    return QDir().mkpath(dir) || QFileInfo::exists(dir) ? 0 : errno;
}

/// Makes DIR/latest point to NAME; it never points nowhere. Only a convenience, so a
/// failure does no harm.
void pointLatestTo(const QString &dir, const QString &name)
{
    const QByteArray latest = QFile::encodeName(dir + QStringLiteral("/latest"));
    const QByteArray next = QFile::encodeName(dir + QStringLiteral("/.latest-") + name);
    if (symlink(QFile::encodeName(name).constData(), next.constData()) == 0 &&
        rename(next.constData(), latest.constData()) != 0)
        unlink(next.constData());
}

QString unitName(int number, int attempt)
{
    const QString name = QStringLiteral("unit-%1").arg(number, 2, 10, QLatin1Char('0'));
    return attempt == 1 ? name : QStringLiteral("%1-attempt-%2").arg(name).arg(attempt);
}

} // namespace

bool saveWhole(const QString &path, const QByteArray &bytes, QString *error)
{
    // As a whole: whoever watches the folder never reads half a record. commit() does not
    // report that a full disk did not take what was still in the buffer, so flush first.
    // It does make sure that the disk has the content before the name.
    QSaveFile file(path);
    errno = 0;
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
        file.commit()) {
        syncFolder(QFileInfo(path).path()); // the file is there, even if its name may be lost
        return true;
    }
    // When a disk takes only a part, Qt does not know why.
    const int number = errno;
    *error = number != 0 ? systemError(number) : file.errorString();
    return false;
}

bool RecordFolder::create(const QString &dir, bool isBatch, QString *error)
{
    m_isBatch = isBatch;
    const QString time = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString name = time;
    // Several runs may begin at once: the folder belongs to the one that makes it.
    int failure = makeParents(dir);
    if (failure == 0)
        failure = makeFolder(dir + QLatin1Char('/') + name);
    for (int other = 2; failure == EEXIST; ++other) {
        name = QStringLiteral("%1-%2").arg(time).arg(other);
        failure = makeFolder(dir + QLatin1Char('/') + name);
    }
    m_path = dir + QLatin1Char('/') + name;
    if (failure != 0) {
        *error = QStringLiteral("%1 cannot be made: %2").arg(m_path, systemError(failure));
        return false;
    }
    pointLatestTo(dir, name);
    return true;
}

void RecordFolder::join(const QString &path, bool isBatch)
{
    m_path = path;
    m_isBatch = isBatch;
}

QString RecordFolder::unitPath(int number, int attempt) const
{
    if (!m_isBatch)
        return m_path;
    QDir(m_path).mkpath(unitName(number, attempt));
    return m_path + QLatin1Char('/') + unitName(number, attempt);
}

QString RecordFolder::recordPath(const QString &unitPath)
{
    return unitPath + QLatin1Char('/') + QLatin1String(RecordName);
}

bool RecordFolder::keep(const UnitRecord &unit, QString *error) const
{
    Writer writer(unitPath(unit.number, unit.attempt));
    writer.write(RecordName, recordText(unit));
    return writer.finish(error);
}

bool RecordFolder::write(const UnitRecord &unit, const Transcript &transcript,
                         const QByteArray &log, QString *error) const
{
    const QString dir = unitPath(unit.number, unit.attempt);
    Writer writer(dir);
    writer.write(RecordName, recordText(unit));
    writer.write(JunitName, toJunit({unit}));
    if (!log.isEmpty())
        writer.write(LogName, log);
    writer.write(ReportName, unitReport(unit, dir, transcript, log));
    return writer.finish(error);
}

bool RecordFolder::conclude(UnitRecord *record, QString *error) const
{
    const QString dir = unitPath(record->number, record->attempt);
    QJsonObject object = QJsonDocument::fromJson(contentOf(recordPath(dir))).object();
    Writer writer(dir);
    // A verdict that was written stands: the store may have it already.
    if (!object.value(QStringLiteral("ended")).toBool()) {
        if (object.isEmpty())
            object = toJson(*record);
        object.insert(QStringLiteral("outcome"), outcomeName(record->outcome));
        object.insert(QStringLiteral("reason"), record->reason);
        object.insert(QStringLiteral("ended"), true);
        writer.write(RecordName, QJsonDocument(object).toJson());
    }
    *record = recordFromJson(object);
    QString unread; // a transcript that was never begun is empty
    const Transcript transcript =
        Transcript::load(dir + QLatin1Char('/') + transcriptName(), &unread).value_or(Transcript());
    const QByteArray log = contentOf(dir + QLatin1Char('/') + QLatin1String(LogName));
    writer.write(JunitName, toJunit({*record}));
    writer.write(ReportName, unitReport(*record, dir, transcript, log));
    return writer.finish(error);
}

bool RecordFolder::writeSummary(const QList<UnitRecord> &units, QString *error) const
{
    QStringList folders;
    for (const UnitRecord &unit : units)
        folders.append(unit.wasBegun() ? unitName(unit.number, unit.attempt) : QString());
    Writer writer(m_path);
    writer.write(JunitName, toJunit(units));
    writer.write(ReportName, lineReport(units, folders));
    return writer.finish(error);
}
