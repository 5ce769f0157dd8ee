#include "calibration/pointercalfile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const char defaultPath[] = "/etc/pointercal";
const mode_t defaultMode = 0644;
const int numberCount = 7;
const int screenNumberCount = 3;
const int largestScreenNumber = 0x7FFF;

QString named(const char *variable)
{
    return QFile::decodeName(qgetenv(variable));
}

/// Screen size and rotation from after the seven integers, as text to append.
QByteArray screenOf(const QByteArray &content)
{
    const QList<QByteArray> words = content.simplified().split(' ');
    QByteArray text;
    for (int i = 0; i < screenNumberCount; ++i) {
        bool isNumber = false;
        const int number =
            numberCount + i < words.size() ? words.at(numberCount + i).toInt(&isNumber) : 0;
        if (!isNumber || number < 0 || number > largestScreenNumber)
            return QByteArray();
        text += ' ' + QByteArray::number(number);
    }
    return text;
}

QString behindLinks(const QString &path)
{
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    if (!canonical.isEmpty())
        return canonical;
    // A link to a file that is still to be written has no canonical path.
    return info.isSymLink() ? info.symLinkTarget() : path;
}

bool writeAll(int fd, const QByteArray &content)
{
    const char *from = content.constData();
    size_t left = static_cast<size_t>(content.size());
    while (left > 0) {
        const ssize_t written = ::write(fd, from, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        from += written;
        left -= static_cast<size_t>(written);
    }
    return true;
}

/// The new name in a folder survives a power cut only when the folder is flushed.
void flushFolderOf(const QString &path)
{
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    const int fd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}

/// One file on its way from its old content to the new.
class Replacement
{
public:
    explicit Replacement(const QString &path)
        : m_path(QFile::encodeName(behindLinks(path))),
          // A fixed name: what a power cut leaves behind is used again next time.
          m_temporary(m_path + ".new"), m_existed(false), m_isFile(true), m_mode(defaultMode)
    {
        struct stat status;
        if (::stat(m_path.constData(), &status) != 0)
            return;
        m_existed = true;
        m_isFile = S_ISREG(status.st_mode);
        m_mode = status.st_mode & 07777;
        m_before = PointercalFile::read(QFile::decodeName(m_path));
    }

    QString path() const { return QFile::decodeName(m_path); }

    bool holds(const QByteArray &content) const { return m_existed && m_before == content; }

    /// Writes the new content beside the file, which does not change yet.
    bool stage(const QByteArray &content)
    {
        // A rename would replace a device just as well.
        if (!m_isFile)
            return false;
        const int fd = ::open(m_temporary.constData(),
                              O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, m_mode);
        if (fd < 0)
            return false;
        const bool written = writeAll(fd, content) && ::fchmod(fd, m_mode) == 0 && ::fsync(fd) == 0;
        const int error = errno;
        const bool closed = ::close(fd) == 0;
        if (!written)
            errno = error;
        return written && closed;
    }

    bool commit()
    {
        if (std::rename(m_temporary.constData(), m_path.constData()) != 0)
            return false;
        flushFolderOf(path());
        return true;
    }

    /// Why stage() or commit() has just failed.
    QString error() const
    {
        const QString reason = m_isFile ? QString::fromLocal8Bit(std::strerror(errno))
                                        : QString::fromLatin1("is no regular file");
        return QString::fromLatin1("%1: %2").arg(path(), reason);
    }

    void discard() { ::unlink(m_temporary.constData()); }

    /// After commit(): back to what was there before.
    void undo()
    {
        if (m_existed && stage(m_before) && commit())
            return;
        if (!m_existed)
            ::unlink(m_path.constData());
        flushFolderOf(path());
    }

private:
    QByteArray m_path;
    QByteArray m_temporary;
    bool m_existed;
    bool m_isFile;
    mode_t m_mode;
    QByteArray m_before;
};

void discardFrom(QList<Replacement> &files, int first)
{
    for (int i = first; i < files.size(); ++i)
        files[i].discard();
}

} // namespace

QString PointercalFile::toRead()
{
    const QString ofLibrary = named("TSLIB_CALIBFILE");
    return ofLibrary.isEmpty() ? ofQt() : ofLibrary;
}

QString PointercalFile::ofQt()
{
    const QString path = named("POINTERCAL_FILE");
    return path.isEmpty() ? QString::fromLatin1(defaultPath) : path;
}

QStringList PointercalFile::toWrite()
{
    QStringList paths;
    paths << named("POINTERCAL_FILE") << named("TSLIB_CALIBFILE");
    paths.removeAll(QString());
    for (int i = 0; i < paths.size(); ++i)
        paths[i] = QDir::cleanPath(paths.at(i));
    paths.removeDuplicates();
    if (paths.isEmpty())
        paths << QString::fromLatin1(defaultPath);
    return paths;
}

bool PointercalFile::parse(const QByteArray &content, AffineMap *map)
{
    const QList<QByteArray> words = content.simplified().split(' ');
    if (words.size() < numberCount)
        return false;
    qint32 numbers[numberCount];
    for (int i = 0; i < numberCount; ++i) {
        bool isNumber = false;
        numbers[i] = words.at(i).toInt(&isNumber);
        if (!isNumber)
            return false;
    }
    const AffineMap parsed = {numbers[0], numbers[1], numbers[2], numbers[3],
                              numbers[4], numbers[5], numbers[6]};
    if (parsed.s == 0)
        return false;
    *map = parsed;
    return true;
}

QByteArray PointercalFile::format(const AffineMap &map)
{
    const qint32 numbers[numberCount] = {map.a, map.b, map.c, map.d, map.e, map.f, map.s};
    QByteArray line;
    for (int i = 0; i < numberCount; ++i) {
        line += QByteArray::number(numbers[i]);
        line += i + 1 < numberCount ? ' ' : '\n';
    }
    return line;
}

QByteArray PointercalFile::forLibrary(const QByteArray &content, const QSize &screenSize)
{
    AffineMap map;
    AffineMap given;
    if (!parse(content, &map) || !mapForLibrary(map, screenSize, &given))
        return QByteArray();
    return format(given).trimmed() + screenOf(content) + '\n';
}

QByteArray PointercalFile::read(const QString &path)
{
    // Opening a pipe would wait, and a device may have no end.
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return QByteArray();
    QByteArray content;
    struct stat status;
    QFile file;
    if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && file.open(fd, QIODevice::ReadOnly))
        content = file.readAll();
    file.close();
    ::close(fd);
    return content;
}

bool PointercalFile::store(const QStringList &paths, const QByteArray &content, QString *error)
{
    QList<Replacement> files;
    for (int i = 0; i < paths.size(); ++i) {
        const Replacement file(paths.at(i));
        if (!file.holds(content))
            files << file;
    }

    for (int i = 0; i < files.size(); ++i) {
        if (files[i].stage(content))
            continue;
        *error = files[i].error();
        discardFrom(files, 0);
        return false;
    }
    for (int i = 0; i < files.size(); ++i) {
        if (files[i].commit())
            continue;
        *error = files[i].error();
        discardFrom(files, i);
        while (--i >= 0)
            files[i].undo();
        return false;
    }
    return true;
}
