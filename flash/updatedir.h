/// Which folder the images of a flash run come from.
#ifndef FLASH_UPDATEDIR_H
#define FLASH_UPDATEDIR_H

#include <QString>

/// Chooses the update directory. It does not check whether the directory exists or holds
/// the images: the tools will say so. Hidden folders never count as subfolders; links to
/// folders do. "Last" is the greatest name as QString compares: by UTF-16 code unit, so
/// "fw-9" is greater than "fw-10" and "fw-a" than "fw-B".
///
/// | dir                           | chosen                                     |
/// |-------------------------------|--------------------------------------------|
/// | empty                         | last subfolder of base, or base itself     |
/// | begins with a slash           | dir                                        |
/// | names a file or folder in base| that entry                                 |
/// | anything else                 | last subfolder whose name contains dir; if |
/// |                               | there is none, dir                         |
///
/// The last row ignores case, and ? * [...] in dir are wildcards.
///
/// @param base  folder of the update directories, without a slash at its end
/// @param dir   the directory asked for, or nothing
/// @return a path without a slash at its end, unless dir has one; a relative
///         path, which the tools will refuse, when nothing fits
QString chooseUpdateDir(const QString &base, const QString &dir);

#endif
