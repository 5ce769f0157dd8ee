/// The screen of an X display and a finger on it.
#ifndef BENCH_KEYPAD_SCREEN_H
#define BENCH_KEYPAD_SCREEN_H

#include <QByteArray>
#include <QImage>

struct xcb_connection_t;
struct xcb_screen_t;

class Screen
{
public:
    /// @param display  for example ":3"
    explicit Screen(const QByteArray &display);
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    /// Whether there is such a display and this program may use it.
    static bool canOpen(const QByteArray &display);
    /// Whether the display is there and can be touched.
    bool isValid() const { return m_screen != nullptr; }
    /// What the whole screen shows, Format_RGB32; null on failure.
    QImage image() const;
    /// This and button() return when the server has passed the event on.
    bool move(int x, int y);
    /// The first mouse button, where the pointer is.
    bool button(bool down);

private:
    bool send(quint8 event, quint8 detail, int x, int y);

    xcb_connection_t *m_connection;
    xcb_screen_t *m_screen = nullptr;
};

#endif
