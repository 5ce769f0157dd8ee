#include "bench/keypad/fusemount.h"

#include <fuse_lowlevel.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

FuseMount::~FuseMount()
{
    if (m_fuse != nullptr) {
        fuse_unmount(m_fuse);
        fuse_destroy(m_fuse);
    }
    free(m_buffer.mem);
}

QString FuseMount::mount(int device, const QByteArray &at, const fuse_operations &operations,
                         void *data)
{
    // Mounted here and not by libfuse: where the kernel says no, libfuse would try its
    // setuid helper, which cannot see this mount namespace.
    const QByteArray options = "fd=" + QByteArray::number(device) +
                               ",rootmode=40000,user_id=" + QByteArray::number(getuid()) +
                               ",group_id=" + QByteArray::number(getgid());
    if (::mount("keypad", at.constData(), "fuse", MS_NOSUID | MS_NODEV, options.constData()) != 0) {
        const QString reason = QString::fromLocal8Bit(strerror(errno));
        close(device);
        return QStringLiteral("cannot mount FUSE: ") + reason;
    }
    char name[] = "keypad";
    char *argv[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, argv);
    m_fuse = fuse_new(&args, &operations, sizeof operations, data);
    const QByteArray inherited = "/dev/fd/" + QByteArray::number(device);
    if (m_fuse == nullptr || fuse_mount(m_fuse, inherited.constData()) != 0)
        return QStringLiteral("libfuse refuses the mount");
    return QString();
}

int FuseMount::fd() const
{
    return m_fuse == nullptr ? -1 : fuse_session_fd(fuse_get_session(m_fuse));
}

bool FuseMount::serve()
{
    fuse_session *session = fuse_get_session(m_fuse);
    const int received = fuse_session_receive_buf(session, &m_buffer);
    if (received == -EINTR || received == -EAGAIN)
        return true;
    if (received <= 0)
        return false;
    fuse_session_process_buf(session, &m_buffer);
    return true;
}
