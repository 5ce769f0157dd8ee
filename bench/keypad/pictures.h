/// The pictures of a keypad's /home/default: those of the package, so that what a test
/// sees on the screen is what a real unit shows.
#ifndef BENCH_KEYPAD_PICTURES_H
#define BENCH_KEYPAD_PICTURES_H

#include <QByteArray>
#include <QStringList>

namespace Pictures
{
/// "tarnwick.png" (the logo), "bars.png", "grey.png", "checkerboard.png" and, in one
/// colour each, "white.png", "black.png", "red.png", "green.png", "blue.png".
QStringList names();
/// The file, 800 by 480 pixels; empty for a name that is none of names().
QByteArray png(const QString &name);
} // namespace Pictures

#endif
