#include "bench/keypad/hostfiles.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <filesystem>
#include <ftw.h>
#include <mntent.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace
{

int removeOne(const char *name, const struct stat *, int, FTW *)
{
    return ::remove(name) == 0 ? 0 : errno;
}

/// Something may be mounted there or below it; then it cannot be removed.
void unmountAt(const QByteArray &name)
{
    FILE *mounts = setmntent("/proc/self/mounts", "re");
    if (mounts == nullptr)
        return;
    QList<QByteArray> places;
    while (const mntent *entry = getmntent(mounts)) {
        const QByteArray place = entry->mnt_dir;
        if (place == name || place.startsWith(name + '/'))
            places.prepend(place);
    }
    endmntent(mounts);
    for (const QByteArray &place : qAsConst(places))
        umount2(place.constData(), MNT_DETACH | UMOUNT_NOFOLLOW);
}

} // namespace

int HostFiles::list(const QByteArray &folder, QStringList *names)
{
    DIR *entries = opendir(folder.constData());
    if (entries == nullptr)
        return errno;
    while (const dirent *entry = readdir(entries)) {
        const QByteArray name = entry->d_name;
        if (name != "." && name != "..")
            names->append(QString::fromUtf8(name));
    }
    closedir(entries);
    return 0;
}

int HostFiles::removeAll(const QByteArray &name, const QList<QByteArray> &ownRoots)
{
    unmountAt(name);
    struct stat status;
    if (lstat(name.constData(), &status) != 0)
        return errno == ENOENT ? 0 : errno;
    bool own = false;
    for (const QByteArray &root : ownRoots) {
        struct stat rootStatus;
        own =
            own || (stat(root.constData(), &rootStatus) == 0 && rootStatus.st_dev == status.st_dev);
    }
    if (!own)
        return EPERM;
    const int result = nftw(name.constData(), removeOne, 16, FTW_DEPTH | FTW_MOUNT | FTW_PHYS);
    return result < 0 ? errno : result;
}

int HostFiles::makeFolders(const QByteArray &name)
{
    std::error_code error;
    std::filesystem::create_directories(name.constData(), error);
    return error.value();
}
