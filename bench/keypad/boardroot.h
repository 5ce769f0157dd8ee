/// Builds the root of the keypad's mount namespace: the PC's root file system with the
/// board's own files and folders laid over it.
#ifndef BENCH_KEYPAD_BOARDROOT_H
#define BENCH_KEYPAD_BOARDROOT_H

#include <QString>
#include <QStringList>

struct BoardRoot {
    QString linePath;    ///< the PC's name of the pty slave to show as /dev/ttySP0
    QString programsDir; ///< of the PC, holds the stand-in program
    QString toolDir;     ///< of the PC, holds the tool
    QStringList visible; ///< paths of the PC to show where the board's places would hide them

    /// Makes this process's mount namespace the board's, with an empty /sys. The
    /// process must be the first of its PID namespace.
    /// @return empty, or the reason in one line
    QString build() const;
};

#endif
