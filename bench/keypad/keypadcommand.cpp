#include "bench/keypad/keypadcommand.h"

#include "bench/common/command.h"
#include "bench/keypad/keypadconsole.h"
#include "bench/keypad/keypadsession.h"
#include "bench/keypad/virtualkeypad.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <cmath>

namespace
{

const char description[] =
    "Runs the tool on a virtual keypad: a board made of a pseudo terminal, a file system\n"
    "that behaves as the kernel's /sys, and stand-ins for the flashing programs. Nothing\n"
    "of the PC is changed and nothing is left behind. The first line printed is\n"
    "\"line PTY\": what a test station opens, for example with \"bench station PTY\".\n"
    "\n"
    "The tool is shown on the display there is (DISPLAY), else on an Xvfb of its own.\n"
    "Works for root, and for others where the kernel allows user namespaces.\n"
    "\n"
    "Exit status: 0 the tool ended with 0, or \"quit\" was given, 1 it ended otherwise, 2 wrong\n"
    "usage, 4 a virtual keypad cannot run here.";

struct Choices {
    QCommandLineOption tool{QStringLiteral("tool"),
                            QStringLiteral("Program to run instead of this build's mftool."),
                            QStringLiteral("program")};
    QCommandLineOption display{QStringLiteral("display"),
                               QStringLiteral("X display to show the tool on."),
                               QStringLiteral("name")};
    QCommandLineOption headless{QStringLiteral("headless"),
                                QStringLiteral("An Xvfb of 800 by 480 even where there is a "
                                               "display.")};
    QCommandLineOption offscreen{QStringLiteral("offscreen"),
                                 QStringLiteral("Nothing to look at.")};
    QCommandLineOption vnc{QStringLiteral("vnc"),
                           QStringLiteral("Let a remote viewer look and touch, through this port "
                                          "(5900 is usual)."),
                           QStringLiteral("port")};
    QCommandLineOption faketime{
        QStringLiteral("faketime"),
        QStringLiteral("Speed of the tool's time, \"x60\" for sixty times."),
        QStringLiteral("speed")};
    QCommandLineOption wrapper{QStringLiteral("wrapper"),
                               QStringLiteral("Program with arguments to run the tool under, for "
                                              "example valgrind."),
                               QStringLiteral("command")};
    QCommandLineOption environment{QStringLiteral("env"),
                                   QStringLiteral("Variable for the tool; can be repeated."),
                                   QStringLiteral("name=value")};
    QCommandLineOption without{QStringLiteral("without"),
                               QStringLiteral("Something the board lacks, for example "
                                              "/dev/ttySP0 or /sys/class/leds/ready; can be "
                                              "repeated."),
                               QStringLiteral("path")};
    QCommandLineOption seconds{QStringLiteral("flash-seconds"),
                               QStringLiteral("How long each flashing program takes (default 10)."),
                               QStringLiteral("s"), QStringLiteral("10")};
    QCommandLineOption first{QStringLiteral("do"),
                             QStringLiteral("Command to carry out before the tool starts; can be "
                                            "repeated."),
                             QStringLiteral("command")};
    QCommandLineOption off{QStringLiteral("off"),
                           QStringLiteral("Start switched off: \"power on\" on standard input "
                                          "switches the keypad on, whenever its tool is not "
                                          "running.")};
    QCommandLineOption noInput{QStringLiteral("no-input"),
                               QStringLiteral("Read no commands: run until the tool ends or the "
                                              "bench is killed.")};
};

bool readDisplay(const QCommandLineParser &parser, const Choices &choices, KeypadDisplay *display)
{
    display->kind = KeypadDisplay::Existing;
    display->name = parser.value(choices.display);
    if (parser.isSet(choices.vnc)) {
        bool number = false;
        display->kind = KeypadDisplay::Vnc;
        display->port = parser.value(choices.vnc).toInt(&number);
        return number && display->port > 0 && display->port < 65536;
    }
    if (parser.isSet(choices.offscreen)) {
        display->kind = KeypadDisplay::Offscreen;
        return true;
    }
    if (parser.isSet(choices.headless) ||
        (display->name.isEmpty() && qEnvironmentVariableIsEmpty("DISPLAY")))
        display->kind = KeypadDisplay::Xvfb;
    return true;
}

bool readEnvironment(const QStringList &settings, QMap<QString, QString> *environment)
{
    for (const QString &setting : settings) {
        const int equals = int(setting.indexOf(QLatin1Char('=')));
        if (equals < 1)
            return false;
        environment->insert(setting.left(equals), setting.mid(equals + 1));
    }
    return true;
}

/// The first of @p options with an empty text, as from a script's variable that was never
/// set; null when there is none. Whoever gave it did not want the default.
const QCommandLineOption *emptyOption(const QCommandLineParser &parser,
                                      const QList<const QCommandLineOption *> &options)
{
    for (const QCommandLineOption *option : options) {
        if (parser.values(*option).contains(QString()) && parser.isSet(*option))
            return option;
    }
    return nullptr;
}

/// An argument other than an option, before "--"; empty when there is none.
QString strayArgument(const QCommandLineParser &parser, const QStringList &arguments)
{
    const int separator = int(arguments.indexOf(QStringLiteral("--")));
    const int ofTool = separator < 0 ? 0 : int(arguments.size()) - separator - 1;
    const QStringList all = parser.positionalArguments();
    return all.size() > ofTool ? all.first() : QString();
}

} // namespace

int runKeypadCommand(const QStringList &arguments)
{
    const Choices choices;
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QLatin1String(description) +
        QLatin1String("\n\nCommands, one a line on standard input:\n") + KeypadConsole::help());
    parser.addOptions({choices.tool, choices.display, choices.headless, choices.offscreen,
                       choices.vnc, choices.faketime, choices.wrapper, choices.environment,
                       choices.without, choices.seconds, choices.first, choices.off,
                       choices.noInput});
    parser.addPositionalArgument(QStringLiteral("arguments"),
                                 QStringLiteral("Of the tool, after \"--\"."),
                                 QStringLiteral("[-- arguments]"));
    int status = BenchExit::Good;
    if (!parseCommand(parser, arguments, &status))
        return status;

    const QString name = arguments.first();
    const QString stray = strayArgument(parser, arguments);
    if (!stray.isEmpty())
        return complain(
            name,
            QStringLiteral("unexpected \"%1\"; the tool's own arguments stand after --").arg(stray),
            BenchExit::Usage);
    const QCommandLineOption *empty =
        emptyOption(parser, {&choices.tool, &choices.display, &choices.wrapper, &choices.without});
    if (empty)
        return complain(name,
                        QStringLiteral("--%1 takes a %2, not an empty text")
                            .arg(empty->names().first(), empty->valueName()),
                        BenchExit::Usage);
    KeypadOptions options;
    options.tool = parser.value(choices.tool);
    options.arguments = parser.positionalArguments();
    options.faketime = parser.value(choices.faketime);
    options.wrapper = parser.value(choices.wrapper).split(QLatin1Char(' '));
    options.wrapper.removeAll(QString());
    options.without = parser.values(choices.without);
    for (const QString &path : qAsConst(options.without)) {
        if (!path.startsWith(QLatin1Char('/')))
            return complain(name,
                            QStringLiteral("--without takes a whole path, beginning with /, not "
                                           "\"%1\"")
                                .arg(path),
                            BenchExit::Usage);
    }
    if (!readDisplay(parser, choices, &options.display))
        return complain(name, QStringLiteral("--vnc takes a port"), BenchExit::Usage);
    static const QRegularExpression speed(QStringLiteral("^x[0-9]*\\.?[0-9]+$"));
    if (parser.isSet(choices.faketime) && !speed.match(options.faketime).hasMatch())
        return complain(name, QStringLiteral("--faketime takes a speed such as x60"),
                        BenchExit::Usage);
    if (!readEnvironment(parser.values(choices.environment), &options.environment))
        return complain(name, QStringLiteral("--env takes name=value"), BenchExit::Usage);

    KeypadSession session(options);
    bool number = false;
    session.flashSeconds = parser.value(choices.seconds).toDouble(&number);
    if (!number || !std::isfinite(session.flashSeconds) || session.flashSeconds < 0)
        return complain(name, QStringLiteral("--flash-seconds takes a number from 0"),
                        BenchExit::Usage);
    session.firstCommands = parser.values(choices.first);
    for (const QString &command : qAsConst(session.firstCommands)) {
        const QString wrong = KeypadConsole::misspelt(command);
        if (!wrong.isEmpty())
            return complain(name, QStringLiteral("--do \"%1\": %2").arg(command, wrong),
                            BenchExit::Usage);
    }
    session.readsInput = !parser.isSet(choices.noInput);
    session.startsOff = parser.isSet(choices.off);
    if (session.startsOff && !session.readsInput)
        return complain(name,
                        QStringLiteral("--off waits for \"power on\" from standard input, which "
                                       "--no-input does not read"),
                        BenchExit::Usage);
    QString reason;
    if (!session.start(&reason))
        return complain(name, reason, BenchExit::Unable);
    return QCoreApplication::exec();
}
