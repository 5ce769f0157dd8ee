#include "bench/records/outbox.h"

#include "bench/common/syncfolder.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace
{

QString folderOf(const QString &dir)
{
    return dir + QStringLiteral("/not-stored");
}

/// -1 with errno. The lock ends with the descriptor, and so with the process.
int openLocked(const QString &path, int flags, int lock)
{
    const int file = open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, 0666);
    if (file >= 0 && flock(file, lock) == 0)
        return file;
    const int reason = errno;
    if (file >= 0)
        close(file);
    errno = reason;
    return -1;
}

/// False with errno.
bool writeThrough(int file, const QByteArray &bytes)
{
    return write(file, bytes.constData(), static_cast<size_t>(bytes.size())) ==
               static_cast<ssize_t>(bytes.size()) &&
           fsync(file) == 0;
}

} // namespace

Outbox::Ticket::Ticket(Ticket &&other) noexcept : m_lock(std::exchange(other.m_lock, -1)) {}

Outbox::Ticket &Outbox::Ticket::operator=(Ticket &&other) noexcept
{
    if (this != &other) {
        Ticket old(std::exchange(m_lock, std::exchange(other.m_lock, -1)));
    }
    return *this;
}

Outbox::Ticket::~Ticket()
{
    if (m_lock >= 0)
        close(m_lock);
}

Outbox::Outbox(const QString &dir) : m_dir(dir) {}

Outbox::Ticket Outbox::enter(const QString &record, QString *error) const
{
    QDir().mkpath(folderOf(m_dir));
    const QString marker =
        folderOf(m_dir) + QLatin1Char('/') + QUuid::createUuid().toString(QUuid::WithoutBraces);
    // A program that looks for entries may hold its lock for a moment before we get it.
    const int lock = openLocked(marker, O_WRONLY | O_CREAT | O_EXCL, LOCK_EX);
    // The path is relative to the folder, which may be moved or mounted elsewhere.
    const QString inside = QDir(m_dir).relativeFilePath(QFileInfo(record).absoluteFilePath());
    const QByteArray line = QFile::encodeName(inside) + '\n';
    // A record that is there after a power cut must have its entry; the folder may be new.
    if (lock >= 0 && writeThrough(lock, line) && syncFolder(folderOf(m_dir)) && syncFolder(m_dir))
        return Ticket(lock);
    *error = QStringLiteral("%1: %2").arg(marker, QString::fromLocal8Bit(strerror(errno)));
    if (lock >= 0) {
        close(lock);
        QFile::remove(marker);
    }
    return Ticket();
}

QList<Outbox::Entry> Outbox::waiting() const
{
    QList<Entry> entries;
    const QDir folder(folderOf(m_dir));
    const QFileInfoList markers = folder.entryInfoList(QDir::Files, QDir::Time | QDir::Reversed);
    for (const QFileInfo &marker : markers) {
        // Others may look at the same moment, and must find it, too.
        const int lock = openLocked(marker.filePath(), O_RDONLY, LOCK_SH | LOCK_NB);
        if (lock < 0)
            continue; // its unit is being tested, or somebody else has stored it just now
        QFile file;
        QByteArray line;
        if (file.open(lock, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
            line = file.readAll();
        if (!line.endsWith('\n'))
            continue; // it is being written
        line.chop(1);
        entries.append({marker.filePath(), QDir(m_dir).filePath(QFile::decodeName(line))});
    }
    return entries;
}

void Outbox::takeOut(const Entry &entry)
{
    QFile::remove(entry.marker);
}
