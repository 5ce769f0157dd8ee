// How fast the tool reads what a flashing program prints while it shows the progress
// bars, compared with reading the same pipe and doing nothing.
//
//     perf-output MEGABYTES ROUNDS
//
// Prints lines "tool W C" and "drain W C": megabytes a second by the clock, and per
// second of this process's own processor time, which a busy machine hardly changes.
#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QProgressBar>
#include <QTemporaryDir>
#include <QVBoxLayout>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "flash/rootfs.h"

namespace
{

const qint64 million = 1000000;

/// As the real program prints: one line for each block, a carriage return before
/// each, the same percentage many times.
QByteArray outputOfARun(qint64 megabytes)
{
    static const char *const phases[] = {"libscan: scanning", "ubiformat: flashing",
                                         "ubiformat: formatting"};
    const qint64 wanted = megabytes * million / 3;
    QByteArray all;
    for (const char *phase : phases) {
        std::string out;
        for (qint64 block = 0; static_cast<qint64>(out.size()) < wanted; ++block) {
            char line[96];
            const auto percent =
                static_cast<int>(static_cast<qint64>(out.size()) * 100 / (wanted + 1));
            std::snprintf(line, sizeof(line), "\r%s eraseblock %lld -- %2d %% complete  ", phase,
                          static_cast<long long>(block), percent);
            out += line;
        }
        out += std::string("\r") + phase + " eraseblock 9 -- 100 % complete  \n";
        all += QByteArray::fromStdString(out);
    }
    return all;
}

double processorSeconds()
{
    rusage used = {};
    getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

/// Does @p work, which takes in @p megabytes, and prints how fast it was.
template<typename Work> bool measure(const char *what, qint64 megabytes, Work work)
{
    QElapsedTimer timer;
    timer.start();
    const double before = processorSeconds();
    if (!work()) {
        std::fprintf(stderr, "%s: the run failed\n", what);
        return false;
    }
    const double used = processorSeconds() - before;
    const double passed = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const auto size = static_cast<double>(megabytes);
    std::printf("%s %.2f %.2f\n", what, size / passed, size / used);
    std::fflush(stdout);
    return true;
}

/// The flashing page: the bars that move, and a step that moves them.
class Page : public QWidget
{
public:
    Page()
    {
        auto *layout = new QVBoxLayout(this);
        for (QProgressBar *&bar : m_bars) {
            bar = new QProgressBar(this);
            layout->addWidget(bar);
        }
        connect(&m_step, &MFProc::status, this,
                [this](int percent) { m_bars[m_stage]->setValue(percent); });
        connect(&m_step, &RootFS::next, this, [this] { ++m_stage; });
        connect(&m_step, &MFProc::complete, &m_loop, [this] { m_loop.exit(0); });
        connect(&m_step, &MFProc::failed, &m_loop, [this] { m_loop.exit(1); });
        resize(800, 480);
        show();
    }

    bool run()
    {
        m_stage = 0;
        m_step.run();
        return m_loop.exec() == 0 && m_stage == 2;
    }

private:
    QProgressBar *m_bars[3];
    RootFS m_step{nullptr};
    QEventLoop m_loop;
    int m_stage = 0;
};

bool write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
           file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
}

bool drain(const QString &program)
{
    int ends[2];
    if (pipe(ends) != 0)
        return false;
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        execl(QFile::encodeName(program).constData(), "ubiformat", static_cast<char *>(nullptr));
        _exit(127);
    }
    close(ends[1]);
    char chunk[65536];
    while (read(ends[0], chunk, sizeof(chunk)) > 0) {
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    QApplication application(argc, argv);
    const qint64 megabytes = argc > 1 ? std::atoll(argv[1]) : 20;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;

    QTemporaryDir folder;
    const QString program = folder.filePath(QStringLiteral("ubiformat"));
    const QString output = folder.filePath(QStringLiteral("output"));
    // A program that only copies: it must not be what is measured.
    if (!write(output, outputOfARun(megabytes)) ||
        !write(program, "#!/bin/sh\nexec /bin/cat '" + QFile::encodeName(output) + "'\n")) {
        std::fprintf(stderr, "no room in %s\n", qPrintable(folder.path()));
        return 1;
    }
    qputenv("PATH", QFile::encodeName(folder.path()));

    Page page;
    for (int round = 0; round < rounds; ++round) {
        if (!measure("tool", megabytes, [&page] { return page.run(); }) ||
            !measure("drain", megabytes, [&program] { return drain(program); }))
            return 1;
    }
    return 0;
}
