#include "bench/perf/measured.h"

#include "bench/keypad/spawn.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <poll.h>
#include <unistd.h>

namespace
{

const int patienceMsecs = 120000; // valgrind on a busy machine is slow

[[noreturn]] void giveUp(const QString &reason)
{
    std::fprintf(stderr, "perf-tool: %s\n", qPrintable(reason));
    std::exit(1);
}

KeypadOptions optionsFor(const QString &program, const QStringList &arguments,
                         const QStringList &wrapper)
{
    KeypadOptions options;
    options.tool = benchProgram(program);
    options.arguments = arguments;
    options.wrapper = QStringList{QStringLiteral("sh"), QStringLiteral("-c"),
                                  QStringLiteral("exec \"$@\" 2>/dev/null"), QStringLiteral("sh")} +
                      wrapper;
    // As on the board, where nobody asks Qt for times and marks.
    // As on a board, where the package's start script chooses Qt's own event loop.
    options.environment.insert(QStringLiteral("QT_NO_GLIB"), QStringLiteral("1"));
    options.environment.insert(QStringLiteral("QT_MESSAGE_PATTERN"),
                               QStringLiteral("%{if-category}%{category}: %{endif}%{message}"));
    return options;
}

} // namespace

Subject::Subject(const QString &program, const QStringList &arguments, const QStringList &wrapper)
    : m_keypad(optionsFor(program, arguments, wrapper))
{
}

double Subject::start()
{
    if (!m_keypad.prepare())
        giveUp(m_keypad.errorString());
    QElapsedTimer timer;
    timer.start();
    if (!m_keypad.start())
        giveUp(m_keypad.errorString());
    while (!readLine().startsWith("7E000A9999")) {
    }
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

double Subject::exchange(const QByteArray &request)
{
    QElapsedTimer timer;
    timer.start();
    if (write(m_keypad.lineFd(), request.constData(), static_cast<size_t>(request.size())) !=
        request.size())
        giveUp(QStringLiteral("the line does not take a request"));
    readLine();
    return static_cast<double>(timer.nsecsElapsed()) / 1e3;
}

void Subject::finish()
{
    exchange("7E000A60011402797F\r\n");
    if (!m_keypad.waitForExit(patienceMsecs))
        giveUp(QStringLiteral("the program does not end"));
}

QByteArray Subject::readLine()
{
    for (;;) {
        const int end = static_cast<int>(m_rest.indexOf('\n'));
        if (end >= 0) {
            const QByteArray line = m_rest.left(end + 1);
            m_rest.remove(0, end + 1);
            return line;
        }
        pollfd line = {m_keypad.lineFd(), POLLIN, 0};
        char chunk[4096];
        ssize_t size = -1;
        if (poll(&line, 1, patienceMsecs) > 0)
            size = read(line.fd, chunk, sizeof(chunk));
        if (size <= 0)
            giveUp(QStringLiteral("no answer"));
        m_rest.append(chunk, static_cast<int>(size));
    }
}

QMap<QString, double> memoryOf(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/smaps_rollup").arg(pid));
    QMap<QString, double> values;
    if (!file.open(QIODevice::ReadOnly))
        return values;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const double value =
            line.mid(line.indexOf(':') + 1).simplified().split(' ').first().toDouble();
        const QString name = QString::fromLatin1(line.left(line.indexOf(':')));
        if (name == QLatin1String("Rss"))
            values[name] = value;
        else if (name.startsWith(QLatin1String("Private_")))
            values[QStringLiteral("Unique")] += value;
    }
    return values;
}

qint64 contextSwitches(qint64 pid)
{
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    qint64 switches = 0;
    const QStringList threads = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads) {
        QFile file(tasks.filePath(thread) + QStringLiteral("/status"));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            if (line.contains("ctxt_switches:"))
                switches += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
        }
    }
    return switches;
}

double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}
