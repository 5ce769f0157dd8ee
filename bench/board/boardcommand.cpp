#include "bench/board/boardcommand.h"

#include "bench/board/boardimage.h"
#include "bench/common/command.h"

#include <cstdio>

namespace
{

const char Description[] =
    "Makes the emulated board for \"bench line --board vm\": Debian's kernel for ARM and an\n"
    "armel Debian with the tool's own package. It is kept in ~/.cache/mftool (or\n"
    "$MFTOOL_CACHE) until what it is made from changes; a second call does nothing.\n"
    "\n"
    "Fetches 120 MB from Debian's mirror (or $MFTOOL_MIRROR), and the sysroot that the\n"
    "package is built against if there is none. Needs no root; about ten minutes once.\n"
    "\n"
    "Exit status: 0 the board is there, 1 a step failed and has left its log, 2 the command\n"
    "line is wrong, 4 it cannot be made here.";

} // namespace

int runBoardCommand(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String(Description));
    const QCommandLineOption package(
        QStringLiteral("package"),
        QStringLiteral("The tool's package for armel (default: built from this source tree)."),
        QStringLiteral("file"));
    const QCommandLineOption where(QStringLiteral("where"),
                                   QStringLiteral("Only say which folder it is in."));
    parser.addOptions({package, where});
    int status = BenchExit::Good;
    if (!parseCommand(parser, arguments, &status))
        return status;
    const QString name = arguments.first();
    if (!parser.positionalArguments().isEmpty())
        return complain(name, QStringLiteral("no argument is wanted; see --help"),
                        BenchExit::Usage);

    if (!parser.isSet(where)) {
        switch (BoardImage::make(parser.value(package))) {
        case BoardImage::Good:
            break;
        case BoardImage::Failed:
            return BenchExit::Failed;
        case BoardImage::Impossible:
            return BenchExit::Unable;
        }
    }
    QString error;
    const QString folder = BoardImage::find(parser.value(package), &error);
    if (folder.isEmpty())
        return complain(name, error, BenchExit::Unable);
    std::printf("%s\n", qPrintable(folder));
    return BenchExit::Good;
}
