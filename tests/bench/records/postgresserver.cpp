#include "tests/bench/records/postgresserver.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

const int StartLimitMs = 120000;

/// Debian keeps the server's programs out of the search path.
QString program(const char *name)
{
    QStringList folders;
    const QDir versions(QStringLiteral("/usr/lib/postgresql"));
    const QStringList names = versions.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &version : names)
        folders.append(versions.filePath(version + QStringLiteral("/bin")));
    const QString found = QStandardPaths::findExecutable(QLatin1String(name), folders);
    return found.isEmpty() ? QStandardPaths::findExecutable(QLatin1String(name)) : found;
}

/// The server refuses to be root's.
const passwd *serverUser()
{
    const passwd *user = getpwnam("postgres");
    return user != nullptr ? user : getpwnam("nobody");
}

/// Starts a program that ends with this one.
/// @param output  file for all that it says
pid_t startAsUser(const QStringList &command, const QString &output)
{
    const passwd *user = geteuid() == 0 ? serverUser() : nullptr;
    std::vector<QByteArray> words;
    for (const QString &word : command)
        words.push_back(word.toLocal8Bit());
    std::vector<char *> arguments;
    for (QByteArray &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const QByteArray log = QFile::encodeName(output);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0)
        return child;
    const int file = open(log.constData(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    if (user != nullptr && (setgid(user->pw_gid) != 0 || setuid(user->pw_uid) != 0))
        _exit(126);
    // Changing the user would forget it.
    prctl(PR_SET_PDEATHSIG, SIGQUIT);
    if (getppid() != parent || chdir("/") != 0)
        _exit(126);
    execv(arguments[0], arguments.data());
    _exit(127);
}

/// -1 when it was ended by a signal.
int exitStatusOf(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int freePort()
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool bound = bind(probe, reinterpret_cast<sockaddr *>(&address), size) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr *>(&address), &size) == 0;
    close(probe);
    return bound ? ntohs(address.sin_port) : 0;
}

QString contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
}

} // namespace

PostgresServer::PostgresServer() = default;

PostgresServer::~PostgresServer()
{
    stop(SIGQUIT);
}

QString PostgresServer::missing()
{
    for (const char *name : {"initdb", "postgres", "psql"}) {
        if (program(name).isEmpty())
            return QStringLiteral("postgresql is not installed (there is no %1)")
                .arg(QLatin1String(name));
    }
    if (geteuid() == 0 && serverUser() == nullptr)
        return QStringLiteral("there is no user that the server could run as");
    return QString();
}

bool PostgresServer::create(QString *error)
{
    QFile password(file("password"));
    if (!password.open(QIODevice::WriteOnly) || password.write("secret\n") < 0) {
        *error = password.errorString();
        return false;
    }
    password.close();
    if (geteuid() == 0) {
        const passwd *user = serverUser();
        for (const QString &path : {m_dir.path(), password.fileName()}) {
            if (chown(QFile::encodeName(path).constData(), user->pw_uid, user->pw_gid) != 0) {
                *error = QString::fromLocal8Bit(strerror(errno));
                return false;
            }
        }
    }
    const pid_t made =
        startAsUser({program("initdb"), QStringLiteral("--pgdata"), file("data"),
                     QStringLiteral("--username=bench"), QStringLiteral("--auth-local=trust"),
                     QStringLiteral("--auth-host=scram-sha-256"), QStringLiteral("--pwfile"),
                     password.fileName(), QStringLiteral("--encoding=UTF8"),
                     QStringLiteral("--locale=C"), QStringLiteral("--no-sync")},
                    file("log"));
    if (exitStatusOf(made) == 0)
        return true;
    *error = contents(file("log"));
    return false;
}

bool PostgresServer::start(QString *error)
{
    const QDeadlineTimer limit(StartLimitMs);
    while (!limit.hasExpired()) {
        if (m_process < 0) {
            // Somebody else may have taken the port, and a server that was killed may have
            // left processes that are still ending: then it ends at once, and is tried again.
            m_port = freePort();
            m_process = startAsUser({program("postgres"), QStringLiteral("-D"), file("data"),
                                     QStringLiteral("-k"), m_dir.path(), QStringLiteral("-h"),
                                     QStringLiteral("127.0.0.1"), QStringLiteral("-p"),
                                     QString::number(m_port), QStringLiteral("-F")},
                                    file("log"));
        }
        if (createDatabase(QString(), error))
            return true;
        if (waitpid(m_process, nullptr, WNOHANG) == m_process)
            m_process = -1;
        QThread::msleep(50);
    }
    *error += QLatin1Char('\n') + contents(file("log"));
    return false;
}

void PostgresServer::stop(int signal)
{
    if (m_process < 0)
        return;
    kill(m_process, signal);
    exitStatusOf(m_process);
    m_process = -1;
}

/// @param name  empty: only ask whether the server answers
bool PostgresServer::createDatabase(const QString &name, QString *error) const
{
    const QString statement = name.isEmpty() ? QStringLiteral("SELECT 1")
                                             : QStringLiteral("CREATE DATABASE %1").arg(name);
    const pid_t process =
        startAsUser({program("psql"), QStringLiteral("-h"), m_dir.path(), QStringLiteral("-p"),
                     QString::number(m_port), QStringLiteral("-U"), QStringLiteral("bench"),
                     QStringLiteral("-c"), statement, QStringLiteral("postgres")},
                    file("psql"));
    if (exitStatusOf(process) == 0)
        return true;
    *error = contents(file("psql"));
    return false;
}

QString PostgresServer::place(const QString &database) const
{
    return QStringLiteral("postgresql:///%1?host=%2&port=%3&user=bench")
        .arg(database, m_dir.path())
        .arg(m_port);
}

QString PostgresServer::networkPlace(const QString &database) const
{
    return QStringLiteral("postgresql://bench@127.0.0.1:%1/%2").arg(m_port).arg(database);
}
