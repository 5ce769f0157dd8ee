/// A PostgreSQL server of a test's own, in a folder of its own. It ends with the test,
/// whatever becomes of that.
#ifndef TESTS_BENCH_RECORDS_POSTGRESSERVER_H
#define TESTS_BENCH_RECORDS_POSTGRESSERVER_H

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <sys/types.h>

class PostgresServer
{
public:
    PostgresServer();
    ~PostgresServer();
    PostgresServer(const PostgresServer &) = delete;
    PostgresServer &operator=(const PostgresServer &) = delete;

    /// Why there can be none on this machine; empty when there can.
    static QString missing();

    /// Makes an empty server with the user "bench", whose password over the network is
    /// "secret". False with *error.
    bool create(QString *error);
    /// Returns when it answers. False with *error.
    bool start(QString *error);
    /// @param signal  SIGINT ends it orderly, SIGQUIT at once, SIGKILL without its knowledge
    void stop(int signal);

    bool createDatabase(const QString &name, QString *error) const;

    /// As the bench names it: through the folder, without a password ...
    QString place(const QString &database) const;
    /// ... and through the network, with one.
    QString networkPlace(const QString &database) const;
    int port() const { return m_port; }

private:
    QString file(const char *name) const { return m_dir.filePath(QLatin1String(name)); }

    const QTemporaryDir m_dir;
    int m_port = 0;
    pid_t m_process = -1;
};

#endif
