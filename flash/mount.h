/// The second step of mounting the NAND: its UBI volume mounted on /mnt.
#ifndef FLASH_MOUNT_H
#define FLASH_MOUNT_H

#include "flash/mfproc.h"

/// Runs mount; its output goes to the log. The only status() is the 100 of the
/// end. A volume that is already mounted fails with "Finished with Error".
class Mount : public MFProc
{
    Q_OBJECT

public:
    /// @param parent  owns the step
    explicit Mount(QObject *parent);

    void run() override;

protected:
    void handleLine(const QByteArray &line) override;
};

#endif
