/// A place at which units are tested, one at a time, each by a process of its own: if one
/// hangs or dies, nothing else is affected.
#ifndef BENCH_LINE_FIXTURE_H
#define BENCH_LINE_FIXTURE_H

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

class Fixture : public QObject
{
    Q_OBJECT

public:
    /// @param port  empty for virtual units
    Fixture(const QString &name, const QString &port);
    /// Kills the process, if there is one.
    ~Fixture() override;

    QString name() const { return m_name; }
    QString port() const { return m_port; }
    bool isBusy() const { return m_process != nullptr; }

    /// Starts this program with @p arguments, which make it report its progress as JSON
    /// lines.
    void start(const QStringList &arguments);
    /// Writes a line to the process, if there is one.
    void say(const QJsonObject &object);
    /// Nobody answers any more, neither this process nor later ones.
    void hangUp();
    /// Passes a signal on to the process.
    void signalTo(int number);

signals:
    void heard(const QJsonObject &event);
    /// Everything that it said has been read.
    /// @param how  for a person: "it was killed, or crashed"
    void ended(const QString &how);

private slots:
    void readEvents();
    void finish();
    void fail(QProcess::ProcessError error);

private:
    const QString m_name;
    const QString m_port;
    std::unique_ptr<QProcess> m_process;
    bool m_isHungUp = false;
};

#endif
