/// The second step of a flash run: the root file system, written by ubiformat.
#ifndef FLASH_ROOTFS_H
#define FLASH_ROOTFS_H

#include "flash/mfproc.h"

#include <QRegExp>

/// ubiformat scans, flashes and formats, each from 0 to 100 per cent. status()
/// reports the percentage of the phase under way; next() is emitted when
/// scanning and when flashing reach 100. The tool pads a percentage below 10
/// with a second blank, which the patterns do not match: a phase's first
/// status() is usually 10.
class RootFS : public MFProc
{
    Q_OBJECT

public:
    /// @param parent  owns the step
    explicit RootFS(QObject *parent);

    void run() override;

signals:
    /// The phase under way reached 100 per cent and another one follows.
    void next();

protected:
    void handleLine(const QByteArray &line) override;

private:
    /// Matches a progress line of the phase under way; capture 1 is the
    /// percentage. Never freed: the step lives until the process exits.
    QRegExp *m_pattern;
    int m_count; ///< the phase under way: 0 scanning, 1 flashing, 2 formatting

public:
    /// Folder that holds the image, without a slash at its end; set before run().
    QString m_dir;
};

#endif
