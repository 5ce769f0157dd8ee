/// The first process of a keypad's PID namespace: serves /sys, starts the tool, passes
/// its output to the bench and does what the bench asks. One thread, one poll loop. When
/// it ends, for whatever reason, the kernel ends every process of the keypad with it.
#ifndef BENCH_KEYPAD_HOSTSERVER_H
#define BENCH_KEYPAD_HOSTSERVER_H

#include "bench/keypad/cardslot.h"
#include "bench/keypad/channel.h"
#include "bench/keypad/keypadline.h"
#include "bench/keypad/sysfsmodel.h"
#include "bench/keypad/sysfsmount.h"

#include <QMap>

class HostServer
{
public:
    HostServer(int channel, KeypadLine &line);

    /// Builds the board and mounts /sys; called in the new namespaces.
    /// @return empty, or the reason in one line
    QString prepare(const QJsonObject &request);
    /// Serves until the bench goes away.
    void serve();

private:
    /// A program that the bench runs in the keypad.
    struct Errand {
        QJsonValue request;
        int output;
        int errors;
    };

    qint64 usec() const;
    void post(const QJsonObject &object, const QList<int> &descriptors = QList<int>());
    void flushQueue();
    void answer(const QJsonObject &request, QJsonObject reply = QJsonObject(),
                const QList<int> &descriptors = QList<int>());

    void handle(const QJsonObject &request);
    void setCard(const QJsonObject &request);
    void handleSysfs(const QJsonObject &request);
    void startTool(const QJsonObject &request);
    void runErrand(const QJsonObject &request);
    void inWorker(const QJsonObject &request);
    QJsonObject work(const QJsonObject &request, QList<int> *descriptors) const;
    QList<QByteArray> ownRoots() const;
    void readOutput();
    void reap();

    Channel m_channel;
    KeypadLine &m_line;
    bool m_bridging = false;
    qint64 m_start;
    SysfsModel m_model;
    SysfsMount m_sysfs;
    CardSlot m_cards;
    QList<QPair<QJsonObject, QList<int>>> m_queue; ///< not yet sent
    QMap<pid_t, Errand> m_errands;
    pid_t m_tool = 0;
    int m_output = -1; ///< the tool's standard output and standard error
    int m_childEnded = -1;
    bool m_over = false;
};

#endif
