/// The line as a process of its own: "bench line" with its JSON lines.
#ifndef BENCH_SCREEN_LINEPROCESS_H
#define BENCH_SCREEN_LINEPROCESS_H

#include <QJsonObject>
#include <QObject>
#include <QProcess>
#include <QStringList>

class LineProcess : public QObject
{
    Q_OBJECT

public:
    LineProcess();

    /// While it runs, signals that would end this process are passed on to it instead, and it
    /// ends its unit; later they end this process with its exit status. Its complaints go to
    /// this process's own standard error.
    void start(const QString &program, const QStringList &arguments);
    /// Whether a signal came, as somebody sends who wants an end of it all.
    static bool wasSignalled();

public slots:
    void say(const QJsonObject &line);
    /// As Ctrl-C does.
    void interrupt();

signals:
    void said(const QByteArray &bytes);
    /// All that it said was heard.
    /// @param status  its exit status; 4 for one that crashed or could not be started
    void ended(int status);

private slots:
    void read();
    void finish(int status, QProcess::ExitStatus how);
    void fail(QProcess::ProcessError error);

private:
    QProcess m_process;
};

#endif
