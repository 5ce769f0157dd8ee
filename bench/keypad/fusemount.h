/// A FUSE file system served from the caller's own poll loop, in one thread:
/// poll fd() for reading and call serve() once for every time it is ready.
///
/// The server must never itself touch a path below its mount point: it would
/// wait for its own answer.
#ifndef BENCH_KEYPAD_FUSEMOUNT_H
#define BENCH_KEYPAD_FUSEMOUNT_H

#define FUSE_USE_VERSION 31
#include <fuse.h>

#include <QString>

class FuseMount
{
public:
    FuseMount() = default;
    ~FuseMount();
    FuseMount(const FuseMount &) = delete;
    FuseMount &operator=(const FuseMount &) = delete;

    /// @param device     an open /dev/fuse, taken over
    /// @param at         an existing folder
    /// @param operations copied
    /// @param data       handed to the operations as their private_data, not owned
    /// @return empty, or the reason in one line
    QString mount(int device, const QByteArray &at, const fuse_operations &operations, void *data);
    /// Descriptor to poll, -1 when not mounted.
    int fd() const;
    /// Receives and answers one request. False when the mount is gone.
    bool serve();

private:
    fuse *m_fuse = nullptr;
    fuse_buf m_buffer = {};
};

#endif
