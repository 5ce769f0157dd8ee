/// What a person's hand does to a keypad: its keys, its enclosure, its card and
/// its touchscreen.
#ifndef BENCH_KEYPAD_KEYPADHAND_H
#define BENCH_KEYPAD_KEYPADHAND_H

#include "bench/keypad/hostprotocol.h"

#include <QByteArray>
#include <QString>

class HostClient;
class KeypadBoard;
class KeypadLook;

class KeypadHand : public HostProtocol::CardKind
{
public:
    /// A key record and a synchronisation record, in one write.
    void pressHome();
    void releaseHome();
    /// Raw bytes into the event device, one write.
    bool writeEvents(const QByteArray &bytes);
    /// One record as the board's kernel makes it: 16 bytes, little-endian.
    static QByteArray eventRecord(quint16 type, quint16 code, qint32 value);
    /// The tamper switch at GPIO 17: active, the enclosure is open, drives the pin high.
    void setTamper(bool active);

    /// Makes the card's folder behave as @p kind says. Files on it stay, except to and
    /// from ReadsBackWrong and after NoFolder.
    bool setCard(Card kind, const QString &dir = QStringLiteral("/media/mmcblk0p1"));
    /// Tells the tool that a card was mounted or removed. Waits until the tool
    /// listens; false if it does not within @p msecs.
    bool insertCard(const QString &dir = QStringLiteral("/media/mmcblk0p1"), int msecs = 20000);
    bool removeCard(const QString &dir = QStringLiteral("/media/mmcblk0p1"), int msecs = 20000);
    /// Any bytes into the SD pipe, in one opening and one write.
    bool writeSdPipe(const QByteArray &bytes, int msecs = 20000);

    /// Moves the pointer there, presses, holds for @p msecs (waiting), releases. Screen pixels.
    bool touch(int x, int y, int msecs = 50);
    bool press(int x, int y);
    bool move(int x, int y);
    bool release();

protected:
    KeypadHand(HostClient *host, KeypadBoard *board, KeypadLook *look);
    ~KeypadHand();
    /// The event device of a new board.
    void openEvents();
    void closeEvents();

private:
    HostClient *m_host;
    KeypadBoard *m_board;
    KeypadLook *m_look;
    int m_events = -1;
};

#endif
