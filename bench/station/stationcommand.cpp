#include "bench/station/stationcommand.h"

#include "bench/common/command.h"
#include "bench/station/escape.h"
#include "bench/station/meaning.h"
#include "bench/station/replay.h"
#include "bench/station/requests.h"
#include "bench/station/station.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include <poll.h>
#include <unistd.h>

namespace
{

const char *const helpHead = R"(Usage: bench station PTY [OPTION...] [COMMAND...]

Plays the test station on the terminal PTY: a virtual keypad's, or the serial
port a real keypad is connected to. Carries out COMMAND, or without one the
commands on standard input, one a line, and prints both directions decoded.

A request waits for its immediate reply and for the late one that belongs to it
(the results of flash and mount). What comes unasked is printed when it comes.

Options:
  -t, --timeout SECONDS   limit for an immediate reply (5)
  -l, --late SECONDS      limit for a late reply (by request; 0 does not wait)
  -b, --baud RATE         speed of a real serial port (115200)
  -r, --ready             first wait up to 15 s for the keypad's ready frame
  -o, --transcript FILE   record both directions with their times
  -q, --quiet             print only the replies, decoded
  -h, --help              show this help

Requests (numbers in decimal unless said otherwise; TEXT, NAME, DIR and DATA
may hold \r \n \t \\ \" \xHH):
)";

const char *const helpTail = R"(
Other commands:
  raw TEXT              send TEXT as it is; no frame, no line end
  ready [SECONDS]       wait for the ready frame (15)
  wait TYPE [SECONDS]   wait for a frame of this type, in hexadecimal
  listen [SECONDS]      print what comes for so long (10)
  replay FILE [fast]    play a transcript again, at its pace or without a
                        pause between requests, and show what differs
  decode FRAME          explain a frame from any log
  help                  show this help
  quit                  leave the prompt; the keypad's tool goes on

Exit status: 0 all was answered, 1 refused (NAK, NA), a damaged frame came or a
replay differs, 2 wrong usage, 3 no answer in time, 4 the line failed, or the
transcript cannot be written. Of several commands the first that fails decides.
)";

const int readyLimitMs = 15000;
const int listenMs = 10000;

struct Options {
    int limitMs = Station::DefaultLimitMs;
    int lateLimitMs = Station::LimitOfRequest;
    int baudRate = 115200;
    bool ready = false;
    bool quiet = false;
    QString transcript;
};

void complain(const QString &what)
{
    std::fprintf(stderr, "bench station: %s\n", qPrintable(what));
}

void showHelp()
{
    std::printf("%s%s%s", helpHead, qPrintable(wire::requestHelp()), helpTail);
}

/// Seconds, decimals allowed, as milliseconds; negative when it is not a time.
int milliseconds(const QString &text)
{
    bool isNumber = false;
    const double seconds = text.toDouble(&isNumber);
    const double most = 24 * 3600;
    return isNumber && seconds >= 0 && seconds <= most ? qRound(seconds * 1000) : -1;
}

/// What to do about a request that was not understood.
QString hintFor(const QStringList &words)
{
    static const QRegularExpression number(QStringLiteral("^[0-9A-Fa-f]{4}$"));
    if (number.match(words.first()).hasMatch())
        return QStringLiteral("; by number it is \"send %1\"").arg(words.first());
    if (!wire::isRequestName(words.first()))
        return QStringLiteral("; \"help\" lists them all");
    const bool hasOption = std::any_of(words.begin() + 1, words.end(), [](const QString &word) {
        return word.startsWith(QLatin1Char('-'));
    });
    return hasOption ? QStringLiteral("; options stand before the command") : QString();
}

/// One session on an open line.
class Session
{
public:
    Session(Station *station, const Options &options) : m_station(station), m_options(options) {}

    /// Carries out one command. @return exit status
    int run(const QStringList &words);

    /// Carries out the commands of standard input while printing what comes.
    int runInput();

    void print(char direction, const QString &meaning, const QByteArray &raw);

private:
    int runRequest(const QStringList &words);
    int runRaw(const QStringList &words);
    int runReady(const QStringList &words);
    int runWait(const QStringList &words);
    int runListen(const QStringList &words);
    int runReplay(const QStringList &words);
    int runDecode(const QStringList &words);
    int runHelp(const QStringList &words);
    int runQuit(const QStringList &words);

    struct Command {
        const char *name;
        int (Session::*run)(const QStringList &words);
    };
    static const Command Commands[];

    int usage(const QString &what);
    int failed(int status);
    int lineOr(int status) const;
    /// The limit given by word @p at, or else @p otherwise.
    int limitAt(const QStringList &words, int at, int otherwise);
    bool waitForInput();

    Station *m_station;
    Options m_options;
    bool m_hasPrompt = false; ///< commands come one a line from standard input
    bool m_isOver = false;    ///< "quit" was given
};

const Session::Command Session::Commands[] = {
    {"raw", &Session::runRaw},       {"ready", &Session::runReady},
    {"wait", &Session::runWait},     {"listen", &Session::runListen},
    {"replay", &Session::runReplay}, {"decode", &Session::runDecode},
    {"help", &Session::runHelp},     {"quit", &Session::runQuit},
};

void Session::print(char direction, const QString &meaning, const QByteArray &raw)
{
    const QString time = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"));
    if (!m_options.quiet)
        std::printf("%s %c %-40s %s\n", qPrintable(time), direction, qPrintable(meaning),
                    escaped(raw).constData());
    else if (direction == '<')
        std::printf("%s\n", qPrintable(meaning));
    // Whoever reads the output wants to see it now.
    std::fflush(stdout);
}

int Session::run(const QStringList &words)
{
    const auto row =
        std::find_if(std::begin(Commands), std::end(Commands), [&](const Command &command) {
            return words.first() == QLatin1String(command.name);
        });
    return row == std::end(Commands) ? runRequest(words) : (this->*row->run)(words);
}

int Session::usage(const QString &what)
{
    complain(what);
    return BenchExit::Usage;
}

int Session::failed(int status)
{
    complain(m_station->errorString());
    return lineOr(status);
}

int Session::lineOr(int status) const
{
    return m_station->isOpen() && !m_station->isHungUp() ? status : BenchExit::Unable;
}

int Session::limitAt(const QStringList &words, int at, int otherwise)
{
    return words.size() > at ? milliseconds(words.at(at)) : otherwise;
}

int Session::runRequest(const QStringList &words)
{
    QString error;
    const std::optional<wire::Frame> frame = wire::parseRequest(words, &error);
    if (!frame)
        return usage(error + hintFor(words));
    m_station->clear(); // what came before the request is printed before it
    print('>', wire::meaningOf(*frame).text,
          wire::buildFrame(wire::Sender::Station, frame->type, frame->data));
    const Station::Answer answer =
        m_station->request(frame->type, frame->data, m_options.limitMs, m_options.lateLimitMs);
    if (answer.ok()) {
        if (m_hasPrompt && frame->type == wire::ExitRequest)
            print('-', QStringLiteral("this ends the keypad's tool; \"quit\" leaves the prompt"),
                  QByteArray());
        return BenchExit::Good;
    }
    complain(answer.error);
    switch (answer.outcome) {
    case Station::Answer::TimedOut:
        return BenchExit::NoAnswer;
    case Station::Answer::LineFailed:
        return BenchExit::Unable;
    default:
        return BenchExit::Failed;
    }
}

int Session::runRaw(const QStringList &words)
{
    const auto bytes = unescaped(words.mid(1).join(QLatin1Char(' ')).toUtf8());
    if (!bytes || bytes->isEmpty())
        return usage(QStringLiteral("usage: raw TEXT"));
    m_station->clear();
    print('>', QStringLiteral("raw"), *bytes);
    return m_station->sendRaw(*bytes) ? BenchExit::Good : failed(BenchExit::Unable);
}

int Session::runReady(const QStringList &words)
{
    const int limit = limitAt(words, 1, readyLimitMs);
    if (limit < 0 || words.size() > 2)
        return usage(QStringLiteral("usage: ready [SECONDS]"));
    if (m_station->waitForReady(limit))
        return BenchExit::Good;
    const int status = failed(BenchExit::NoAnswer);
    if (status == BenchExit::NoAnswer)
        complain(QStringLiteral("a keypad says ready once, when its tool starts"));
    return status;
}

int Session::runWait(const QStringList &words)
{
    bool isNumber = false;
    const uint type = words.value(1).toUInt(&isNumber, 16);
    const int limit = limitAt(words, 2, m_options.limitMs);
    if (!isNumber || type > 0xFFFF || limit < 0 || words.size() > 3)
        return usage(QStringLiteral("usage: wait TYPE [SECONDS]"));
    return m_station->waitFor(static_cast<quint16>(type), limit) ? BenchExit::Good
                                                                 : failed(BenchExit::NoAnswer);
}

int Session::runListen(const QStringList &words)
{
    const int limit = limitAt(words, 1, listenMs);
    if (limit < 0 || words.size() > 2)
        return usage(QStringLiteral("usage: listen [SECONDS]"));
    const QDeadlineTimer deadline(limit);
    while (m_station->receive(static_cast<int>(deadline.remainingTime()))) {
    }
    return lineOr(BenchExit::Good);
}

int Session::runReplay(const QStringList &words)
{
    QString error = QStringLiteral("usage: replay FILE [fast]");
    const bool isFast = words.value(2) == QLatin1String("fast");
    if (words.size() != (isFast ? 3 : 2))
        return usage(error);
    const std::optional<Transcript> recorded = Transcript::load(words.at(1), &error);
    if (!recorded)
        return usage(error);
    const auto announce = [this](const Transcript::Entry &sent) {
        print('>', sent.text, sent.bytes);
    };
    const Replay result = replay(m_station, *recorded, m_options.limitMs,
                                 isFast ? ReplayPace::Fast : ReplayPace::Recorded, announce);
    for (const QString &difference : result.differences)
        std::printf("%s\n", qPrintable(difference));
    std::printf("%d requests, %d replies compared, %d differences\n", result.sent, result.compared,
                static_cast<int>(result.differences.size()));
    return result.same() ? BenchExit::Good : lineOr(BenchExit::Failed);
}

int Session::runDecode(const QStringList &words)
{
    return words.size() > 1 ? decodeCommand(words) : usage(QStringLiteral("usage: decode FRAME"));
}

int Session::runHelp(const QStringList &)
{
    showHelp();
    return BenchExit::Good;
}

int Session::runQuit(const QStringList &)
{
    if (!m_hasPrompt)
        return usage(QStringLiteral("\"quit\" leaves the prompt, and there is none; \"exit\" ends "
                                    "the keypad's tool"));
    m_isOver = true;
    return BenchExit::Good;
}

/// Sleeps until standard input can be read, printing what the line brings.
/// @return false when the line has hung up
bool Session::waitForInput()
{
    for (;;) {
        pollfd files[] = {{STDIN_FILENO, POLLIN, 0}, {m_station->descriptor(), POLLIN, 0}};
        if (::poll(files, std::size(files), -1) < 0)
            continue;
        while (m_station->receive(0)) {
        }
        if (m_station->isHungUp())
            return false;
        if (files[0].revents != 0)
            return true;
    }
}

int Session::runInput()
{
    m_hasPrompt = true;
    int status = BenchExit::Good;
    QByteArray input;
    while (waitForInput()) {
        char bytes[4096];
        const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (count <= 0)
            input += '\n';
        else
            input.append(bytes, static_cast<int>(count));
        for (auto end = input.indexOf('\n'); end >= 0 && !m_isOver; end = input.indexOf('\n')) {
            const QString line = QString::fromUtf8(input.left(end)).trimmed();
            input.remove(0, end + 1);
            if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
                continue;
            const int result = run(line.split(QLatin1Char(' ')));
            status = status == BenchExit::Good ? result : status;
            std::fflush(stdout);
        }
        if (count <= 0 || m_isOver)
            return status;
    }
    complain(QStringLiteral("the line hung up"));
    return status == BenchExit::Good ? BenchExit::Unable : status;
}

QCommandLineOption option(const char *letter, const char *name, const char *value = "")
{
    const QStringList names = {QLatin1String(letter), QLatin1String(name)};
    return QCommandLineOption(names, QString(), QLatin1String(value));
}

/// Reads the options around PTY. @return the words of the command; on an
/// error @p error is set
QStringList parseArguments(const QStringList &args, QString *pty, Options *options, QString *error)
{
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption timeout = option("t", "timeout", "SECONDS");
    const QCommandLineOption late = option("l", "late", "SECONDS");
    const QCommandLineOption baud = option("b", "baud", "RATE");
    const QCommandLineOption ready = option("r", "ready");
    const QCommandLineOption transcript = option("o", "transcript", "FILE");
    const QCommandLineOption quiet = option("q", "quiet");
    parser.addOptions({timeout, late, baud, ready, transcript, quiet});

    // Options may come before PTY and after it, but not within a command.
    QStringList words = args;
    for (int part = 0; part < 2; ++part) {
        if (!parser.parse(QStringList{QStringLiteral("station")} + words)) {
            *error = parser.errorText();
            error->chop(1); // its full stop
            *error += QStringLiteral("; see bench station --help");
            return {};
        }
        words = parser.positionalArguments();
        if (parser.isSet(timeout))
            options->limitMs = milliseconds(parser.value(timeout));
        if (parser.isSet(late))
            options->lateLimitMs = milliseconds(parser.value(late));
        if (options->limitMs < 0 || (parser.isSet(late) && options->lateLimitMs < 0))
            *error = QStringLiteral("a limit is a number of seconds");
        if (parser.isSet(baud))
            options->baudRate = parser.value(baud).toInt();
        if (!Station::isBaudRate(options->baudRate))
            *error = QStringLiteral("%1 is not a standard baud rate").arg(parser.value(baud));
        if (parser.isSet(transcript))
            options->transcript = parser.value(transcript);
        if (parser.isSet(transcript) && options->transcript.isEmpty())
            *error = QStringLiteral("--transcript takes a file, not an empty text");
        options->ready = options->ready || parser.isSet(ready);
        options->quiet = options->quiet || parser.isSet(quiet);
        if (part == 0)
            *pty = words.isEmpty() ? QString() : words.takeFirst();
    }
    if (pty->isEmpty() || wire::isRequestName(*pty))
        *error = QStringLiteral("no PTY given; see bench station --help");
    return words;
}

} // namespace

int stationCommand(const QStringList &arguments)
{
    const QStringList args = arguments.mid(1);
    if (args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h"))) {
        showHelp();
        return BenchExit::Good;
    }
    Options options;
    QString pty;
    QString error;
    const QStringList words = parseArguments(args, &pty, &options, &error);
    if (!error.isEmpty()) {
        complain(error);
        return BenchExit::Usage;
    }
    Station station;
    // A person's session may last for days; the file has it all.
    station.transcript().setLimit(0);
    if (!options.transcript.isEmpty() && !station.transcript().logTo(options.transcript, &error)) {
        complain(error);
        return BenchExit::Unable;
    }
    if (!station.open(pty, options.baudRate)) {
        complain(station.errorString());
        return BenchExit::Unable;
    }
    Session session(&station, options);
    QObject::connect(&station, &Station::received, [&](const Station::Received &received) {
        session.print('<', received.describe(), received.raw);
    });
    if (options.ready) {
        const int status = session.run({QStringLiteral("ready")});
        if (status != BenchExit::Good)
            return status;
    }
    const int status = words.isEmpty() ? session.runInput() : session.run(words);
    const QString lost = station.transcript().logError();
    if (lost.isEmpty())
        return status;
    complain(QStringLiteral("the transcript is not whole: %1").arg(lost));
    return status == BenchExit::Good ? BenchExit::Unable : status;
}
