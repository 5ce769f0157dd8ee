/// A step of programming the NAND: one external tool, run as a child process.
#ifndef FLASH_MFPROC_H
#define FLASH_MFPROC_H

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QString>

/// Base of the steps. A step is made once and started as often as needed; a run
/// that ends well emits status(100) and complete(), any other failed(). Steps
/// are chained by connecting complete() to the next one's start().
///
/// There is no guard against starting a step whose tool is still running; the
/// sequence that owns the step must not do it. Destroying a step kills its
/// tool, and nothing is emitted any more.
///
/// Only the tool's standard output is read. What it writes to its standard error
/// goes nowhere.
class MFProc : public QObject
{
    Q_OBJECT

public:
    /// @param parent  owns the step, as the step owns its process
    explicit MFProc(QObject *parent);

signals:
    /// For receivers that want to know of the start; no step emits it.
    void started();

    /// Progress of the running tool.
    /// @param percent  what the tool's output says, usually 0 to 100; receivers must cope
    ///                 with other values
    void status(int percent);

    /// The tool ended with exit code 0.
    void complete();

    /// The tool could not be run or ended badly. A tool that crashes gives this
    /// twice: once for the error, once for the end.
    /// @param err  the reason: "Failed to Start", "Crashed", "Timed Out",
    ///             "Read Error", "Write Error", "Unknown" or "Finished with Error"
    void failed(const QString &err);

public slots:
    /// run(), for connections.
    void start();

private slots:
    void finished(int exitCode, QProcess::ExitStatus exitStatus);
    void error(QProcess::ProcessError processError);
    void readyRead();

protected:
    /// Takes one line of the tool's standard output.
    /// @param line  raw bytes with the CR or LF that ended the line; after CR LF the LF
    ///              counts as a line of its own. A line is cut after 64 KiB.
    virtual void handleLine(const QByteArray &line) = 0;

public:
    /// Resets the step's counters and starts its tool, which is looked up on
    /// the search path. Returns at once; failures come as failed().
    virtual void run() = 0;

protected:
    QProcess *m_process;

private:
    void extendLine(const QByteArray &bytes);

    QByteArray m_line;
};

#endif
