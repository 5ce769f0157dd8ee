#include "bench/line/linecommand.h"

#include "bench/board/boardimage.h"
#include "bench/common/command.h"
#include "bench/keypad/spawn.h"
#include "bench/line/console.h"
#include "bench/line/fault.h"
#include "bench/line/floorconsole.h"
#include "bench/line/floorjson.h"
#include "bench/line/floorrun.h"
#include "bench/line/jsondesk.h"
#include "bench/line/jsonwatcher.h"
#include "bench/line/linerun.h"
#include "bench/line/terminaldesk.h"
#include "bench/line/vmfault.h"
#include "bench/records/store.h"
#include "bench/station/station.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSysInfo>

#include <algorithm>

#include <sys/prctl.h>
#include <unistd.h>

namespace
{

const char Description[] =
    "Runs PLAN, a test plan (docs/line.md), on a virtual keypad, on several of them, or on\n"
    "real units at a serial port, where the operator is asked to act and to look.\n"
    "\n"
    "Leaves record.json, junit.xml, report.html, the transcript, the tool's log and pictures\n"
    "in OUT/<time>/, with several units in a folder for each of them, and takes the record to\n"
    "the store of all records.\n"
    "\n"
    "Exit status: 0 all units passed, 1 one failed, 2 the command line or the plan is wrong,\n"
    "3 a unit or the operator did not answer in time, 4 a unit could not be tested, or a record\n"
    "could not be written.\n"
    "\n"
    "Faults:\n";

QCommandLineOption option(const char *name, const char *text, const char *value = "",
                          const QString &otherwise = QString())
{
    return QCommandLineOption(QLatin1String(name), QLatin1String(text), QLatin1String(value),
                              otherwise);
}

QCommandLineOption hidden(const char *name, const char *value = "")
{
    QCommandLineOption made = option(name, "", value);
    made.setFlags(QCommandLineOption::HiddenFromHelp);
    return made;
}

struct Choices {
    QCommandLineOption port =
        option("port",
               "Serial port with a real unit; repeated, units at all of them are "
               "tested side by side.",
               "device");
    QCommandLineOption board =
        option("board", "\"vm\": on emulated boards with a real kernel; \"bench board\" makes one.",
               "kind");
    QCommandLineOption line =
        option("line", "Serial line of an emulated board: \"usb\" or \"uart\" (default usb).",
               "kind", QStringLiteral("usb"));
    QCommandLineOption package =
        option("package", "The tool's package for armel that the board was made with.", "file");
    QCommandLineOption baud =
        option("baud", "Speed of the port (default 115200).", "rate", QStringLiteral("115200"));
    QCommandLineOption units =
        option("units", "How many units (default: one a fixture).", "n", QStringLiteral("1"));
    QCommandLineOption parallel =
        option("parallel", "How many virtual units side by side.", "n", QStringLiteral("1"));
    QCommandLineOption fault =
        option("fault", "Gives all virtual units a fault, or only that one; can be repeated.",
               "name[:unit]");
    QCommandLineOption serial =
        option("serial-number", "Of the unit; \"ask\": the operator types or scans each.", "text");
    QCommandLineOption countUp =
        option("count-up", "The last digits of --serial-number count up with the units.");
    QCommandLineOption operatorName = option("operator", "Who tests, for the records.", "name");
    QCommandLineOption store = option("store",
                                      "Store of all records, as \"bench records\" takes it, or "
                                      "\"none\" (default OUT/records.sqlite).",
                                      "place");
    QCommandLineOption after =
        option("after", "Program that is run after each unit with its record's path.", "program");
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
        option("pace", "Pause after each step, in milliseconds (default 0, with --display 150).",
               "ms", QStringLiteral("0"));
    QCommandLineOption set =
        option("set", "Sets a variable of the plan; can be repeated.", "name=value");
    QCommandLineOption variant =
        option("variant", "JSON file with variables of the plan; its name is recorded.", "file");
    QCommandLineOption fixture = option(
        "fixture",
        "Name of the fixture, of several in the order of their ports (default: the port).", "name");
    QCommandLineOption json =
        option("json", "For another program: progress and answers as JSON lines.");
    QCommandLineOption screen =
        option("screen", "Shows the run, and asks the operator, on the whole display of this PC.");
    // What the screen tells the line that it starts.
    QCommandLineOption screened = hidden("screened");
    // What the process that runs the batch tells the process of one unit.
    QCommandLineOption batch = hidden("batch", "dir");
    QCommandLineOption unit = hidden("unit", "n");
    QCommandLineOption connect = hidden("connect");
    QCommandLineOption check = option("check", "Only read the plan and say whether it is right.");
};

const int MostUnits = 9999;
const int WatchedPaceMs = 150;
const int MostFixtures = 99;
const int MostPaceMs = 60000;
const int MostBaud = 4000000;
const int MostFlashSeconds = 3600;

/// Notes only the first mistake; others may follow from it.
void refuse(const QString &reason, QString *error)
{
    if (error->isEmpty())
        *error = reason;
}

/// The value of an option that names something. An empty one, as from a script's variable
/// that was never set, is a mistake and not the same as none.
QString text(const QCommandLineParser &parser, const QCommandLineOption &option, QString *error)
{
    if (parser.isSet(option) && parser.values(option).contains(QString()))
        refuse(QStringLiteral("--%1 takes a %2, not an empty text")
                   .arg(option.names().first(), option.valueName()),
               error);
    return parser.value(option);
}

/// A number within its bounds, with a fraction only if @p pattern has one; refused with
/// *error otherwise.
double number(const QCommandLineParser &parser, const QCommandLineOption &option,
              const QRegularExpression &pattern, double least, double most, const char *kind,
              QString *error)
{
    const QString value = parser.value(option);
    const double number = value.toDouble();
    if (!pattern.match(value).hasMatch() || number < least || number > most)
        refuse(QStringLiteral("--%1 takes a %2 from %3 to %4")
                   .arg(option.names().first(), QLatin1String(kind))
                   .arg(least)
                   .arg(most, 0, 'f', 0),
               error);
    return number;
}

int integer(const QCommandLineParser &parser, const QCommandLineOption &option, int least, int most,
            QString *error)
{
    static const QRegularExpression pattern(QStringLiteral("\\A[0-9]+\\z"));
    const double value = number(parser, option, pattern, least, most, "whole number", error);
    return error->isEmpty() ? static_cast<int>(value) : 0;
}

double decimal(const QCommandLineParser &parser, const QCommandLineOption &option, double least,
               double most, QString *error)
{
    static const QRegularExpression pattern(QStringLiteral("\\A[0-9]+(\\.[0-9]+)?\\z"));
    return number(parser, option, pattern, least, most, "number", error);
}

void readFaults(const QStringList &texts, LineOptions *options, QString *error)
{
    static const QRegularExpression form(QStringLiteral("\\A([^:]*)(?::([0-9]{1,9}))?\\z"));
    for (const QString &text : texts) {
        const QRegularExpressionMatch match = form.match(text);
        const Fault *fault = Fault::byName(text.section(QLatin1Char(':'), 0, 0));
        const bool isOfOne = !match.captured(2).isNull();
        const int unit = match.captured(2).toInt();
        if (!fault)
            refuse(QStringLiteral("there is no fault \"%1\"; see --help")
                       .arg(text.section(QLatin1Char(':'), 0, 0)),
                   error);
        else if (!match.hasMatch() || (isOfOne && (unit < 1 || unit > options->units)))
            refuse(QStringLiteral("--fault %1: there is no such unit; they count from 1 to %2")
                       .arg(text)
                       .arg(options->units),
                   error);
        else
            options->faults[unit].append(fault);
    }
}

/// Refuses an option that is for another kind of unit: the person meant that one.
void refuseWithout(const char *other, const QCommandLineParser &parser,
                   const QCommandLineOption &option, QString *error)
{
    if (parser.isSet(option))
        refuse(QStringLiteral("--%1 needs --%2").arg(option.names().first(), QLatin1String(other)),
               error);
}

/// The emulated board, and whether it can have the faults.
void readBoard(const QCommandLineParser &parser, const Choices &choices, LineOptions *options,
               QString *error)
{
    const QString kind = text(parser, choices.board, error);
    const QString line = text(parser, choices.line, error);
    if (!parser.isSet(choices.board)) {
        for (const QCommandLineOption *option : {&choices.line, &choices.package})
            refuseWithout("board vm", parser, *option, error);
        return;
    }
    if (kind != QLatin1String("vm"))
        refuse(QStringLiteral("--board takes \"vm\""), error);
    if (!options->port.isEmpty())
        refuse(QStringLiteral("--port and --board cannot be used together"), error);
    if (line != QLatin1String("usb") && line != QLatin1String("uart"))
        refuse(QStringLiteral("--line takes \"usb\" or \"uart\""), error);
    for (const QList<const Fault *> &faults : qAsConst(options->faults)) {
        for (const Fault *fault : faults) {
            const VmFault &played = VmFault::byName(QLatin1String(fault->name));
            if (played.refused)
                refuse(QStringLiteral("--fault %1 with --board: %2")
                           .arg(QLatin1String(fault->name), QLatin1String(played.refused)),
                       error);
        }
    }
    options->board = VmBoardOptions();
    options->board->line =
        line == QLatin1String("uart") ? VmBoardOptions::Uart : VmBoardOptions::Usb;
}

/// Variables that are set one by one win over the variant.
PlanSettings readSettings(const QCommandLineParser &parser, const Choices &choices, QString *error)
{
    PlanSettings settings;
    const QString variant = text(parser, choices.variant, error);
    if (error->isEmpty() && !variant.isEmpty())
        settings.load(variant, error);
    const QStringList assignments = parser.values(choices.set);
    for (const QString &assignment : assignments) {
        if (error->isEmpty())
            settings.set(assignment, error);
    }
    return settings;
}

void readSerialNumber(const QCommandLineParser &parser, const Choices &choices,
                      LineOptions *options, QString *error)
{
    options->serialNumber = text(parser, choices.serial, error);
    options->countsUp = parser.isSet(choices.countUp);
    options->asksSerialNumber = options->serialNumber == QLatin1String("ask");
    if (options->countsUp && (options->serialNumber.isEmpty() || options->asksSerialNumber))
        refuse(QStringLiteral("--count-up needs the --serial-number of the first unit"), error);
    if (options->asksSerialNumber)
        options->serialNumber.clear();
    else if (options->units > 1 && !options->serialNumber.isEmpty() && !options->countsUp)
        refuse(QStringLiteral("--serial-number names one unit; with --units it takes \"ask\", or "
                              "goes with --count-up"),
               error);
}

/// Where all records go; empty for nowhere.
QString readStore(const QCommandLineParser &parser, const Choices &choices, const QString &outDir,
                  QString *error)
{
    const QString place = text(parser, choices.store, error);
    if (!parser.isSet(choices.store))
        return outDir + QStringLiteral("/records.sqlite");
    if (place == QLatin1String("none"))
        return QString();
    QString why;
    if (!Store::isPlace(place, &why))
        refuse(why, error);
    return place;
}

/// Why the plan does not allow the serial numbers; they are checked before anything is
/// tested.
QString wrongSerialNumber(const Plan &plan, const LineOptions &options)
{
    if (options.asksSerialNumber || plan.serialNumber.pattern().isEmpty())
        return QString();
    if (options.serialNumber.isEmpty())
        return QStringLiteral(
            "the plan wants serial numbers: --serial-number, with one or \"ask\"");
    for (int by = 0; by < (options.countsUp ? options.units : 1); ++by) {
        const QString number = LineRun::countedUp(options.serialNumber, by);
        if (!plan.takesSerialNumber(number))
            return QStringLiteral("--serial-number: %1 is not one of this plan").arg(number);
    }
    return QString();
}

int fixtureCount(const QCommandLineParser &parser, const Choices &choices, QString *error)
{
    return std::max({1, integer(parser, choices.parallel, 1, MostFixtures, error),
                     static_cast<int>(parser.values(choices.port).size())});
}

std::optional<BatchPart> readPart(const QCommandLineParser &parser, const Choices &choices,
                                  int units, QString *error)
{
    if (!parser.isSet(choices.unit))
        return std::nullopt;
    BatchPart part;
    part.folder = text(parser, choices.batch, error);
    part.unit = integer(parser, choices.unit, 1, units, error);
    part.connects = parser.isSet(choices.connect);
    return part;
}

/// The options of this process that are passed on to that of a unit; the others differ
/// for each.
QStringList passedOn(const QCommandLineParser &parser, const Choices &choices, int units)
{
    QStringList arguments = {QStringLiteral("line"), QStringLiteral("--units=%1").arg(units)};
    QStringList done = choices.units.names();
    for (const QCommandLineOption &own :
         {choices.port, choices.parallel, choices.fixture, choices.json, choices.screen,
          choices.screened, choices.check})
        done += own.names();
    const QStringList names = parser.optionNames();
    for (const QString &name : names) {
        if (done.contains(name))
            continue;
        done.append(name);
        const QStringList values = parser.values(name);
        if (values.isEmpty())
            arguments.append(QStringLiteral("--") + name);
        for (const QString &value : values)
            arguments.append(QStringLiteral("--%1=%2").arg(name, value));
    }
    return arguments;
}

QString usualName(const QString &port, int number)
{
    const QString devices = QStringLiteral("/dev/");
    if (port.isEmpty())
        return QStringLiteral("keypad %1").arg(number);
    return port.startsWith(devices) ? port.mid(devices.size()) : port;
}

/// The fixtures, if there are several.
std::optional<FloorOptions> readFloor(const QCommandLineParser &parser, const Choices &choices,
                                      const LineOptions &options, QString *error)
{
    FloorOptions floor;
    floor.ports = parser.values(choices.port);
    floor.fixtures = parser.values(choices.fixture);
    const bool isParallel =
        parser.value(choices.parallel) != choices.parallel.defaultValues().value(0);
    if (isParallel && !floor.ports.isEmpty())
        refuse(QStringLiteral("--port and --parallel exclude each other"), error);
    if (isParallel && parser.isSet(choices.display))
        refuse(QStringLiteral("one display shows one keypad: --display and --parallel exclude "
                              "each other"),
               error);
    if (floor.ports.removeDuplicates() > 0)
        refuse(QStringLiteral("a port is there more than once"), error);
    const int count = fixtureCount(parser, choices, error);
    if (floor.fixtures.removeDuplicates() > 0 ||
        (!floor.fixtures.isEmpty() && floor.fixtures.size() != count))
        refuse(
            QStringLiteral("--fixture takes a name of its own for each of %1 fixtures").arg(count),
            error);
    if (count <= 1 || options.part)
        return std::nullopt;
    for (int i = static_cast<int>(floor.fixtures.size()); i < count; ++i)
        floor.fixtures.append(usualName(floor.ports.value(i), i + 1));
    floor.arguments = passedOn(parser, choices, options.units);
    floor.planFile = parser.positionalArguments().value(0);
    return floor;
}

LineOptions readOptions(const QCommandLineParser &parser, const Choices &choices, QString *error)
{
    LineOptions options;
    options.port = text(parser, choices.port, error);
    options.baudRate = integer(parser, choices.baud, 1, MostBaud, error);
    if (error->isEmpty() && !Station::isBaudRate(options.baudRate))
        *error = QStringLiteral("--baud: %1 is not a standard baud rate").arg(options.baudRate);
    options.units = integer(parser, choices.units, 1, MostUnits, error);
    if (!parser.isSet(choices.units))
        options.units = fixtureCount(parser, choices, error);
    readSerialNumber(parser, choices, &options, error);
    options.operatorName = text(parser, choices.operatorName, error);
    options.after = text(parser, choices.after, error);
    options.station = text(parser, choices.station, error);
    options.fixture = text(parser, choices.fixture, error);
    options.part = readPart(parser, choices, options.units, error);
    options.outDir = text(parser, choices.out, error);
    options.store = readStore(parser, choices, options.outDir, error);
    options.flashSeconds = decimal(parser, choices.flash, 0, MostFlashSeconds, error);
    options.paceMs = integer(parser, choices.pace, 0, MostPaceMs, error);
    options.display.kind = KeypadDisplay::Xvfb;
    if (parser.isSet(choices.display)) {
        options.display.kind = KeypadDisplay::Existing;
        options.display.name = text(parser, choices.display, error);
        if (!parser.isSet(choices.pace)) // somebody watches
            options.paceMs = WatchedPaceMs;
    }
    text(parser, choices.fault, error);
    if (error->isEmpty())
        readFaults(parser.values(choices.fault), &options, error);
    readBoard(parser, choices, &options, error);
    if (options.port.isEmpty())
        refuseWithout("port", parser, choices.baud, error);
    const bool isVirtual = options.port.isEmpty() && !options.board;
    for (const QCommandLineOption *option : {&choices.display, &choices.flash}) {
        if (!isVirtual && parser.isSet(*option))
            refuse(
                QStringLiteral("--%1 is for virtual keypads; it cannot be used with --%2")
                    .arg(option->names().first(), QLatin1String(options.board ? "board" : "port")),
                error);
    }
    if (!options.port.isEmpty() && !options.faults.isEmpty())
        refuse(QStringLiteral("--fault is for virtual units; it cannot be used with --port"),
               error);
    return options;
}

/// @return exit status
int runForPerson(const Plan &plan, const LineOptions &options, Interrupt *interrupt, QString *error)
{
    Console console(stdout, Console::isTerminal(stdout), interrupt);
    TerminalDesk desk(STDIN_FILENO, stdout, interrupt);
    return exitStatus(LineRun(plan, options, &console, &desk).run(error));
}

/// @param fixtures  their names; none where there is only one without a name
void beginRun(JsonStream *stream, const Plan &plan, const QStringList &fixtures, int units)
{
    stream->say("run begun", {{QStringLiteral("title"), plan.title},
                              {QStringLiteral("units"), units},
                              {QStringLiteral("fixtures"), QJsonArray::fromStringList(fixtures)}});
}

int runForProgram(const Plan &plan, const LineOptions &options, Interrupt *interrupt,
                  QString *error)
{
    JsonStream stream(stdout, options.fixture, interrupt);
    if (!options.part) // who runs the batch has told it
        beginRun(&stream, plan,
                 options.fixture.isEmpty() ? QStringList() : QStringList(options.fixture),
                 options.units);
    JsonWatcher watcher(&stream);
    JsonDesk desk(STDIN_FILENO, &stream, interrupt);
    const int status = exitStatus(LineRun(plan, options, &watcher, &desk).run(error));
    stream.say("end", {{QStringLiteral("status"), status}, {QStringLiteral("error"), *error}});
    return status;
}

int runFloor(const Plan &plan, const LineOptions &options, const FloorOptions &floor, bool json,
             Interrupt *interrupt, QString *error)
{
    if (!json) {
        FloorConsole console(STDIN_FILENO, stdout, Console::isTerminal(stdout), interrupt);
        return exitStatus(FloorRun(plan, options, floor, &console).run(error));
    }
    JsonStream stream(stdout, QString(), interrupt);
    beginRun(&stream, plan, floor.fixtures, options.units);
    FloorJson program(STDIN_FILENO, &stream);
    const int status = exitStatus(FloorRun(plan, options, floor, &program).run(error));
    stream.say("end", {{QStringLiteral("status"), status}, {QStringLiteral("error"), *error}});
    return status;
}

/// Who started this process, a batch or a screen, passes on what ends its units, so signals
/// from the terminal must not reach it a second time. And it ends with who started it.
/// @param last  signal that comes when that one dies
void followStarter(int last)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, last);
}

/// When the screen dies the kernel may send the signal several times, once for each of its
/// threads. A second SIGTERM would end this process at once, a second SIGHUP does not. Under
/// nohup SIGHUP is ignored at the start; the screen's must be heard.
void followScreen()
{
    ::signal(SIGHUP, SIG_DFL);
    followStarter(SIGHUP);
}

/// The screen replaces this process and starts the line as its child: if the window or the
/// display goes away, the line is still there to end its unit.
int becomeScreen(const QStringList &arguments)
{
    const QString program = benchProgram(QStringLiteral("bench-screen"));
    const QString error =
        becomeProgram(program, QStringList{QCoreApplication::applicationFilePath()} + arguments);
    return complain(arguments.first(), QStringLiteral("%1: %2").arg(program, error),
                    BenchExit::Unable);
}

} // namespace

int runLineCommand(const QStringList &arguments)
{
    const Choices choices;
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String(Description) + Fault::help());
    parser.addOptions({choices.port,         choices.board,    choices.line,    choices.package,
                       choices.baud,         choices.units,    choices.fault,   choices.serial,
                       choices.station,      choices.out,      choices.display, choices.flash,
                       choices.pace,         choices.set,      choices.variant, choices.countUp,
                       choices.operatorName, choices.parallel, choices.fixture, choices.store,
                       choices.after,        choices.json,     choices.batch,   choices.unit,
                       choices.connect,      choices.check,    choices.screen,  choices.screened});
    parser.addPositionalArgument(QStringLiteral("plan"), QStringLiteral("The plan, a JSON file."));
    int status = BenchExit::Good;
    if (!parseCommand(parser, arguments, &status))
        return status;

    const QString name = arguments.first();
    QString error;
    LineOptions options = readOptions(parser, choices, &error);
    const std::optional<FloorOptions> floor = readFloor(parser, choices, options, &error);
    if (parser.positionalArguments().size() != 1 || parser.positionalArguments().first().isEmpty())
        error = QStringLiteral("give one plan; see --help");
    if (parser.isSet(choices.screen) && parser.isSet(choices.json))
        refuse(QStringLiteral("--screen and --json exclude each other"), &error);
    const PlanSettings settings = readSettings(parser, choices, &error);
    std::optional<Plan> plan;
    if (error.isEmpty())
        plan = Plan::load(parser.positionalArguments().first(), &error, settings);
    if (!plan)
        return complain(name, error, BenchExit::Usage);
    if (parser.isSet(choices.check)) {
        std::printf("%s: %d steps\n", qPrintable(plan->file), static_cast<int>(plan->steps.size()));
        return BenchExit::Good;
    }

    error = wrongSerialNumber(*plan, options);
    if (!error.isEmpty())
        return complain(name, error, BenchExit::Usage);
    if (floor && plan->wantsOperator && options.operatorName.isEmpty())
        return complain(name,
                        QStringLiteral("the plan wants to know who is testing: at several "
                                       "fixtures --operator says it"),
                        BenchExit::Usage);
    if (options.board)
        options.board->image = BoardImage::find(parser.value(choices.package), &error);
    if (!error.isEmpty())
        return complain(name, error, BenchExit::Unable);

    const bool isScreened = parser.isSet(choices.screened);
    if (parser.isSet(choices.screen) && !isScreened)
        return becomeScreen(arguments);
    Interrupt interrupt;
    if (options.part)
        followStarter(SIGTERM);
    if (isScreened)
        followScreen();
    interrupt.followSignals(options.part.has_value());
    options.interrupt = &interrupt;
    const bool json = parser.isSet(choices.json) || isScreened;
    const int asPlanned = floor  ? runFloor(*plan, options, *floor, json, &interrupt, &error)
                          : json ? runForProgram(*plan, options, &interrupt, &error)
                                 : runForPerson(*plan, options, &interrupt, &error);
    if (!error.isEmpty())
        complain(name, error, BenchExit::Unable);
    if (std::ferror(stdout) != 0 && !interrupt.isRaised())
        return complain(name, QStringLiteral("standard output could not be written"),
                        BenchExit::Unable);
    return asPlanned;
}
