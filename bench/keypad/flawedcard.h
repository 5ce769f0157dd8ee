/// A memory card on which the first byte of every file reads back with its
/// lowest bit inverted, as a worn-out card might. Flat: files only, in memory.
#ifndef BENCH_KEYPAD_FLAWEDCARD_H
#define BENCH_KEYPAD_FLAWEDCARD_H

#include "bench/keypad/fusemount.h"

#include <QByteArray>
#include <QMap>

class FlawedCard
{
public:
    /// See FuseMount::mount().
    QString mount(int device, const QByteArray &at);
    int fd() const { return m_mount.fd(); }
    bool serve() { return m_mount.serve(); }

    QMap<QByteArray, QByteArray> files; ///< by name with its leading slash

private:
    FuseMount m_mount;
};

#endif
