/// Covering the screen, with or without a window manager.
#ifndef APP_FULLSCREEN_H
#define APP_FULLSCREEN_H

class QWidget;

/// Shows @p window over the whole screen. Its size is right before its show
/// event arrives, also where no window manager enlarges it.
void showOnWholeScreen(QWidget *window);

#endif
