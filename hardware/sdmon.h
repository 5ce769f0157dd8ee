/// Reports when an SD card has been mounted or unmounted.
#ifndef HARDWARE_SDMON_H
#define HARDWARE_SDMON_H

#include <QThread>

#include "hardware/board.h"

/// Makes the named pipe of the SD card events if there is nothing at its path.
/// @return true when there is something at the path, of whatever kind, or the pipe was
///         made
bool createSdFifo(const Board &board = Board());

/// Reads the pipe that the board's hot-plug scripts write, one line for each opening: "#"
/// and the folder where a card was mounted, or "!" and the folder of a card that is gone.
/// Anything a writer sends after its first line is lost.
///
/// The thread starts with the object and blocks in the pipe; nothing stops it but the end
/// of the process. Deleting the object while isRunning() aborts the process, so an owner
/// that ends earlier leaves it running instead.
class SDMon : public QThread
{
    Q_OBJECT

public:
    explicit SDMon(QObject *parent, const Board &board = Board());

signals:
    /// A card was mounted at @p dir. Emitted from the monitor's own thread.
    void dirAdded(QString dir);
    /// The card at @p dir was removed. Emitted from the monitor's own thread.
    void dirRemoved(QString dir);

protected:
    void run() override;

private:
    void handleLine(const QByteArray &line);

    const QString m_pipe;
};

#endif
