/// The mouse cursor, which no picture on a touchscreen should have in its middle.
#ifndef COMPAT_CURSOR_H
#define COMPAT_CURSOR_H

#include <QtGlobal>

// As a number: the moc of Qt 4 cannot evaluate QT_VERSION_CHECK.
#if QT_VERSION < 0x050000
#include <QWSServer>
#endif

/// Hides the cursor that the window server of Qt 4 for Embedded Linux draws, until
/// the server makes its mouse handlers anew. Later versions of Qt draw one on the
/// frame buffer only, and are told not to when the tool is started.
inline void hideMouseCursor()
{
#if QT_VERSION < 0x050000
    // Null in a program that is not the window server.
    if (QWSServer::instance())
        QWSServer::setCursorVisible(false);
#endif
}

#endif
