/// A keyboard at an X display, as a person or a scanner types on it.
#ifndef TESTS_BENCH_SCREEN_XKEYBOARD_H
#define TESTS_BENCH_SCREEN_XKEYBOARD_H

#include <QString>

#include <cstdint>

struct xcb_connection_t;

class XKeyboard
{
public:
    /// @param display  for example ":3"
    explicit XKeyboard(const QString &display);
    ~XKeyboard();
    XKeyboard(const XKeyboard &) = delete;
    XKeyboard &operator=(const XKeyboard &) = delete;

    /// Types Latin letters and signs; '\n' is Enter and '\033' Escape. False when the
    /// display has no such key.
    bool type(const QString &text);

private:
    bool press(std::uint32_t keysym);
    void send(std::uint8_t event, std::uint8_t key);

    xcb_connection_t *m_connection;
    std::uint8_t m_shift = 0;
};

#endif
