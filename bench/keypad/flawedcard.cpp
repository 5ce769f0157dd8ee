#include "bench/keypad/flawedcard.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

QMap<QByteArray, QByteArray> &files()
{
    return static_cast<FlawedCard *>(fuse_get_context()->private_data)->files;
}

void *start(fuse_conn_info *, fuse_config *config)
{
    config->direct_io = 1; // or the kernel's cache would give back what was written
    return fuse_get_context()->private_data;
}

int getattr(const char *path, struct stat *status, fuse_file_info *)
{
    memset(status, 0, sizeof *status);
    status->st_uid = getuid();
    status->st_gid = getgid();
    status->st_nlink = 1;
    if (strcmp(path, "/") == 0) {
        status->st_mode = S_IFDIR | 0755;
        return 0;
    }
    const auto it = files().constFind(path);
    if (it == files().constEnd())
        return -ENOENT;
    status->st_mode = S_IFREG | 0644;
    status->st_size = it->size();
    return 0;
}

int readdir(const char *, void *buffer, fuse_fill_dir_t fill, off_t, fuse_file_info *,
            fuse_readdir_flags)
{
    const fuse_fill_dir_flags plain = fuse_fill_dir_flags(0);
    fill(buffer, ".", nullptr, 0, plain);
    fill(buffer, "..", nullptr, 0, plain);
    const QList<QByteArray> names = files().keys();
    for (const QByteArray &name : names)
        fill(buffer, name.constData() + 1, nullptr, 0, plain);
    return 0;
}

int open(const char *path, fuse_file_info *)
{
    return files().contains(path) ? 0 : -ENOENT;
}

int create(const char *path, mode_t, fuse_file_info *)
{
    files()[path];
    return 0;
}

int read(const char *path, char *buffer, size_t size, off_t offset, fuse_file_info *)
{
    QByteArray content = files().value(path);
    if (!content.isEmpty())
        content[0] = char(content.at(0) ^ 1);
    const QByteArray part = content.mid(int(offset), int(size));
    memcpy(buffer, part.constData(), size_t(part.size()));
    return int(part.size());
}

int write(const char *path, const char *bytes, size_t size, off_t offset, fuse_file_info *)
{
    QByteArray &content = files()[path];
    const int end = int(offset) + int(size);
    if (content.size() < end)
        content.append(end - int(content.size()), '\0');
    memcpy(content.data() + offset, bytes, size);
    return int(size);
}

int truncate(const char *path, off_t length, fuse_file_info *)
{
    QByteArray &content = files()[path];
    if (content.size() < length)
        content.append(int(length) - int(content.size()), '\0');
    content.truncate(int(length));
    return 0;
}

int removeFile(const char *path)
{
    return files().remove(path) > 0 ? 0 : -ENOENT;
}

} // namespace

QString FlawedCard::mount(int device, const QByteArray &at)
{
    fuse_operations table = {};
    table.init = start;
    table.getattr = getattr;
    table.readdir = readdir;
    table.open = open;
    table.create = create;
    table.read = read;
    table.write = write;
    table.truncate = truncate;
    table.unlink = removeFile;
    return m_mount.mount(device, at, table, this);
}
