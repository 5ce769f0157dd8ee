/// A throw-away folder that plays the board's file system.
#ifndef TESTS_SUPPORT_BOARDFOLDER_H
#define TESTS_SUPPORT_BOARDFOLDER_H

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include "hardware/board.h"

class BoardFolder
{
public:
    /// The board whose root is this folder.
    Board board() const { return Board(m_folder.path()); }

    /// The path on this machine of @p path on the board.
    QString at(const QString &path) const { return m_folder.path() + path; }

    /// Makes the file and the folders above it.
    void write(const QString &path, const QByteArray &content);
    /// @return the file's bytes; "(missing)" when it cannot be read
    QByteArray read(const QString &path) const;
    void makeFolder(const QString &path);
    void remove(const QString &path);
    bool exists(const QString &path) const;
    /// Makes a symbolic link at @p path to @p target, a path of this machine.
    void link(const QString &path, const QString &target);

private:
    QTemporaryDir m_folder;
};

#endif
