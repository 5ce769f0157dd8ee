/// The first step of a flash run: the boot stream, written by kobs-ng.
#ifndef FLASH_BOOTSTREAM_H
#define FLASH_BOOTSTREAM_H

#include "flash/mfproc.h"

/// status() counts the erase blocks that the tool names. The tool does not say
/// how many there will be; past the usual number status() stays at 101
/// until a good end sets it to 100.
class BootStream : public MFProc
{
    Q_OBJECT

public:
    /// @param parent  owns the step
    explicit BootStream(QObject *parent);

    void run() override;

protected:
    void handleLine(const QByteArray &line) override;

private:
    int m_total; ///< erase blocks of a usual run
    int m_count; ///< erase blocks seen in this run, at most one more than m_total

public:
    /// Folder that holds the image, without a slash at its end; set before run().
    QString m_dir;
};

#endif
