#include "tests/bench/screen/xkeyboard.h"

#include <cstdlib>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

namespace
{

const std::uint32_t Enter = 0xff0d; // keysyms of X
const std::uint32_t Escape = 0xff1b;
const std::uint32_t Shift = 0xffe1;

struct Key {
    std::uint8_t code = 0; ///< 0: there is none
    bool isShifted = false;
};

Key find(xcb_connection_t *connection, std::uint32_t keysym)
{
    Key key;
    const xcb_setup_t *setup = xcb_get_setup(connection);
    const int count = setup->max_keycode - setup->min_keycode + 1;
    xcb_get_keyboard_mapping_reply_t *reply = xcb_get_keyboard_mapping_reply(
        connection,
        xcb_get_keyboard_mapping(connection, setup->min_keycode, static_cast<std::uint8_t>(count)),
        nullptr);
    if (reply == nullptr)
        return key;
    const xcb_keysym_t *keysyms = xcb_get_keyboard_mapping_keysyms(reply);
    for (int i = 0; i < count && key.code == 0; ++i) {
        for (int column = 0; column < 2 && column < reply->keysyms_per_keycode; ++column) {
            if (keysyms[i * reply->keysyms_per_keycode + column] != keysym)
                continue;
            key.code = static_cast<std::uint8_t>(setup->min_keycode + i);
            key.isShifted = column == 1;
            break;
        }
    }
    free(reply);
    return key;
}

} // namespace

XKeyboard::XKeyboard(const QString &display)
    : m_connection(xcb_connect(display.toLatin1().constData(), nullptr))
{
    if (xcb_connection_has_error(m_connection) == 0)
        m_shift = find(m_connection, Shift).code;
}

XKeyboard::~XKeyboard()
{
    xcb_disconnect(m_connection);
}

bool XKeyboard::type(const QString &text)
{
    if (m_shift == 0)
        return false;
    for (const QChar letter : text) {
        const std::uint32_t keysym = letter == QLatin1Char('\n')     ? Enter
                                     : letter == QLatin1Char('\033') ? Escape
                                                                     : letter.unicode();
        if (!press(keysym))
            return false;
    }
    return true;
}

bool XKeyboard::press(std::uint32_t keysym)
{
    const Key key = find(m_connection, keysym);
    if (key.code == 0)
        return false;
    if (key.isShifted)
        send(XCB_KEY_PRESS, m_shift);
    send(XCB_KEY_PRESS, key.code);
    send(XCB_KEY_RELEASE, key.code);
    if (key.isShifted)
        send(XCB_KEY_RELEASE, m_shift);
    // The answer comes after the server has handed on the keys.
    free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    return true;
}

void XKeyboard::send(std::uint8_t event, std::uint8_t key)
{
    xcb_test_fake_input(m_connection, event, key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}
