/// The bench: everything to try the tool on a Linux PC, one subcommand each.

#include "bench/board/boardcommand.h"
#include "bench/common/command.h"
#include "bench/keypad/keypadcommand.h"
#include "bench/line/linecommand.h"
#include "bench/records/recordscommand.h"
#include "bench/station/stationcommand.h"

#include <QCoreApplication>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>

namespace
{

const Command commands[] = {
    {"keypad", "run the tool on a virtual keypad", runKeypadCommand},
    {"station", "talk to a keypad over its serial line", stationCommand},
    {"decode", "explain frames, right or wrong", decodeCommand},
    {"board", "make the emulated board for the line", runBoardCommand},
    {"line", "run a test plan on one unit or many", runLineCommand},
    {"records", "ask and fill the store of all records", recordsCommand},
};

void printUsage(FILE *to)
{
    fputs("Usage: bench COMMAND [options] [arguments]\n\nCommands:\n", to);
    for (const Command &command : commands)
        fprintf(to, "  %-10s %s\n", command.name, command.summary);
    fputs("  help       tell all about a command, as \"bench COMMAND --help\" does\n"
          "\nOptions:\n"
          "  -h, --help     show this list\n"
          "  -V, --version  show the version\n"
          "\nExit status of all commands: 0 as wanted, 1 not as wanted, 2 wrong call,\n"
          "3 nobody answered in time, 4 it could not be tried.\n",
          to);
}

int runCommand(const QStringList &arguments)
{
    for (const Command &command : commands) {
        if (arguments.first() == QLatin1String(command.name))
            return command.run(arguments);
    }
    fprintf(stderr, "bench: there is no command \"%s\"; see bench --help\n",
            qPrintable(arguments.first()));
    return BenchExit::Usage;
}

/// @param arguments  what follows "help"
int runHelp(const QStringList &arguments)
{
    if (arguments.isEmpty()) {
        printUsage(stdout);
        return BenchExit::Good;
    }
    if (arguments.size() == 1)
        return runCommand({arguments.first(), QStringLiteral("--help")});
    fputs("bench: help takes one command\n", stderr);
    return BenchExit::Usage;
}

/// The next file that is opened gets the number of a standard stream that is closed, and a
/// serial line would then be read as a person's commands.
void openClosedStreams()
{
    for (int stream = 0; stream <= 2; ++stream) {
        if (fcntl(stream, F_GETFD) < 0 && errno == EBADF && open("/dev/null", O_RDWR) < 0)
            return;
    }
}

} // namespace

int main(int argc, char **argv)
{
    openClosedStreams();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty()) {
        printUsage(stderr);
        return BenchExit::Usage;
    }
    const QString &first = arguments.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h"))
        return runHelp({});
    if (first == QLatin1String("help"))
        return runHelp(arguments.mid(1));
    if (first == QLatin1String("--version") || first == QLatin1String("-V")) {
        puts("bench " MFTOOL_VERSION);
        return BenchExit::Good;
    }
    return runCommand(arguments);
}
