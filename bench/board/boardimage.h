/// The emulated board's image, which make-image.sh makes and keeps.
#ifndef BENCH_BOARD_BOARDIMAGE_H
#define BENCH_BOARD_BOARDIMAGE_H

#include <QString>

namespace BoardImage
{

/// How making it ended.
enum Made {
    Good,
    Failed,    ///< the maker has said why
    Impossible ///< something is missing on this PC; the maker has said what
};

/// Makes the image unless it is there, showing its progress on standard output.
/// @param package  the tool's package for armel; empty: that of the source tree
Made make(const QString &package);

/// The folder of the image. Empty, with *error, when nobody has made it yet.
QString find(const QString &package, QString *error);

} // namespace BoardImage

#endif
