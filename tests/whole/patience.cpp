#include "tests/whole/patience.h"

#include "tests/support/processes.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>

#include <unistd.h>

namespace
{

/// No timer of the tool that matters here is longer, or else the test says so.
const int sleepThatIsFinal = 3000;  // ms
const int sleepOfABrokenTool = 500; // ms
/// For a tool that is at work and gets nowhere.
const int longestWait = 120000;         // ms
const int longestOfABrokenTool = 10000; // ms
const int betweenLooks = 50;            // ms
/// A test that has no time to look has seen nothing.
const int fewestLooks = 8;

/// Whether an earlier wait of this test class was in vain.
bool isBroken = false;

/// Whether all processes that this one has started, and theirs, are asleep, stopped or
/// dead; neither running nor waiting for a disk.
bool childrenSleep(qint64 pid)
{
    const QList<qint64> children = process::children(pid);
    for (const qint64 child : children) {
        const QByteArray states = process::states(child);
        for (const char state : states) {
            if (!QByteArray("STtZX").contains(state))
                return false;
        }
        if (!childrenSleep(child))
            return false;
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
        if (!childrenSleep(getpid())) {
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
