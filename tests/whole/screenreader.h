/// Reads the main screen as an operator does: from its pixels.
#ifndef TESTS_WHOLE_SCREENREADER_H
#define TESTS_WHOLE_SCREENREADER_H

#include "bench/keypad/virtualkeypad.h"

#include <QImage>
#include <QList>
#include <QRect>
#include <QString>

/// Options of a keypad with a screen to read and to touch. Where the tool is built
/// with a sanitizer, what is left unfreed at its end does not count: the X
/// platform's own libraries leave things behind.
KeypadOptions onScreen();

class ScreenReader
{
public:
    explicit ScreenReader(VirtualKeypad &keypad) : m_keypad(keypad) {}

    /// Finds the four progress bars; they must all be empty and not covered.
    bool findBars();
    /// How far the bars are filled, in percent and to the nearest one that their
    /// width can show: "100 40 0 0".
    QString bars();
    /// Whether the bars show, give or take one percent, what @p percents says.
    /// Waits for it: the screen is drawn later than a frame is sent.
    bool waitForBars(const QList<int> &percents);

    /// The status line, as the one of the texts it may show that looks most like
    /// it; "Flash NAND" when the start button is in its place, "" for nothing and
    /// "(unknown)" for what looks like none of them.
    QString status();
    bool waitForStatus(const QString &text);

    /// Where the start button is, or was.
    static QPoint button() { return {400, 262}; }

private:
    int filled(const QImage &screen, const QRect &bar) const;

    VirtualKeypad &m_keypad;
    QList<QRect> m_bars; ///< what is inside the frames
};

#endif
