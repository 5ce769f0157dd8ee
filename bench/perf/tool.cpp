// Measures the tool as a whole, each figure together with its floor in the same run, and
// prints a table. It passes no judgement: too much depends on the machine.
//
//     perf-tool [roundtrip|start|output|idle|instructions ...] [--rounds N]
#include "app/mftool.h" // for its form
#include "bench/keypad/spawn.h"
#include "bench/perf/measured.h"
#include "bench/station/frame.h"
#include "bench/station/messages.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#include <cstdio>

namespace
{

const int exchanges = 2000;
const int idleSeconds = 10;
const int outputMegabytes = 20;

QByteArray requestOf(quint16 type, const QByteArray &data)
{
    return wire::buildFrame(wire::Sender::Station, type, data) + "\r\n";
}

const QByteArray echo = requestOf(wire::EchoRequest, "0064");

void printHead()
{
    std::printf("| what | tool | floor | ratio | target |\n|---|---|---|---|---|\n");
}

/// One row: medians, and the median of the ratios of each pair of rounds.
void printRow(const char *what, const char *unit, const std::vector<double> &tool,
              const std::vector<double> &floor, const char *target)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < tool.size() && i < floor.size(); ++i)
        ratios.push_back(tool[i] / floor[i]);
    std::printf("| %s | %.4g %s | %.4g %s | %.2f | %s |\n", what, median(tool), unit, median(floor),
                unit, median(ratios), target);
    std::fflush(stdout);
}

double roundTripOf(Subject *subject)
{
    std::vector<double> times;
    for (int i = 0; i < exchanges; ++i)
        times.push_back(subject->exchange(echo));
    return median(times);
}

/// Both run all the time and are asked in turn, so that a slow minute hits both.
void measureRoundTrip(int rounds)
{
    Subject tool(QStringLiteral("mftool"));
    Subject floor(QStringLiteral("perf-responder"));
    tool.start();
    floor.start();
    std::vector<double> ofTool;
    std::vector<double> ofFloor;
    for (int round = 0; round < rounds; ++round) {
        ofTool.push_back(roundTripOf(&tool));
        ofFloor.push_back(roundTripOf(&floor));
    }
    tool.finish();
    floor.finish();
    printRow("request to reply (echo)", "us", ofTool, ofFloor, "1.5");
}

/// The main screen's widgets, the logo's label among them.
int widgetCount()
{
    QWidget screen;
    Ui::mftoolClass form;
    form.setupUi(&screen);
    return 2 + static_cast<int>(screen.findChildren<QWidget *>().size());
}

struct Started {
    std::vector<double> start, rss, unique;

    void add(const QString &program, const QStringList &arguments)
    {
        Subject subject(program, arguments);
        start.push_back(subject.start());
        QThread::msleep(500); // the first picture is drawn
        const QMap<QString, double> memory = memoryOf(subject.pid());
        rss.push_back(memory.value(QStringLiteral("Rss")) / 1024);
        unique.push_back(memory.value(QStringLiteral("Unique")) / 1024);
    }
};

void measureStart(int rounds)
{
    Started tool;
    Started floor;
    Started sameScreen;
    for (int round = 0; round < rounds; ++round) {
        tool.add(QStringLiteral("mftool"), {});
        floor.add(QStringLiteral("perf-barewidgets"), {QString::number(widgetCount())});
        sameScreen.add(QStringLiteral("perf-barewidgets"),
                       {QStringLiteral("/home/default/tarnwick.png")});
    }
    printRow("start to ready frame", "ms", tool.start, floor.start, "1.15");
    printRow("the same, floor with the tool's screen and logo", "ms", tool.start, sameScreen.start,
             "");
    printRow("resident memory", "MiB", tool.rss, floor.rss, "1.10");
    printRow("the same, floor with the tool's screen and logo", "MiB", tool.rss, sameScreen.rss,
             "");
    printRow("memory shared with nobody", "MiB", tool.unique, floor.unique, "");
    printRow("the same, floor with the tool's screen and logo", "MiB", tool.unique,
             sameScreen.unique, "");
}

void measureOutput(int rounds)
{
    QProcess process;
    process.start(benchProgram(QStringLiteral("perf-output")),
                  {QString::number(outputMegabytes), QString::number(rounds)});
    process.waitForFinished(-1);
    std::vector<double> tool[2];
    std::vector<double> drain[2];
    const QList<QByteArray> lines = process.readAllStandardOutput().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> words = line.split(' ');
        for (int i = 0; words.size() == 3 && i < 2; ++i)
            (words.at(0) == "tool" ? tool : drain)[i].push_back(words.at(1 + i).toDouble());
    }
    printRow("tool output taken in", "MB/s", tool[0], drain[0], "20 MB/s");
    printRow("the same a second of processor time", "MB/s", tool[1], drain[1], "");
}

/// Ten seconds after both have come to rest.
void measureIdle()
{
    Subject tool(QStringLiteral("mftool"));
    Subject floor(QStringLiteral("perf-barewidgets"), {QString::number(widgetCount())});
    tool.start();
    tool.exchange(echo); // from now on the next timer is ten minutes away
    floor.start();
    QThread::sleep(2);
    const qint64 toolBefore = contextSwitches(tool.pid());
    const qint64 floorBefore = contextSwitches(floor.pid());
    QThread::sleep(idleSeconds);
    const qint64 ofTool = contextSwitches(tool.pid()) - toolBefore;
    const qint64 ofFloor = contextSwitches(floor.pid()) - floorBefore;
    std::printf("| wake-ups in %d idle seconds | %lld | %lld | | 0 |\n", idleSeconds,
                static_cast<long long>(ofTool), static_cast<long long>(ofFloor));
    tool.finish();
}

/// All instructions of a whole run of @p program with @p count requests.
double instructionsOf(const QString &program, int count)
{
    Subject subject(program, QStringList(),
                    {QStandardPaths::findExecutable(QStringLiteral("valgrind")),
                     QStringLiteral("--tool=callgrind"),
                     QStringLiteral("--callgrind-out-file=/tmp/instructions")});
    subject.start();
    for (int i = 0; i < count; ++i)
        subject.exchange(echo);
    subject.finish();
    const QList<QByteArray> lines =
        subject.keypad().readFile(QStringLiteral("/tmp/instructions")).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("totals: ") || line.startsWith("summary: "))
            return line.mid(line.indexOf(' ') + 1).trimmed().toDouble();
    }
    return 0;
}

void measureInstructions()
{
    const int few = 100;
    const int many = 1100;
    std::vector<double> perRequest[2];
    const char *const programs[] = {"mftool", "perf-responder"};
    for (int i = 0; i < 2; ++i) {
        const QString program = QLatin1String(programs[i]);
        perRequest[i].push_back((instructionsOf(program, many) - instructionsOf(program, few)) /
                                (many - few));
    }
    printRow("instructions a request (echo)", "", perRequest[0], perRequest[1], "");
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Measures the tool beside its floors."));
    parser.addHelpOption();
    parser.addPositionalArgument(
        QStringLiteral("what"),
        QStringLiteral("roundtrip, start, output, idle, instructions; all but the last when none"),
        QStringLiteral("[what ...]"));
    const QCommandLineOption rounds(QStringLiteral("rounds"), QStringLiteral("Rounds of each."),
                                    QStringLiteral("N"), QStringLiteral("9"));
    parser.addOption(rounds);
    parser.process(application);
    const QString whyNot = VirtualKeypad::whyNot();
    if (!whyNot.isEmpty()) {
        std::fprintf(stderr, "perf-tool: %s\n", qPrintable(whyNot));
        return 1;
    }
    QStringList what = parser.positionalArguments();
    if (what.isEmpty())
        what = QStringList{QStringLiteral("roundtrip"), QStringLiteral("start"),
                           QStringLiteral("output"), QStringLiteral("idle")};
    const int count = parser.value(rounds).toInt();
    printHead();
    if (what.contains(QStringLiteral("roundtrip")))
        measureRoundTrip(count);
    if (what.contains(QStringLiteral("start")))
        measureStart(count);
    if (what.contains(QStringLiteral("output")))
        measureOutput(count);
    if (what.contains(QStringLiteral("idle")))
        measureIdle();
    if (what.contains(QStringLiteral("instructions")))
        measureInstructions();
    return 0;
}
