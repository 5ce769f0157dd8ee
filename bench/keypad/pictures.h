/// The pictures of a keypad's /home/default, drawn here: 800 by 480 pixels.
#ifndef BENCH_KEYPAD_PICTURES_H
#define BENCH_KEYPAD_PICTURES_H

#include <QByteArray>
#include <QImage>
#include <QStringList>

namespace Pictures
{
/// "tarnwick.png" (the logo), "bars.png", "grey.png", "checkerboard.png" and, in one
/// colour each, "white.png", "black.png", "red.png", "green.png", "blue.png".
QStringList names();
/// Null for a name that is none of names().
QImage draw(const QString &name);
/// The same as a PNG file; drawn once per process.
QByteArray png(const QString &name);
} // namespace Pictures

#endif
