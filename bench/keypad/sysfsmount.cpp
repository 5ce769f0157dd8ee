#include "bench/keypad/sysfsmount.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

const int pageSize = 4096; // what sysfs says is the size of every attribute

/// What one open file sees: a read at its start asks the driver, and later reads go on
/// with that answer.
struct OpenAttribute {
    QByteArray shown;
};

SysfsMount &self()
{
    return *static_cast<SysfsMount *>(fuse_get_context()->private_data);
}

QString sysPath(const char *path)
{
    return strcmp(path, "/") == 0 ? QStringLiteral("/sys")
                                  : QStringLiteral("/sys") + QString::fromUtf8(path);
}

OpenAttribute *opened(fuse_file_info *info)
{
    return reinterpret_cast<OpenAttribute *>(info->fh);
}

void *start(fuse_conn_info *, fuse_config *config)
{
    // Nodes come and go by themselves, so the kernel must not cache anything.
    config->entry_timeout = 0;
    config->attr_timeout = 0;
    config->negative_timeout = 0;
    config->direct_io = 1;
    return fuse_get_context()->private_data;
}

int getattr(const char *path, struct stat *status, fuse_file_info *)
{
    const SysfsModel::Node node = self().model().node(sysPath(path));
    memset(status, 0, sizeof *status);
    status->st_uid = getuid();
    status->st_gid = getgid();
    status->st_nlink = 1;
    switch (node.type) {
    case SysfsModel::None:
        return -ENOENT;
    case SysfsModel::Folder:
        status->st_mode = S_IFDIR | node.mode;
        status->st_nlink = 2;
        break;
    case SysfsModel::Link:
        status->st_mode = S_IFLNK | node.mode;
        break;
    case SysfsModel::Attribute:
        status->st_mode = S_IFREG | node.mode;
        status->st_size = pageSize;
        break;
    }
    return 0;
}

int readlink(const char *path, char *buffer, size_t size)
{
    const SysfsModel::Node node = self().model().node(sysPath(path));
    if (node.type != SysfsModel::Link)
        return -EINVAL;
    qstrncpy(buffer, node.target.toUtf8().constData(), static_cast<uint>(size));
    return 0;
}

int readdir(const char *path, void *buffer, fuse_fill_dir_t fill, off_t, fuse_file_info *,
            fuse_readdir_flags)
{
    const fuse_fill_dir_flags plain = fuse_fill_dir_flags(0);
    fill(buffer, ".", nullptr, 0, plain);
    fill(buffer, "..", nullptr, 0, plain);
    const QStringList names = self().model().list(sysPath(path));
    for (const QString &name : names)
        fill(buffer, name.toUtf8().constData(), nullptr, 0, plain);
    return 0;
}

int open(const char *path, fuse_file_info *info)
{
    const int access = info->flags & O_ACCMODE;
    const int error = self().model().open(sysPath(path), access != O_WRONLY, access != O_RDONLY);
    if (error != 0)
        return -error;
    info->fh = reinterpret_cast<quintptr>(new OpenAttribute);
    info->direct_io = 1;
    return 0;
}

int release(const char *, fuse_file_info *info)
{
    delete opened(info);
    return 0;
}

int read(const char *path, char *buffer, size_t size, off_t offset, fuse_file_info *info)
{
    OpenAttribute *attribute = opened(info);
    if (offset == 0) {
        int error = 0;
        attribute->shown = self().model().show(sysPath(path), &error);
        if (error != 0)
            return -error;
    }
    const QByteArray part = attribute->shown.mid(int(offset), int(qMin(size, size_t(pageSize))));
    memcpy(buffer, part.constData(), size_t(part.size()));
    return int(part.size());
}

int write(const char *path, const char *text, size_t size, off_t, fuse_file_info *)
{
    const int taken = int(qMin(size, size_t(pageSize)));
    const int error = self().store(sysPath(path), QByteArray(text, taken));
    return error == 0 ? taken : -error;
}

// Opening with truncation changes nothing.
int truncate(const char *, off_t, fuse_file_info *)
{
    return 0;
}

int create(const char *, mode_t, fuse_file_info *)
{
    return -EACCES;
}

int makeNode(const char *, mode_t, dev_t)
{
    return -EPERM;
}

int makeDir(const char *, mode_t)
{
    return -EPERM;
}

int removeName(const char *)
{
    return -EPERM;
}

int twoNames(const char *, const char *)
{
    return -EPERM;
}

int rename(const char *, const char *, unsigned)
{
    return -EPERM;
}

fuse_operations operations()
{
    fuse_operations table = {};
    table.init = start;
    table.getattr = getattr;
    table.readlink = readlink;
    table.readdir = readdir;
    table.open = open;
    table.release = release;
    table.read = read;
    table.write = write;
    table.truncate = truncate;
    table.create = create;
    table.mknod = makeNode;
    table.mkdir = makeDir;
    table.unlink = removeName;
    table.rmdir = removeName;
    table.symlink = twoNames;
    table.link = twoNames;
    table.rename = rename;
    return table;
}

} // namespace

SysfsMount::SysfsMount(SysfsModel &model, std::function<void(const SysfsModel::Store &)> kept)
    : m_model(model), m_kept(std::move(kept))
{
}

QString SysfsMount::mount(int device, const QByteArray &at)
{
    return m_mount.mount(device, at, operations(), this);
}

int SysfsMount::store(const QString &path, const QByteArray &text)
{
    SysfsModel::Store store;
    store.path = m_model.classPath(path);
    store.text = text;
    store.error = m_model.store(path, text);
    m_kept(store);
    return store.error;
}
