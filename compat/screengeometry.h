/// The screen's rectangle: the desktop widget's in Qt 4, the primary screen's since.
#ifndef COMPAT_SCREENGEOMETRY_H
#define COMPAT_SCREENGEOMETRY_H

#include <QRect>
#include <QtGlobal>

#if QT_VERSION >= QT_VERSION_CHECK(5, 0, 0)
#include <QGuiApplication>
#include <QScreen>

/// In pixels of the primary screen.
inline QRect screenGeometry()
{
    return QGuiApplication::primaryScreen()->geometry();
}
#else
#include <QApplication>
#include <QDesktopWidget>

/// In pixels of the primary screen.
inline QRect screenGeometry()
{
    return QApplication::desktop()->screenGeometry();
}
#endif

#endif
