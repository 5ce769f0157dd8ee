// What the flashing programs print: real bytes through a real process into the
// steps' line assembly and their reading of progress lines.
//
// The process is a copier that stands in for both programs and lives as long
// as the target. Every input ends with a line end of its own, so that nothing is
// left over for the next one.
#include "tests/fuzz/fuzz.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <optional>

#include "flash/bootstream.h"
#include "flash/rootfs.h"

namespace
{

void ignoreLog(QtMsgType, const QMessageLogContext &, const QString &) {}

/// A step whose lines, percentages and phases are kept as they come.
template<typename Step> class Watched : public Step
{
public:
    Watched() : Step(nullptr)
    {
        QObject::connect(this, &MFProc::status, this,
                         [this](int percent) { percents.append(percent); });
    }

    QProcess *process() { return this->m_process; }
    /// Counters as before a run; the copier runs already and is not started again.
    void reset()
    {
        this->run();
        lines.clear();
        percents.clear();
        received = 0;
    }

    QList<QByteArray> lines;
    QList<int> percents;
    qint64 received = 0;

protected:
    void handleLine(const QByteArray &line) override
    {
        lines.append(line);
        received += line.size();
        Step::handleLine(line);
    }
};

struct Steps {
    Steps()
    {
        qInstallMessageHandler(ignoreLog);
        static char program[] = "fuzz_tooloutput";
        static char *arguments[] = {program, nullptr};
        static int count = 1;
        new QCoreApplication(count, arguments);
        for (const char *name : {"kobs-ng", "ubiformat"}) {
            QFile script(programs.filePath(QLatin1String(name)));
            if (!script.open(QIODevice::WriteOnly))
                qFatal("no room for %s", name);
            script.write("#!/bin/sh\nexec /bin/cat\n");
            script.close();
            script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        qputenv("PATH", QFile::encodeName(programs.path()));
        rootFS = new Watched<RootFS>;
        bootStream = new Watched<BootStream>;
        QObject::connect(rootFS, &RootFS::next, rootFS, [this] { ++phases; });
        // The boot stream step works in a folder that only the board has.
        bootStream->process()->setWorkingDirectory(programs.path());
        rootFS->run();
        bootStream->run();
        if (!rootFS->process()->waitForStarted(60000) ||
            !bootStream->process()->waitForStarted(60000))
            qFatal("the copier does not start");
    }

    QTemporaryDir programs;
    Watched<RootFS> *rootFS;
    Watched<BootStream> *bootStream;
    int phases = 0;
};

template<typename Step> void feed(Watched<Step> *step, const QByteArray &output)
{
    step->reset();
    step->process()->write(output);
    while (step->received < output.size()) {
        if (!step->process()->waitForReadyRead(60000))
            qFatal("the copier is gone");
    }
}

QList<QByteArray> cut(const QByteArray &output)
{
    QList<QByteArray> lines;
    int begin = 0;
    for (int i = 0; i < output.size(); ++i) {
        if (output.at(i) != '\r' && output.at(i) != '\n')
            continue;
        lines.append(output.mid(begin, i + 1 - begin));
        begin = i + 1;
    }
    return lines;
}

/// Digits at the front of @p text, taken off it.
QByteArray takeDigits(QByteArray *text)
{
    int size = 0;
    while (size < text->size() && text->at(size) >= '0' && text->at(size) <= '9')
        ++size;
    const QByteArray digits = text->left(size);
    text->remove(0, size);
    return digits;
}

bool takePrefix(QByteArray *text, const char *prefix)
{
    if (!text->startsWith(prefix))
        return false;
    text->remove(0, static_cast<int>(qstrlen(prefix)));
    return true;
}

/// The percentage of a progress line that begins with @p prefix; nothing for any other line.
std::optional<int> percentOf(QByteArray line, const char *prefix)
{
    if (line.contains('\0'))
        line = line.left(line.indexOf('\0'));
    if (!takePrefix(&line, prefix) || takeDigits(&line).isEmpty() || !takePrefix(&line, " -- "))
        return std::nullopt;
    const QByteArray percent = takeDigits(&line);
    if (percent.isEmpty() || !takePrefix(&line, " % complete"))
        return std::nullopt;
    return percent.toInt(); // 0 when it does not fit
}

void checkRootFS(Steps *steps, const QByteArray &output, const QList<QByteArray> &lines)
{
    static const char *const prefixes[] = {"libscan: scanning eraseblock ",
                                           "ubiformat: flashing eraseblock ",
                                           "ubiformat: formatting eraseblock "};
    steps->phases = 0;
    feed(steps->rootFS, output);
    FUZZ_VERIFY(steps->rootFS->lines == lines, output);

    int phase = 0;
    QList<int> percents;
    for (const QByteArray &line : lines) {
        const std::optional<int> percent = percentOf(line, prefixes[phase]);
        if (!percent)
            continue;
        percents.append(*percent);
        if (*percent == 100 && phase < 2)
            ++phase;
    }
    FUZZ_VERIFY(steps->rootFS->percents == percents, output);
    FUZZ_VERIFY(steps->phases == phase, output);
}

void checkBootStream(Steps *steps, const QByteArray &output, const QList<QByteArray> &lines)
{
    feed(steps->bootStream, output);
    FUZZ_VERIFY(steps->bootStream->lines == lines, output);

    int erased = 0;
    QList<int> percents;
    for (const QByteArray &line : lines) {
        if (line.startsWith("mtd: erasing "))
            percents.append(qMin(++erased, 55) * 100 / 54);
    }
    FUZZ_VERIFY(steps->bootStream->percents == percents, output);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Steps steps;
    const QByteArray output = fuzz::bytes(data, size).left(16384) + '\n';
    const QList<QByteArray> lines = cut(output);
    checkRootFS(&steps, output, lines);
    checkBootStream(&steps, output, lines);
    return 0;
}
