/// SysfsModel as a file system: translates system calls into the model's calls
/// and nothing more.
#ifndef BENCH_KEYPAD_SYSFSMOUNT_H
#define BENCH_KEYPAD_SYSFSMOUNT_H

#include "bench/keypad/fusemount.h"
#include "bench/keypad/sysfsmodel.h"

#include <functional>

class SysfsMount
{
public:
    /// @param kept  called after every store, accepted or not, before its writer goes on
    SysfsMount(SysfsModel &model, std::function<void(const SysfsModel::Store &)> kept);

    /// See FuseMount::mount().
    QString mount(int device, const QByteArray &at);
    int fd() const { return m_mount.fd(); }
    bool serve() { return m_mount.serve(); }

    SysfsModel &model() { return m_model; }
    /// One write(2); @return errno value.
    int store(const QString &path, const QByteArray &text);

private:
    SysfsModel &m_model;
    std::function<void(const SysfsModel::Store &)> m_kept;
    FuseMount m_mount;
};

#endif
