/// The first step of mounting the NAND: its partition attached to UBI.
#ifndef FLASH_UBIATTACH_H
#define FLASH_UBIATTACH_H

#include "flash/mfproc.h"

/// Runs ubiattach; its output goes to the log. The only status() is the 100 of
/// the end.
class UBIAttach : public MFProc
{
    Q_OBJECT

public:
    /// @param parent  owns the step
    explicit UBIAttach(QObject *parent);

    void run() override;

protected:
    void handleLine(const QByteArray &line) override;
};

#endif
