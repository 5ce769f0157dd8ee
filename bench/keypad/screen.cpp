#include "bench/keypad/screen.h"

#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

Screen::Screen(const QByteArray &display) : m_connection(xcb_connect(display.constData(), nullptr))
{
    if (xcb_connection_has_error(m_connection))
        return;
    const xcb_query_extension_reply_t *test = xcb_get_extension_data(m_connection, &xcb_test_id);
    if (test != nullptr && test->present)
        m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
}

bool Screen::canOpen(const QByteArray &display)
{
    xcb_connection_t *connection = xcb_connect(display.constData(), nullptr);
    const bool isOpen = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return isOpen;
}

Screen::~Screen()
{
    xcb_disconnect(m_connection);
}

QImage Screen::image() const
{
    if (!isValid())
        return QImage();
    const quint16 width = m_screen->width_in_pixels;
    const quint16 height = m_screen->height_in_pixels;
    xcb_get_image_reply_t *reply =
        xcb_get_image_reply(m_connection,
                            xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP, m_screen->root,
                                          0, 0, width, height, ~0U),
                            nullptr);
    if (reply == nullptr)
        return QImage();
    QImage image;
    const size_t size = size_t(width) * height * 4;
    if (size_t(xcb_get_image_data_length(reply)) >= size) {
        image = QImage(width, height, QImage::Format_RGB32);
        memcpy(image.bits(), xcb_get_image_data(reply), size);
    }
    free(reply);
    return image;
}

bool Screen::send(quint8 event, quint8 detail, int x, int y)
{
    if (!isValid())
        return false;
    const xcb_void_cookie_t request = xcb_test_fake_input_checked(
        m_connection, event, detail, XCB_CURRENT_TIME, m_screen->root, qint16(x), qint16(y), 0);
    xcb_generic_error_t *error = xcb_request_check(m_connection, request);
    free(error);
    // The check was answered in the round in which the event was sent, perhaps before it;
    // an answer in the next round comes after it.
    free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    return error == nullptr;
}

bool Screen::move(int x, int y)
{
    return send(XCB_MOTION_NOTIFY, 0, x, y);
}

bool Screen::button(bool down)
{
    return send(down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, XCB_BUTTON_INDEX_1, 0, 0);
}
