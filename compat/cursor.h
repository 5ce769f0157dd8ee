/// The mouse cursor, which does not belong on a touchscreen.
#ifndef COMPAT_CURSOR_H
#define COMPAT_CURSOR_H

#include <QtGlobal>

// As a number: the moc of Qt 4 cannot evaluate QT_VERSION_CHECK.
#if QT_VERSION < 0x050000
#include <QWSServer>
#endif

/// Hides the cursor that the window server of Qt 4 for Embedded Linux draws. It comes
/// back when the server makes new mouse handlers. Later versions of Qt only draw one on
/// the frame buffer; the command that starts the tool switches it off.
inline void hideMouseCursor()
{
#if QT_VERSION < 0x050000
    // Null in a program that is not the window server.
    if (QWSServer::instance())
        QWSServer::setCursorVisible(false);
#endif
}

#endif
