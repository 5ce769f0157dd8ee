/// How long a test waits: for as long as one of the programs that it has started is at
/// work. A busy machine makes a wait longer, and a tool from which nothing will come
/// ends it within seconds.
#ifndef TESTS_WHOLE_PATIENCE_H
#define TESTS_WHOLE_PATIENCE_H

#include <QtTest>

#include <functional>

namespace Patience
{

/// How long the tool sleeps between attaching and mounting.
const int mountPause = 2000; // ms

/// Asks @p done again and again until it says yes. It should wait for a moment itself.
/// @param ownPause  for so many milliseconds the tool may sleep and still go on by itself
/// @return false when all processes of this test, and their children, have been asleep
///         for seconds: none of them will do anything. After the first such failure of
///         a test class its later waits end within a second.
bool wait(const std::function<bool()> &done, int ownPause = 0);

/// The same for a condition that is answered at once; events are handled meanwhile.
bool waitUntil(const std::function<bool()> &condition, int ownPause = 0);

} // namespace Patience

/// As Qt Test's QTRY_..., with that patience.
#define AWAIT_COMPARE(actual, expected)                                                            \
    do {                                                                                           \
        Patience::waitUntil([&] { return (actual) == (expected); });                               \
        QCOMPARE(actual, expected);                                                                \
    } while (false)
#define AWAIT_VERIFY(condition)                                                                    \
    do {                                                                                           \
        const bool hasCome = Patience::waitUntil([&]() -> bool { return condition; });             \
        QVERIFY2(hasCome, #condition);                                                             \
    } while (false)

#endif
