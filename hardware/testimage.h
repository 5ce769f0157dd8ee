/// Where a full-screen test image is found.
#ifndef HARDWARE_TESTIMAGE_H
#define HARDWARE_TESTIMAGE_H

#include <QString>

/// The path of the test image that the station calls @p name.
/// @param directory  folder of the test images
/// @param name       an absolute path, used as it is; or the exact name of a file in
///                   @p directory; or part of one, in upper or lower case: the last
///                   match by name is taken
/// @return the path; @p name itself where nothing matches
QString findTestImage(const QString &directory, const QString &name);

#endif
