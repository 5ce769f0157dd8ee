/// Operations on the keypad's files. They return an errno value, 0 when all is well.
#ifndef BENCH_KEYPAD_HOSTFILES_H
#define BENCH_KEYPAD_HOSTFILES_H

#include <QByteArray>
#include <QList>
#include <QStringList>

namespace HostFiles
{

/// The names in a folder, in no order.
int list(const QByteArray &folder, QStringList *names);
/// Removes a file or a whole folder, but only from a file system of @p ownRoots: everything
/// else in there is the PC's own, and the bench may be root.
int removeAll(const QByteArray &name, const QList<QByteArray> &ownRoots);
/// With all folders above it.
int makeFolders(const QByteArray &name);

} // namespace HostFiles

#endif
