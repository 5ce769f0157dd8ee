#include "bench/keypad/spawn.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QList>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <unistd.h>
#include <vector>

namespace
{

/// A program and its arguments as the kernel takes them.
class ArgumentVector
{
public:
    ArgumentVector(const QString &program, const QStringList &arguments)
    {
        m_bytes.append(QFile::encodeName(program));
        for (const QString &argument : arguments)
            m_bytes.append(QFile::encodeName(argument));
        for (QByteArray &argument : m_bytes)
            m_pointers.push_back(argument.data());
        m_pointers.push_back(nullptr);
    }

    char *const *data() const { return m_pointers.data(); }
    const char *program() const { return m_pointers.front(); }

private:
    QList<QByteArray> m_bytes;
    std::vector<char *> m_pointers;
};

} // namespace

pid_t spawnProgram(const QString &program, const QStringList &arguments, int input, int output)
{
    const ArgumentVector vector(program, arguments);
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
    errno = posix_spawn(&process, vector.program(), &actions, &attributes, vector.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return errno == 0 ? process : -1;
}

QString becomeProgram(const QString &program, const QStringList &arguments)
{
    const ArgumentVector vector(program, arguments);
    execv(vector.program(), vector.data());
    return QString::fromLocal8Bit(strerror(errno));
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
