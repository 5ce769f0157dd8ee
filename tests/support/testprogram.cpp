#include "tests/support/testprogram.h"

#include <QApplication>
#include <QFileInfo>
#include <QMap>

#include <cstdio>
#include <memory>

namespace
{

struct Test {
    TestProgram::Needs needs;
    TestProgram::Run run;
};

/// By name. Made when first asked for: entries come before main().
QMap<QString, Test> &tests()
{
    static QMap<QString, Test> all;
    return all;
}

std::unique_ptr<QCoreApplication> makeApplication(TestProgram::Needs needs, int &argc, char **argv)
{
    switch (needs) {
    case TestProgram::EventLoop:
        return std::make_unique<QCoreApplication>(argc, argv);
    case TestProgram::Widgets:
        return std::make_unique<QApplication>(argc, argv);
    case TestProgram::NoApplication:
        break;
    }
    return nullptr;
}

int printNames(const char *program, FILE *to, int status)
{
    std::fprintf(to, "usage: %s TEST [function ...] [options of Qt Test]\ntests:\n", program);
    const QStringList names = tests().keys();
    for (const QString &name : names)
        std::fprintf(to, "  %s\n", qPrintable(name));
    return status;
}

} // namespace

TestProgram::Entry::Entry(const char *sourceFile, Needs needs, Run run)
{
    tests().insert(QFileInfo(QString::fromUtf8(sourceFile)).completeBaseName(), {needs, run});
}

int main(int argc, char **argv)
{
    if (argc < 2)
        return printNames(argv[0], stdout, 0);
    const auto test = tests().constFind(QString::fromLocal8Bit(argv[1]));
    if (test == tests().constEnd())
        return printNames(argv[0], stderr, 2);
    // Qt Test is given the test's name in place of the program's.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const std::unique_ptr<QCoreApplication> application = makeApplication(test->needs, argc, argv);
    return test->run(arguments);
}
