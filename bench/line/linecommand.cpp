#include "bench/line/linecommand.h"

#include "bench/common/command.h"
#include "bench/line/fault.h"
#include "bench/line/linerun.h"
#include "bench/line/operatordesk.h"
#include "bench/station/station.h"

#include <QSysInfo>

#include <csignal>

#include <unistd.h>

namespace
{

const char Description[] =
    "Runs PLAN, a test plan (docs/line.md), on a virtual keypad, on several of them, or on\n"
    "real units at a serial port, where the operator is asked to act and to look.\n"
    "\n"
    "Leaves record.json, junit.xml, report.html, the transcript, the tool's log and pictures\n"
    "in OUT/<time>/, for several units in a folder each.\n"
    "\n"
    "Exit status: 0 all units passed, 1 one failed, 2 the command line or the plan is wrong,\n"
    "3 a unit or the operator did not answer in time, 4 a unit could not be tested.\n"
    "\n"
    "Faults:\n";

volatile int interrupted = 0;

void interrupt(int signalNumber)
{
    interrupted = 1;
    // The second time nobody wants to wait for the record.
    std::signal(signalNumber, SIG_DFL);
}

QCommandLineOption option(const char *name, const char *text, const char *value = "",
                          const QString &otherwise = QString())
{
    return QCommandLineOption(QLatin1String(name), QLatin1String(text), QLatin1String(value),
                              otherwise);
}

struct Choices {
    QCommandLineOption port = option("port", "Serial port with a real unit.", "device");
    QCommandLineOption baud =
        option("baud", "Speed of the port (default 115200).", "rate", QStringLiteral("115200"));
    QCommandLineOption units =
        option("units", "How many units, one after the other.", "n", QStringLiteral("1"));
    QCommandLineOption fault =
        option("fault", "Fault of a virtual unit, of all or of that number; can be repeated.",
               "name[:unit]");
    QCommandLineOption serial = option(
        "serial-number", "Of the first unit; its last digits count up with the units.", "text");
    QCommandLineOption station =
        option("station", "Name of this station (default: this machine's).", "text",
               QSysInfo::machineHostName());
    QCommandLineOption out = option("out", "Folder for the records (default bench-out).", "dir",
                                    QStringLiteral("bench-out"));
    QCommandLineOption display =
        option("display", "X display to show virtual keypads on (default: an Xvfb).", "name");
    QCommandLineOption flash =
        option("flash-seconds", "How long a virtual keypad flashes (default 8).", "s",
               QStringLiteral("8"));
    QCommandLineOption pace =
        option("pace", "Pause after each step, in milliseconds (default 150).", "ms",
               QStringLiteral("150"));
    QCommandLineOption check = option("check", "Only read the plan and say whether it is right.");
};

/// A number from @p least on; refused with *error otherwise.
double number(const QCommandLineParser &parser, const QCommandLineOption &option, double least,
              QString *error)
{
    bool isNumber = false;
    const double value = parser.value(option).toDouble(&isNumber);
    if ((!isNumber || value < least) && error->isEmpty())
        *error =
            QStringLiteral("--%1 takes a number from %2").arg(option.names().first()).arg(least);
    return value;
}

void readFaults(const QStringList &texts, LineOptions *options, QString *error)
{
    for (const QString &text : texts) {
        const QStringList parts = text.split(QLatin1Char(':'));
        const Fault *fault = Fault::byName(parts.first());
        bool isNumber = true;
        const int unit = parts.size() > 1 ? parts.at(1).toInt(&isNumber) : 0;
        if (!fault)
            *error = QStringLiteral("there is no fault \"%1\"; see --help").arg(parts.first());
        else if (parts.size() > 2 || !isNumber || unit < 0 || unit > options->units)
            *error = QStringLiteral("--fault %1: there is no such unit").arg(text);
        else
            options->faults[unit].append(fault);
    }
}

LineOptions readOptions(const QCommandLineParser &parser, const Choices &choices, QString *error)
{
    LineOptions options;
    options.port = parser.value(choices.port);
    options.baudRate = static_cast<int>(number(parser, choices.baud, 1200, error));
    if (error->isEmpty() && !Station::isBaudRate(options.baudRate))
        *error = QStringLiteral("--baud: %1 is no standard baud rate").arg(options.baudRate);
    options.units = static_cast<int>(number(parser, choices.units, 1, error));
    options.serialNumber = parser.value(choices.serial);
    options.station = parser.value(choices.station);
    options.outDir = parser.value(choices.out);
    options.flashSeconds = number(parser, choices.flash, 0, error);
    options.paceMs = static_cast<int>(number(parser, choices.pace, 0, error));
    options.display.kind = KeypadDisplay::Xvfb;
    if (parser.isSet(choices.display)) {
        options.display.kind = KeypadDisplay::Existing;
        options.display.name = parser.value(choices.display);
    }
    options.interrupted = &interrupted;
    readFaults(parser.values(choices.fault), &options, error);
    if (!options.port.isEmpty() && !options.faults.isEmpty())
        *error = QStringLiteral("a real unit has the faults it has: --port and --fault exclude "
                                "each other");
    return options;
}

} // namespace

int runLineCommand(const QStringList &arguments)
{
    const Choices choices;
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String(Description) + Fault::help());
    parser.addOptions({choices.port, choices.baud, choices.units, choices.fault, choices.serial,
                       choices.station, choices.out, choices.display, choices.flash, choices.pace,
                       choices.check});
    parser.addPositionalArgument(QStringLiteral("plan"), QStringLiteral("The plan, a JSON file."));
    int status = BenchExit::Good;
    if (!parseCommand(parser, arguments, &status))
        return status;

    const QString name = arguments.first();
    QString error;
    const LineOptions options = readOptions(parser, choices, &error);
    if (parser.positionalArguments().size() != 1)
        error = QStringLiteral("one plan is wanted; see --help");
    std::optional<Plan> plan;
    if (error.isEmpty())
        plan = Plan::load(parser.positionalArguments().first(), &error);
    if (!plan)
        return complain(name, error, BenchExit::Usage);
    if (parser.isSet(choices.check)) {
        std::printf("%s: %d steps\n", qPrintable(plan->file), static_cast<int>(plan->steps.size()));
        return BenchExit::Good;
    }

    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    Console console(stdout, Console::isTerminal(stdout));
    OperatorDesk desk(STDIN_FILENO, stdout, &interrupted);
    const Outcome outcome = LineRun(*plan, options, &console, &desk).run(&error);
    if (!error.isEmpty())
        complain(name, error, BenchExit::Unable);
    return exitStatus(outcome);
}
