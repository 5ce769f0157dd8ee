/// The home button, and the board it sits on.
#ifndef HARDWARE_BUTTONS_H
#define HARDWARE_BUTTONS_H

#include <QObject>

#include "hardware/board.h"

/// Follows the home key of the input event device and knows the board's revision. Without
/// the device, and once it has gone, the button counts as released for good.
class Buttons : public QObject
{
    Q_OBJECT

public:
    /// Opens the event device and reads the revision; failures are logged.
    explicit Buttons(QObject *parent, const Board &board = Board());

    /// What the key last reported; false before its first report and without a device.
    bool homeDown() const { return m_homeDown; }

    /// Revision of the board at construction, 1 or more.
    int revision() const { return m_revision; }

signals:
    /// The home key reported @p down. Auto-repeat while it is held reports true again;
    /// a device that goes away while it is held counts as its release.
    void home(bool down);

private slots:
    void read();

private:
    void deviceGone();

    int m_fd; ///< stays open until the process ends
    bool m_homeDown;
    int m_revision;
};

#endif
