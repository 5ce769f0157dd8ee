#include "hardware/boardrevision.h"

#include <QByteArray>
#include <QFile>
#include <QtDebug>

int readBoardRevision(const Board &board)
{
    const int first = 1;
    QFile file(board.path(Board::BoardRevision));
    if (!file.exists()) {
        qDebug("No revision file found, assuming rev 1");
        return first;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning("Unable to read the board revision file");
        return first;
    }
    // Not trimmed: whether a line end may follow the number depends on the version of Qt.
    const int revision = file.readLine().toInt();
    if (revision < first) {
        qWarning("Revision %d is invalid", revision);
        return first;
    }
    return revision;
}
