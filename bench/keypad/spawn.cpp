#include "bench/keypad/spawn.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QList>

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <unistd.h>
#include <vector>

pid_t spawnProgram(const QString &program, const QStringList &arguments, int input, int output)
{
    QList<QByteArray> bytes = {QFile::encodeName(program)};
    for (const QString &argument : arguments)
        bytes.append(QFile::encodeName(argument));
    std::vector<char *> pointers;
    for (QByteArray &argument : bytes)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (output >= 0)
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t process = -1;
    errno = posix_spawn(&process, pointers[0], &actions, &attributes, pointers.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return errno == 0 ? process : -1;
}

QString benchProgram(const QString &name)
{
    if (QCoreApplication::instance() != nullptr) {
        const QFileInfo beside(QCoreApplication::applicationDirPath() + QLatin1Char('/') + name);
        if (beside.isExecutable())
            return beside.filePath();
    }
    return QStringLiteral(BENCH_BUILD_DIR "/") + name;
}
