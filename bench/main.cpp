/// The bench: everything to try the tool on a Linux PC, one subcommand each.

#include "bench/common/command.h"
#include "bench/keypad/keypadcommand.h"
#include "bench/line/linecommand.h"
#include "bench/station/stationcommand.h"

#include <QCoreApplication>

#include <cstdio>

namespace
{

const Command commands[] = {
    {"keypad", "run the tool on a virtual keypad", runKeypadCommand},
    {"station", "talk to a keypad over its serial line", stationCommand},
    {"decode", "explain frames, right or wrong", decodeCommand},
    {"line", "run a test plan on one unit or many", runLineCommand},
};

void printUsage(FILE *to)
{
    fputs("Usage: bench COMMAND [options] [arguments]\n\nCommands:\n", to);
    for (const Command &command : commands)
        fprintf(to, "  %-10s %s\n", command.name, command.summary);
    fputs("\n\"bench COMMAND --help\" tells all about a command.\n", to);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty()) {
        printUsage(stderr);
        return BenchExit::Usage;
    }
    if (arguments.first() == QLatin1String("--help") || arguments.first() == QLatin1String("-h")) {
        printUsage(stdout);
        return BenchExit::Good;
    }
    for (const Command &command : commands) {
        if (arguments.first() == QLatin1String(command.name))
            return command.run(arguments);
    }
    fprintf(stderr, "bench: there is no command \"%s\"; see bench --help\n",
            qPrintable(arguments.first()));
    return BenchExit::Usage;
}
