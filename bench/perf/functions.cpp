// The tool's pure functions, each next to the smallest code that does the same.
#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QString>

#include <cstdio>
#include <map>
#include <ostream>
#include <string>

#include "bench/perf/bareframe.h"
#include "calibration/pointercalfile.h"
#include "flash/rootfs.h"
#include "hardware/sdevent.h"
#include "protocol/frame.h"
#include "protocol/replydata.h"

namespace
{

const char request[] = "7E000E61431F006403607F";
const char progress[] = "libscan: scanning eraseblock 1023 -- 53 % complete  \r";
const char pointercal[] = "-69 8567 -3106 -11 -33 51 65536 800 480 0\n";
const char event[] = "#/media/mmcblk0p1\n";
const char version[] = "20140101 1.2";

class OpenRootFS : public RootFS
{
public:
    OpenRootFS() : RootFS(nullptr)
    {
        // Without a program on the search path this only sets the pattern.
        qputenv("PATH", "/nonexistent");
        run();
        m_process->waitForFinished(1000);
    }
    using RootFS::handleLine;
};

void checkTool(benchmark::State &state)
{
    const QByteArray message(request);
    for (auto _ : state)
        benchmark::DoNotOptimize(checkFrame(message, true));
}

void checkBare(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(bare_check(request, sizeof(request) - 1));
}

void buildTool(benchmark::State &state)
{
    const QByteArray data("012C");
    for (auto _ : state)
        benchmark::DoNotOptimize(buildFrame(0x7081, data));
}

void buildBare(benchmark::State &state)
{
    char frame[64];
    for (auto _ : state) {
        benchmark::DoNotOptimize(bare_build(frame, 0x7081, "012C", 4));
        benchmark::ClobberMemory();
    }
}

void progressTool(benchmark::State &state)
{
    OpenRootFS step;
    const QByteArray line(progress);
    for (auto _ : state)
        step.handleLine(line);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(sizeof(progress) - 1));
}

void progressBare(benchmark::State &state)
{
    int percent = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            std::sscanf(progress, "libscan: scanning eraseblock %*d -- %d %% complete", &percent));
        benchmark::DoNotOptimize(percent);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(sizeof(progress) - 1));
}

void versionTool(benchmark::State &state)
{
    const QString text = QString::fromLatin1(version);
    for (auto _ : state)
        benchmark::DoNotOptimize(versionData(text));
}

void versionBare(benchmark::State &state)
{
    int major = 0;
    int minor = 0;
    char data[64];
    for (auto _ : state) {
        std::sscanf(version, "%*8d %d.%d", &major, &minor);
        std::snprintf(data, sizeof(data), "%02X%02X%-14.14s0000000000000000", major & 0xFF,
                      minor & 0xFF, version);
        benchmark::ClobberMemory();
    }
}

void eventTool(benchmark::State &state)
{
    const QByteArray line(event);
    for (auto _ : state)
        benchmark::DoNotOptimize(parseSdEvent(line));
}

void eventBare(benchmark::State &state)
{
    for (auto _ : state) {
        std::string dir(event + 1);
        dir.erase(dir.find_last_not_of(" \t\r\n") + 1);
        benchmark::DoNotOptimize(dir);
    }
}

void pointercalTool(benchmark::State &state)
{
    const QByteArray content(pointercal);
    AffineMap map;
    for (auto _ : state)
        benchmark::DoNotOptimize(PointercalFile::parse(content, &map));
}

void pointercalBare(benchmark::State &state)
{
    int n[7];
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::sscanf(pointercal, "%d %d %d %d %d %d %d", &n[0], &n[1],
                                             &n[2], &n[3], &n[4], &n[5], &n[6]));
        benchmark::DoNotOptimize(n);
    }
}

/// Prints after the usual table how many times its floor each function costs.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                m_medians[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override
    {
        GetOutputStream() << "\ntimes its floor (medians):\n";
        for (const auto &[name, time] : m_medians) {
            const auto floor = m_medians.find(name + " (floor)");
            if (floor != m_medians.end())
                GetOutputStream() << "  " << name << ": " << time / floor->second << '\n';
        }
    }

private:
    std::map<std::string, double> m_medians;
};

struct Pair {
    const char *name;
    void (*tool)(benchmark::State &);
    void (*floor)(benchmark::State &);
};

const Pair pairs[] = {
    {"check a frame", checkTool, checkBare},
    {"build a frame", buildTool, buildBare},
    {"read a progress line", progressTool, progressBare},
    {"build a version reply", versionTool, versionBare},
    {"read a card event", eventTool, eventBare},
    {"read a calibration file", pointercalTool, pointercalBare},
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const int repetitions = 5;
    for (const Pair &pair : pairs) {
        const std::string name = pair.name;
        for (const auto &[which, function] :
             {std::make_pair(name, pair.tool), std::make_pair(name + " (floor)", pair.floor)})
            benchmark::RegisterBenchmark(which.c_str(), function)
                ->Repetitions(repetitions)
                ->ReportAggregatesOnly();
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
}
