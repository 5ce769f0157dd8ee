#include "bench/common/command.h"
#include "bench/station/logline.h"
#include "bench/station/meaning.h"
#include "bench/station/stationcommand.h"

#include <QFile>

#include <algorithm>
#include <cstdio>

namespace
{

const char *const help = R"(Usage: bench decode [FRAME]

Explains a frame: sender, type, fields, and when it is wrong which check fails,
what it should be and what the keypad makes of it. FRAME is a line from any log:
time stamps and prefixes before the frame and line ends after it are skipped.
Without FRAME, or with -, every line of standard input that holds a frame is
explained.

Options:
  -h, --help  show this help

Exit status: 0 every frame is right, 1 a frame is wrong or there is none,
2 wrong usage.
)";

/// @return the number of frames in @p line; @p wrong is set when one is wrong
int explainLine(const QByteArray &line, bool *wrong)
{
    const QList<wire::Report> reports = wire::framesInLogLine(line);
    int requests = 0;
    for (const wire::Report &report : reports) {
        std::fputs(qPrintable(wire::explain(report)), stdout);
        if (!line.contains(report.raw))
            std::puts("note:    read without the blanks between; on the line there are none");
        std::fputc('\n', stdout);
        *wrong = *wrong || !report.ok() || !wire::meaningOf(report.frame).complaint.isEmpty();
        requests += report.sender == wire::Sender::Station ? 1 : 0;
    }
    if (requests > 1)
        std::puts("note:    if these requests went out together, the keypad takes them for one "
                  "message and answers NAK\n");
    return static_cast<int>(reports.size());
}

int explainInput()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return BenchExit::Usage;
    int frames = 0;
    bool wrong = false;
    while (true) {
        const QByteArray line = input.readLine();
        if (line.isEmpty())
            break;
        frames += explainLine(line, &wrong);
    }
    if (frames == 0)
        std::fputs("bench decode: no frame found\n", stderr);
    return frames == 0 || wrong ? BenchExit::Failed : BenchExit::Good;
}

} // namespace

int decodeCommand(const QStringList &arguments)
{
    const QStringList args = arguments.mid(1);
    if (args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h"))) {
        std::fputs(help, stdout);
        return BenchExit::Good;
    }
    if (args.isEmpty() || args == QStringList{QStringLiteral("-")})
        return explainInput();
    if (args.first().startsWith(QLatin1Char('-'))) {
        std::fprintf(stderr, "bench decode: unknown option %s; see bench decode --help\n",
                     qPrintable(args.first()));
        return BenchExit::Usage;
    }
    bool wrong = false;
    if (explainLine(args.join(QLatin1Char(' ')).toUtf8(), &wrong) > 0)
        return wrong ? BenchExit::Failed : BenchExit::Good;
    std::fputs("bench decode: no frame found\n", stderr);
    return BenchExit::Failed;
}
