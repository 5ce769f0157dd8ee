/// What the tool is drawn on, and what can be seen there.
#ifndef BENCH_KEYPAD_KEYPADLOOK_H
#define BENCH_KEYPAD_KEYPADLOOK_H

#include <QImage>
#include <QScopedPointer>
#include <QString>

class HostClient;
class Screen;

/// What the tool is drawn on.
struct KeypadDisplay {
    enum Kind {
        Offscreen, ///< nothing to look at: no screenshots, no touches
        Xvfb,      ///< an X server at 800x480x24, started when first needed and shared by all
                   ///< keypads of this process
        Existing,  ///< the X display called name
        Vnc        ///< Qt's VNC platform at 800x480 on port `port`
    };
    Kind kind = Offscreen;
    QString name;    ///< Existing: for example ":0"; empty means $DISPLAY
    int port = 5900; ///< Vnc

    /// Makes sure that it is there.
    /// @param xDisplay  set to its name for X, empty for the kinds without
    /// @return empty, or the reason in one line
    QString open(QString *xDisplay) const;
};

class KeypadLook
{
public:
    /// Empty when this @p kind of display can be used here, else the reason in one line.
    static QString whyNoDisplay(KeypadDisplay::Kind kind);

    /// The X display the tool is on, for example ":3"; empty without one.
    QString displayName() const { return m_display; }
    /// What the display shows; null without an X display.
    QImage screen();
    bool screenshot(const QString &file);
    QRgb pixel(int x, int y);
    /// Waits until the pixel has this colour (alpha ignored).
    bool waitForPixel(int x, int y, QRgb colour, int msecs = 20000);

protected:
    explicit KeypadLook(HostClient *host);
    ~KeypadLook();
    bool openDisplay(const KeypadDisplay &wanted);

private:
    friend class KeypadHand;
    /// Null without an X display.
    Screen *touchable();

    HostClient *m_host;
    QString m_display;
    QScopedPointer<Screen> m_screen;
};

#endif
