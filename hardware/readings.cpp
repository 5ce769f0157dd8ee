#include "hardware/readings.h"

#include <QFile>
#include <QtDebug>

QByteArray readVoltage(const Board &board)
{
    QFile file(board.path(Board::BusVoltage));
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning("Failed to open voltage file");
        return QByteArray();
    }
    return file.readAll().trimmed();
}

bool readVersion(const Board &board, bool mounted, QString *version)
{
    QFile file(board.path(mounted ? Board::MountedVersion : Board::Version));
    if (!file.open(QIODevice::ReadOnly)) {
        qDebug("In ATE mode Could not Open Version file to read");
        return false;
    }
    const QByteArray text = file.readAll().trimmed();
    // Without its length, so that the text ends at the first zero byte.
    *version = QString::fromLatin1(text.constData());
    return true;
}
