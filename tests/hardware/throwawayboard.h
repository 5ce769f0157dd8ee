/// A folder that plays a board for the length of a test.
#ifndef TESTS_HARDWARE_THROWAWAYBOARD_H
#define TESTS_HARDWARE_THROWAWAYBOARD_H

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "hardware/board.h"

class ThrowawayBoard
{
public:
    Board board() const { return Board(root()); }
    QString root() const { return m_folder.path(); }
    QString path(Board::Path which) const { return board().path(which); }
    bool exists(Board::Path which) const { return QFile::exists(path(which)); }

    /// The folder in which @p which lies comes into being.
    bool makeParent(Board::Path which) const
    {
        return QDir().mkpath(QFileInfo(path(which)).path());
    }

    /// A folder in the place of a file: it is there, but not even root can open it.
    bool putFolder(Board::Path which) const { return QDir().mkpath(path(which)); }

    bool put(Board::Path which, const QByteArray &bytes) const
    {
        QFile file(path(which));
        return makeParent(which) && file.open(QIODevice::WriteOnly) &&
               file.write(bytes) == bytes.size();
    }

    /// Null when there is no such file.
    QByteArray get(Board::Path which) const
    {
        QFile file(path(which));
        if (!file.open(QIODevice::ReadOnly))
            return QByteArray();
        return file.readAll();
    }

private:
    QTemporaryDir m_folder;
};

#endif
