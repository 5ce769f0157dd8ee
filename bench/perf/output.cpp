// How fast the tool takes in what a flashing program prints, with its progress
// bars shown, beside draining the same pipe and doing nothing with it.
//
//     perf-output MEGABYTES ROUNDS        prints "tool" and "drain" lines, MB/s
//     perf-output --print MEGABYTES       is the flashing program
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
#include <cstring>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include "flash/rootfs.h"

namespace
{

const qint64 million = 1000000;

/// As the real program prints it: one line for each block, a carriage return
/// behind each, the same percentage many times.
void printLikeUbiformat(qint64 megabytes)
{
    static const char *const phases[] = {"libscan: scanning", "ubiformat: flashing",
                                         "ubiformat: formatting"};
    for (const char *phase : phases) {
        const qint64 wanted = megabytes * million / 3;
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
        for (size_t at = 0; at < out.size(); at += 4096) {
            if (write(STDOUT_FILENO, out.data() + at, std::min<size_t>(4096, out.size() - at)) < 0)
                std::exit(1);
        }
    }
}

double megabytesPerSecond(qint64 megabytes, qint64 nanoseconds)
{
    return static_cast<double>(megabytes * million) * 1000 / static_cast<double>(nanoseconds);
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

qint64 drain(const QString &program)
{
    int ends[2];
    if (pipe(ends) != 0)
        return 0;
    QElapsedTimer timer;
    timer.start();
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
    waitpid(child, nullptr, 0);
    return timer.nsecsElapsed();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--print") == 0) {
        printLikeUbiformat(std::atoll(argv[2]));
        return 0;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    QApplication application(argc, argv);
    const qint64 megabytes = argc > 1 ? std::atoll(argv[1]) : 20;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;

    QTemporaryDir folder;
    const QString program = folder.filePath(QStringLiteral("ubiformat"));
    QFile script(program);
    if (!script.open(QIODevice::WriteOnly))
        return 1;
    script.write("#!/bin/sh\nexec '" + QFile::encodeName(QCoreApplication::applicationFilePath()) +
                 "' --print " + QByteArray::number(megabytes) + "\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    qputenv("PATH", QFile::encodeName(folder.path()));

    Page page;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer timer;
        timer.start();
        if (!page.run()) {
            std::fprintf(stderr, "the run failed\n");
            return 1;
        }
        std::printf("tool %.2f\n", megabytesPerSecond(megabytes, timer.nsecsElapsed()));
        std::printf("drain %.2f\n", megabytesPerSecond(megabytes, drain(program)));
        std::fflush(stdout);
    }
    return 0;
}
