#include "bench/common/syncfolder.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

bool syncFolder(const QString &path)
{
    const int folder =
        open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    const int reason = fsync(folder) == 0 ? 0 : errno;
    close(folder);
    errno = reason;
    return reason == 0 || reason == EINVAL;
}
