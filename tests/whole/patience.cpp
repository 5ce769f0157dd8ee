#include "tests/whole/patience.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>

namespace
{

/// No timer of the tool that matters here is longer; where one is, its test says so.
const int sleepThatIsFinal = 3000;  // ms
const int sleepOfABrokenTool = 500; // ms
/// Of a tool that is at work and gets nowhere.
const int longestWait = 120000;         // ms
const int longestOfABrokenTool = 10000; // ms
const int betweenLooks = 50;            // ms
/// A test that does not get to look has seen nothing.
const int fewestLooks = 8;

/// Whether an earlier wait of this test class was in vain.
bool isBroken = false;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Asleep, stopped or dead; neither running nor waiting for a disk.
bool isAsleep(const QByteArray &stat)
{
    // Behind the name, which may hold anything.
    const int state = int(stat.lastIndexOf(')')) + 2;
    return !stat.isEmpty() && QByteArray("STtZX").contains(stat.mid(state, 1));
}

/// Whether all processes are asleep that @p process, a name in /proc, has started, and theirs.
bool childrenSleep(const QString &process)
{
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(process));
    const QStringList threads = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads) {
        const QList<QByteArray> children =
            contentOf(tasks.filePath(thread + QStringLiteral("/children"))).simplified().split(' ');
        for (const QByteArray &child : children) {
            if (child.isEmpty())
                continue;
            const QString name = QString::fromLatin1(child);
            const QDir ofChild(QStringLiteral("/proc/%1/task").arg(name));
            const QStringList itsThreads = ofChild.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
            for (const QString &its : itsThreads) {
                if (!isAsleep(contentOf(ofChild.filePath(its + QStringLiteral("/stat")))))
                    return false;
            }
            if (!childrenSleep(name))
                return false;
        }
    }
    return true;
}

} // namespace

bool Patience::wait(const std::function<bool()> &done, int ownPause)
{
    const QDeadlineTimer longest(isBroken ? longestOfABrokenTool : longestWait);
    const int final = (isBroken ? sleepOfABrokenTool : sleepThatIsFinal) + ownPause;
    QDeadlineTimer nextLook(betweenLooks);
    QElapsedTimer asleep;
    int looks = 0;
    while (!done()) {
        if (!nextLook.hasExpired())
            continue;
        nextLook.setRemainingTime(betweenLooks);
        if (!childrenSleep(QStringLiteral("self"))) {
            looks = 0;
        } else if (looks++ == 0) {
            asleep.start();
        }
        const bool isFinal = looks >= fewestLooks && asleep.elapsed() >= final;
        if (!isFinal && !longest.hasExpired())
            continue;
        if (done())
            return true;
        qWarning(isFinal ? "nothing more comes: the tool has gone to sleep"
                         : "still at work, and what is awaited has not come");
        isBroken = true;
        return false;
    }
    return true;
}

bool Patience::waitUntil(const std::function<bool()> &condition, int ownPause)
{
    return wait(
        [&condition] {
            if (condition())
                return true;
            QTest::qWait(10);
            return false;
        },
        ownPause);
}
