// A fuzz target as an ordinary test: every file of the kept corpus, then
// mutations of them from a seeded generator for some seconds.
//
//     fuzz_receive CORPUS [SECONDS [SEED]]
//     fuzz_receive FILE
//
// A broken rule or a crash prints the input and ends the process with a signal.
#include "tests/fuzz/fuzz.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QStringList>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <random>

#include <unistd.h>

namespace
{

const int longestInput = 4096;

QByteArray current; ///< the input under test, for the signal handler

void printInput(int signal)
{
    static const char digits[] = "0123456789abcdef";
    const char head[] = "\nThe input, hexadecimal: ";
    ssize_t done = write(STDERR_FILENO, head, sizeof(head) - 1);
    for (const char c : qAsConst(current)) {
        const auto value = static_cast<unsigned char>(c);
        const char pair[] = {digits[value >> 4], digits[value & 15]};
        done += write(STDERR_FILENO, pair, sizeof(pair));
    }
    done += write(STDERR_FILENO, "\n", 1);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void run(const QByteArray &input)
{
    current = input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.constData()),
                           static_cast<std::size_t>(input.size()));
}

QByteArray content(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        std::exit(2);
    }
    return file.readAll();
}

QList<QByteArray> corpus(const QString &path)
{
    if (QFileInfo(path).isFile())
        return {content(path)};
    QList<QByteArray> inputs;
    const QDir folder(path);
    const QStringList names = folder.entryList(QDir::Files, QDir::Name);
    for (const QString &name : names)
        inputs.append(content(folder.filePath(name)));
    return inputs;
}

class Mutator
{
public:
    Mutator(const QList<QByteArray> &seeds, unsigned seed) : m_seeds(seeds), m_random(seed) {}

    QByteArray next()
    {
        QByteArray input = m_seeds.at(below(static_cast<int>(m_seeds.size())));
        for (int changes = 1 + below(4); changes > 0; --changes)
            change(&input);
        return input.left(longestInput);
    }

private:
    int below(int limit)
    {
        return limit <= 0 ? 0 : std::uniform_int_distribution<int>(0, limit - 1)(m_random);
    }
    char anyByte()
    {
        static const char likely[] = "0123456789ABCDEFabcdef7E7F\r\n !#-./%\xff";
        return below(2) ? static_cast<char>(below(256)) : likely[below(sizeof(likely))];
    }

    void change(QByteArray *input)
    {
        const int size = static_cast<int>(input->size());
        const int at = below(size + 1);
        switch (below(6)) {
        case 0:
            input->insert(at, anyByte());
            break;
        case 1:
            input->remove(at, 1 + below(8));
            break;
        case 2:
            if (at < size)
                (*input)[at] = anyByte();
            break;
        case 3:
            if (at < size)
                (*input)[at] = static_cast<char>(input->at(at) ^ (1 << below(8)));
            break;
        case 4:
            input->insert(at, input->mid(below(size + 1), 1 + below(64)));
            break;
        default: {
            const QByteArray &other = m_seeds.at(below(static_cast<int>(m_seeds.size())));
            *input = input->left(at) + other.mid(below(static_cast<int>(other.size()) + 1));
        }
        }
    }

    const QList<QByteArray> m_seeds;
    std::mt19937 m_random;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS [SECONDS [SEED]]\n", argv[0]);
        return 2;
    }
    const QList<QByteArray> seeds = corpus(QString::fromLocal8Bit(argv[1]));
    if (seeds.isEmpty()) {
        std::fprintf(stderr, "no corpus in %s\n", argv[1]);
        return 2;
    }
    const double seconds = argc > 2 ? std::atof(argv[2]) : 0;
    const unsigned seed = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 1;
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL})
        std::signal(signal, printInput);

    for (const QByteArray &input : seeds)
        run(input);
    Mutator mutator(seeds, seed);
    qint64 mutations = 0;
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    for (; Clock::now() < end; ++mutations)
        run(mutator.next());
    std::printf("%d inputs of the corpus, %lld mutations with seed %u\n",
                static_cast<int>(seeds.size()), static_cast<long long>(mutations), seed);
    return 0;
}
