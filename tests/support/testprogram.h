/// All tests of a room are one program. Each test class says here what it needs and
/// is run by itself, in a process of its own, as CTest does:
///
///     build/tests/tests_hardware                            # which tests there are
///     build/tests/tests_hardware tst_buttons                # one of them
///     build/tests/tests_hardware tst_buttons keyReleased    # one function, options of Qt Test
#ifndef TESTS_SUPPORT_TESTPROGRAM_H
#define TESTS_SUPPORT_TESTPROGRAM_H

#include <QtTest>

namespace TestProgram
{

/// The application object that a test runs with.
enum Needs { NoApplication, EventLoop, Widgets };

typedef int (*Run)(const QStringList &arguments);

/// Enters a test under the name of its source file, without folder and ending.
struct Entry {
    Entry(const char *sourceFile, Needs needs, Run run);
};

template<class Test> int runTest(const QStringList &arguments)
{
    Test test;
    return QTest::qExec(&test, arguments);
}

} // namespace TestProgram

/// Once for each test class, at the end of its source file.
#define MFTOOL_TEST(Class, needs)                                                                  \
    static const TestProgram::Entry entryOf##Class(__FILE__, TestProgram::needs,                   \
                                                   TestProgram::runTest<Class>);

#endif
