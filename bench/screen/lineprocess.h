/// The process of "bench line", which talks to the screen in JSON lines.
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

    /// While the line runs, signals that would end this process go to the line instead, and
    /// it ends its unit. Later they end this process, with the line's exit status. What the
    /// line writes to standard error goes to that of this process.
    void start(const QString &program, const QStringList &arguments);
    /// Whether a signal came that should end the run and the screen.
    static bool wasSignalled();

public slots:
    void say(const QJsonObject &line);
    /// Ends the unit, as Ctrl-C at a terminal does.
    void interrupt();

signals:
    void said(const QByteArray &bytes);
    /// The line has ended, and all that it wrote was read.
    /// @param status  its exit status; 4 if it crashed or could not be started
    void ended(int status);

private slots:
    void read();
    void finish(int status, QProcess::ExitStatus how);
    void fail(QProcess::ProcessError error);

private:
    QProcess m_process;
};

#endif
