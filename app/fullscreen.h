/// Covering the screen, with or without a window manager.
#ifndef APP_FULLSCREEN_H
#define APP_FULLSCREEN_H

class QWidget;

/// Shows @p window over the whole screen. It has that size before its show event arrives,
/// even without a window manager.
void showOnWholeScreen(QWidget *window);

#endif
