#include "bench/keypad/pictures.h"

#include <QFile>

/// The resource is in a static library, and nothing else would link it. Outside of any
/// namespace, like the resource compiler's function.
static void initialiseResource()
{
    Q_INIT_RESOURCE(pictures);
}

QStringList Pictures::names()
{
    return {QStringLiteral("tarnwick.png"), QStringLiteral("bars.png"),
            QStringLiteral("grey.png"),     QStringLiteral("checkerboard.png"),
            QStringLiteral("white.png"),    QStringLiteral("black.png"),
            QStringLiteral("red.png"),      QStringLiteral("green.png"),
            QStringLiteral("blue.png")};
}

QByteArray Pictures::png(const QString &name)
{
    initialiseResource();
    QFile file(QStringLiteral(":/pictures/") + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
