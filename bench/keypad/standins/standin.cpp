/// Plays kobs-ng, ubiformat, ubiattach or mount, whichever name it is called
/// by: prints what the real program printed, byte for byte and write for write,
/// and ends as it did.
///
/// /run/bench/plays/PROGRAM says what to play, in lines of "key value":
///     play WORD     "auto" (also when there is no file), the name of a captured run,
///                   "crash", "hang" or "endless"
///     seconds S     how long a whole run takes
///     hold TEXT     stop after the first write that contains TEXT until this
///                   line is gone from the file, or names another text to stop
///                   at further on

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

const char captures[] = "/run/bench/captures/";
const char plays[] = "/run/bench/plays/";
const char calls[] = "/run/bench/calls/";
const char attachedMark[] = "/run/bench/attached";

const off_t eraseBlock = 128 * 1024;
const off_t partitionBlocks = 1984;

struct Ending {
    const char *capture;
    int exitCode;
};

const Ending endings[] = {
    {"kobs-ng-good", 0},          {"kobs-ng-no-image", 1},
    {"ubiformat-good", 0},        {"ubiformat-no-image", 255},
    {"ubiformat-attached", 255},  {"ubiformat-image-too-large", 255},
    {"ubiformat-no-device", 255}, {"ubiformat-image-truncated", 255},
    {"ubiattach-good", 0},        {"ubiattach-twice", 255},
    {"ubiattach-no-ubi", 255},    {"mount-good", 0},
    {"mount-already", 32},        {"mount-no-volume", 32},
};

struct Play {
    std::string play = "auto";
    double seconds = 0;
    std::string hold;
};

std::string fileContent(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool exists(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

Play readPlay(const std::string &program)
{
    Play play;
    std::ifstream file(plays + program);
    std::string line;
    while (std::getline(file, line)) {
        const size_t blank = line.find(' ');
        const std::string key = line.substr(0, blank);
        const std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (key == "play")
            play.play = value;
        else if (key == "seconds")
            play.seconds = std::atof(value.c_str());
        else if (key == "hold")
            play.hold = value;
    }
    return play;
}

/// One file for each call: working directory, arguments, an empty string, environment;
/// each ended by a NUL.
void recordCall(const std::string &program, int argc, char **argv, char **environment)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    char name[64];
    snprintf(name, sizeof name, "%012lld.%09ld-", static_cast<long long>(now.tv_sec), now.tv_nsec);
    // It gets its name only when it is complete.
    const std::string path = calls + std::string(name) + program;
    const std::string draft = calls + (".draft-" + program) + std::to_string(getpid());
    std::ofstream file(draft, std::ios::binary);
    char directory[4096] = {};
    if (getcwd(directory, sizeof directory) != nullptr)
        file << directory;
    file << '\0';
    for (int i = 1; i < argc; ++i)
        file << argv[i] << '\0';
    file << '\0';
    for (char **variable = environment; *variable != nullptr; ++variable)
        file << *variable << '\0';
    file.close();
    rename(draft.c_str(), path.c_str());
}

void pause(double seconds)
{
    timespec time;
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * 1e9);
    nanosleep(&time, nullptr);
}

[[noreturn]] void dieOf(int signalNumber)
{
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    signal(signalNumber, SIG_DFL);
    raise(signalNumber);
    abort();
}

/// The pieces in which the real programs write: a progress update is a carriage return
/// and its text, every other line is a piece of its own.
std::vector<std::string> pieces(const std::string &output)
{
    std::vector<std::string> found;
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find_first_of("\r\n", start + 1);
        if (end == std::string::npos)
            end = output.size();
        else if (output[end] == '\n')
            ++end;
        found.push_back(output.substr(start, end - start));
        start = end;
    }
    return found;
}

void writeAll(int fd, const std::string &bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
        if (count < 0)
            dieOf(SIGPIPE);
        done += static_cast<size_t>(count);
    }
}

class Player
{
public:
    explicit Player(const std::string &program) : m_program(program), m_play(readPlay(program)) {}

    const std::string &play() const { return m_play.play; }

    /// Prints the first @p share of a captured run.
    void print(const std::string &capture, double share = 1)
    {
        const std::string base = captures + m_program + '-' + capture;
        const std::vector<std::string> all = pieces(fileContent(base + ".stdout"));
        const size_t count = static_cast<size_t>(static_cast<double>(all.size()) * share);
        for (size_t i = 0; i < count; ++i) {
            writeAll(STDOUT_FILENO, all[i]);
            if (m_play.seconds > 0)
                pause(m_play.seconds / static_cast<double>(all.size()));
            holdAfter(all[i]);
        }
        if (share >= 1)
            writeAll(STDERR_FILENO, fileContent(base + ".stderr"));
    }

    int run(const std::string &capture)
    {
        for (const Ending &ending : endings) {
            if (m_program + '-' + capture != ending.capture)
                continue;
            print(capture);
            return ending.exitCode;
        }
        fprintf(stderr, "%s: no captured run is called \"%s\"\n", m_program.c_str(),
                capture.c_str());
        return 126;
    }

private:
    void holdAfter(const std::string &piece)
    {
        if (m_play.hold.empty() || piece.find(m_play.hold) == std::string::npos)
            return;
        const std::string held = m_play.hold;
        while (readPlay(m_program).hold == held)
            pause(0.005);
        m_play.hold = readPlay(m_program).hold; // perhaps it is to stop again, further on
    }

    std::string m_program;
    Play m_play;
};

std::string afterOption(const std::vector<std::string> &arguments, const char *option)
{
    const auto it = std::find(arguments.begin(), arguments.end(), option);
    return it == arguments.end() || it + 1 == arguments.end() ? std::string() : *(it + 1);
}

int autoKobs(Player &player, const std::vector<std::string> &arguments)
{
    const bool image = !arguments.empty() && exists(arguments.back());
    return player.run(image ? "good" : "no-image");
}

int autoUbiformat(Player &player, const std::vector<std::string> &arguments)
{
    if (arguments.empty() || arguments.front() != "/dev/mtd1")
        return player.run("no-device");
    if (exists(attachedMark))
        return player.run("attached");
    struct stat image;
    if (stat(afterOption(arguments, "-f").c_str(), &image) != 0)
        return player.run("no-image");
    if (image.st_size == 0) {
        // It divides by the image's number of blocks, after the scan.
        const std::string scan = fileContent(std::string(captures) + "ubiformat-no-image.stdout");
        writeAll(STDOUT_FILENO, scan);
        dieOf(SIGFPE);
    }
    if (image.st_size > partitionBlocks * eraseBlock)
        return player.run("image-too-large");
    if (image.st_size % eraseBlock != 0)
        return player.run("image-truncated");
    return player.run("good");
}

int attach(Player &player, const std::string &play)
{
    const std::string how = play != "auto" ? play : exists(attachedMark) ? "twice" : "good";
    const int code = player.run(how);
    if (code == 0)
        std::ofstream(attachedMark) << "1\n";
    return code;
}

/// The part of the flashed file system that the tool looks at.
void showMounted(const std::string &at)
{
    for (const char *dir : {"/etc", "/usr", "/usr/lib", "/usr/lib/panel"})
        mkdir((at + dir).c_str(), 0755);
    std::ofstream(at + "/usr/lib/panel/version") << "20140202 2.7\n";
}

int mountVolume(Player &player, const std::string &play, const std::string &at)
{
    std::string how = play;
    if (play == "auto")
        how = exists(at + "/etc") ? "already" : exists(attachedMark) ? "good" : "no-volume";
    const int code = player.run(how);
    if (code == 0)
        showMounted(at);
    return code;
}

int playProgram(const std::string &program, const std::vector<std::string> &arguments)
{
    Player player(program);
    const std::string play = player.play();
    if (play == "crash" || play == "hang")
        player.print("good", 0.5);
    if (play == "crash")
        dieOf(SIGSEGV);
    while (play == "hang")
        ::pause();
    while (play == "endless")
        player.print("good");
    if (program == "ubiattach")
        return attach(player, play);
    if (program == "mount")
        return mountVolume(player, play, arguments.empty() ? "/mnt" : arguments.back());
    if (play != "auto")
        return player.run(play);
    return program == "kobs-ng" ? autoKobs(player, arguments) : autoUbiformat(player, arguments);
}

} // namespace

int main(int argc, char **argv, char **environment)
{
    const std::string name = argv[0];
    const std::string program = name.substr(name.rfind('/') + 1);
    recordCall(program, argc, argv, environment);
    return playProgram(program, std::vector<std::string>(argv + 1, argv + argc));
}
