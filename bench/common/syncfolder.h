/// Names that are still there after a power cut.
#ifndef BENCH_COMMON_SYNCFOLDER_H
#define BENCH_COMMON_SYNCFOLDER_H

#include <QString>

/// Puts the names in a folder on the disk: until then a new file may be gone after a power
/// cut, and a renamed one may have its old name again. False with errno; a file system that
/// can do this for files only is not a failure.
bool syncFolder(const QString &path);

#endif
