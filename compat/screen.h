/// The screen, as Qt 4.8, 5.15 and 6 each name it.
#ifndef COMPAT_SCREEN_H
#define COMPAT_SCREEN_H

#include <QRect>
#include <QtGlobal>

#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)
#include <QGuiApplication>
#include <QScreen>
#else
#include <QApplication>
#include <QDesktopWidget>
#endif

/// Place and size in pixels of the (only) screen; empty when there is none.
inline QRect screenGeometry()
{
#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
#else
    return QApplication::desktop()->screenGeometry();
#endif
}

#endif
