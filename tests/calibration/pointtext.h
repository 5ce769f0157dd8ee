/// Points as the tests of the calibration compare them, so that a failure shows them.
#ifndef TESTS_CALIBRATION_POINTTEXT_H
#define TESTS_CALIBRATION_POINTTEXT_H

#include <QPoint>
#include <QString>
#include <QStringList>

/// "24,456"
inline QString text(const QPoint &p)
{
    return QString("%1,%2").arg(p.x()).arg(p.y());
}

/// The five of a calibration, with spaces between them.
inline QString text(const QPoint (&points)[5])
{
    QStringList words;
    for (const QPoint &p : points)
        words << text(p);
    return words.join(' ');
}

#endif
