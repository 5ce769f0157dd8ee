// The bench's hand inside an emulated board. As the first program of the boot it
// loads the kernel's modules, makes the input devices and hands over to the
// board's own init; a second process of it stays and does what the bench asks for
// over a virtio port.
//
// The kernel's command line may say
//   keypad.late=NAME,...   modules and input devices ("home", "touch") to leave
//                          out; the modules then lie in /run/keypad
//   keypad.init=PROGRAM    what the board is started with, else /sbin/init
//   keypad.run=PROGRAM     runs that instead and restarts the board
//
// A request is a line, "ID VERB ...", some followed by LENGTH bytes:
//   ID run LENGTH          a shell script
//   ID put LENGTH PATH     what is to stand in a file, stored in one write
//   ID get PATH            a file's content
//   ID key CODE VALUE      home key: 1 pressed, 0 released
//   ID touch X Y           finger down there, or moved there
//   ID lift                finger up
//   ID plug NAME           makes the input device "home" or "touch"
//   ID unplug NAME         takes it away
//   ID sync                nothing
// An answer is any number of "ID out LENGTH" with that many bytes, then one
// "ID end STATUS": a script's exit status (128 and the number of the signal that
// ended it), else 0 or an errno value. Unasked comes "stores out LENGTH" with a line
// for each store of the tool in sysfs (module/keypad_board.c); those made before a
// request was taken come before its answer. "0 end 0" says that the agent is there.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <list>
#include <map>
#include <sstream>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <linux/uinput.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

const char portName[] = "keypad.agent";
const char storesDevice[] = "/dev/keypad-stores";
const char rootDevice[] = "/dev/vda";
const char lateFolder[] = "/run/keypad";
const int screenWidth = 800;
const int screenHeight = 480;
const useconds_t waitUsecs = 20000; // between two looks at a device that is to come

// The input devices.

std::map<std::string, int> inputs;

void emit(int fd, int type, int code, int value)
{
    input_event event = {};
    event.type = static_cast<__u16>(type);
    event.code = static_cast<__u16>(code);
    event.value = value;
    if (write(fd, &event, sizeof event) < 0)
        perror("uinput");
}

void addAxis(int fd, int code, int maximum)
{
    uinput_abs_setup axis = {};
    axis.code = static_cast<__u16>(code);
    axis.absinfo.maximum = maximum;
    ioctl(fd, UI_ABS_SETUP, &axis);
}

int plug(const std::string &name)
{
    if (inputs.count(name) != 0)
        return EEXIST;
    if (name != "home" && name != "touch")
        return EINVAL;
    const int fd = open("/dev/uinput", O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return errno;
    uinput_setup setup = {};
    setup.id.bustype = BUS_HOST;
    snprintf(setup.name, sizeof setup.name, "keypad %s", name.c_str());
    ioctl(fd, UI_SET_EVBIT, EV_KEY);
    if (name == "home") {
        ioctl(fd, UI_SET_KEYBIT, KEY_HOME);
    } else {
        ioctl(fd, UI_SET_KEYBIT, BTN_TOUCH);
        ioctl(fd, UI_SET_EVBIT, EV_ABS);
        ioctl(fd, UI_SET_PROPBIT, INPUT_PROP_DIRECT);
        addAxis(fd, ABS_X, screenWidth - 1);
        addAxis(fd, ABS_Y, screenHeight - 1);
    }
    if (ioctl(fd, UI_DEV_SETUP, &setup) < 0 || ioctl(fd, UI_DEV_CREATE) < 0) {
        const int error = errno;
        close(fd);
        return error;
    }
    inputs[name] = fd;
    return 0;
}

int unplug(const std::string &name)
{
    const auto found = inputs.find(name);
    if (found == inputs.end())
        return ENODEV;
    close(found->second);
    inputs.erase(found);
    return 0;
}

int press(int code, int value)
{
    if (inputs.count("home") == 0)
        return ENODEV;
    emit(inputs["home"], EV_KEY, code, value);
    emit(inputs["home"], EV_SYN, SYN_REPORT, 0);
    return 0;
}

int touch(int x, int y)
{
    if (inputs.count("touch") == 0)
        return ENODEV;
    const int fd = inputs["touch"];
    emit(fd, EV_ABS, ABS_X, x);
    emit(fd, EV_ABS, ABS_Y, y);
    emit(fd, EV_KEY, BTN_TOUCH, 1);
    emit(fd, EV_SYN, SYN_REPORT, 0);
    return 0;
}

int lift()
{
    if (inputs.count("touch") == 0)
        return ENODEV;
    emit(inputs["touch"], EV_KEY, BTN_TOUCH, 0);
    emit(inputs["touch"], EV_SYN, SYN_REPORT, 0);
    return 0;
}

// The line to the bench.

class Port
{
public:
    explicit Port(int fd) : m_fd(fd) {}

    int fd() const { return m_fd; }

    /// False when the bench is gone.
    bool readLine(std::string *line)
    {
        line->clear();
        char c;
        while (readAll(&c, 1)) {
            if (c == '\n')
                return true;
            *line += c;
        }
        return false;
    }

    bool readBytes(size_t count, std::string *bytes)
    {
        bytes->resize(count);
        return readAll(&(*bytes)[0], count);
    }

    void out(const std::string &id, const char *bytes, size_t count)
    {
        writeAll(id + " out " + std::to_string(count) + '\n');
        writeAll(std::string(bytes, count));
    }

    void end(const std::string &id, int status)
    {
        writeAll(id + " end " + std::to_string(status) + '\n');
    }

private:
    bool readAll(char *to, size_t count)
    {
        while (count > 0) {
            const ssize_t size = read(m_fd, to, count);
            if (size < 0 && errno == EINTR)
                continue;
            if (size == 0) { // nobody holds the other end
                usleep(waitUsecs);
                continue;
            }
            if (size < 0)
                return false;
            to += size;
            count -= static_cast<size_t>(size);
        }
        return true;
    }

    void writeAll(const std::string &bytes)
    {
        size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t size = write(m_fd, bytes.data() + done, bytes.size() - done);
            if (size > 0)
                done += static_cast<size_t>(size);
            else if (errno != EINTR)
                return;
        }
    }

    const int m_fd;
};

/// The port of that name; waits for it.
int openPort()
{
    const std::string folder = "/sys/class/virtio-ports/";
    for (;; usleep(waitUsecs)) {
        DIR *dir = opendir(folder.c_str());
        while (const dirent *entry = dir != nullptr ? readdir(dir) : nullptr) {
            std::string name;
            std::ifstream(folder + entry->d_name + "/name") >> name;
            if (name != portName)
                continue;
            const int fd = open((std::string("/dev/") + entry->d_name).c_str(), O_RDWR | O_CLOEXEC);
            if (fd >= 0) {
                closedir(dir);
                return fd;
            }
        }
        if (dir != nullptr)
            closedir(dir);
    }
}

// Scripts.

struct Script {
    std::string id;
    pid_t pid;
    int process; // a descriptor that can be polled
    int output;
};

std::list<Script> scripts;

int start(const std::string &id, const std::string &text)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    const pid_t pid = fork();
    if (pid == 0) {
        setsid();
        signal(SIGPIPE, SIG_DFL);
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        execl("/bin/sh", "sh", "-c", text.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    close(ends[1]);
    if (pid < 0) {
        close(ends[0]);
        return errno;
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    scripts.push_back({id, pid, process, ends[0]});
    return 0;
}

/// Hands on what there is. False at the end of the output.
bool pass(const Script &script, Port *port)
{
    char bytes[4096];
    for (;;) {
        const ssize_t size = read(script.output, bytes, sizeof bytes);
        if (size <= 0)
            return size < 0 && errno == EAGAIN;
        port->out(script.id, bytes, static_cast<size_t>(size));
    }
}

void finish(const Script &script, Port *port)
{
    int status = 0;
    waitpid(script.pid, &status, 0);
    pass(script, port);
    close(script.output);
    close(script.process);
    port->end(script.id, WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}

/// Hands on the stores there are.
void passStores(int stores, Port *port)
{
    char line[256];
    ssize_t size;
    while ((size = read(stores, line, sizeof line)) > 0)
        port->out("stores", line, static_cast<size_t>(size));
}

// Files.

int putFile(const std::string &path, const std::string &bytes)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    const ssize_t size = write(fd, bytes.data(), bytes.size());
    const int error = size < 0 ? errno : static_cast<size_t>(size) < bytes.size() ? ENOSPC : 0;
    close(fd);
    return error;
}

int getFile(const std::string &id, const std::string &path, Port *port)
{
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno;
    std::vector<char> bytes(64 * 1024);
    ssize_t size;
    while ((size = read(fd, bytes.data(), bytes.size())) > 0)
        port->out(id, bytes.data(), static_cast<size_t>(size));
    const int error = size < 0 ? errno : 0;
    close(fd);
    return error;
}

/// False when the bench is gone.
bool serve(Port *port, int stores)
{
    std::string line;
    if (!port->readLine(&line))
        return false;
    passStores(stores, port);
    std::istringstream words(line);
    std::string id, verb, name;
    size_t length = 0;
    int a = 0, b = 0;
    words >> id >> verb;
    std::string bytes;
    if (verb == "run" || verb == "put") {
        words >> length;
        if (!port->readBytes(length, &bytes))
            return false;
    }
    if (verb == "run") {
        const int error = start(id, bytes);
        if (error != 0)
            port->end(id, 128 + error);
        return true;
    }
    int status = EINVAL;
    if (verb == "sync") {
        status = 0;
    } else if (verb == "put") {
        std::getline(words >> std::ws, name);
        status = putFile(name, bytes);
    } else if (verb == "get") {
        std::getline(words >> std::ws, name);
        status = getFile(id, name, port);
    } else if (verb == "key" && words >> a >> b) {
        status = press(a, b);
    } else if (verb == "touch" && words >> a >> b) {
        status = touch(a, b);
    } else if (verb == "lift") {
        status = lift();
    } else if (verb == "plug" && words >> name) {
        status = plug(name);
    } else if (verb == "unplug" && words >> name) {
        status = unplug(name);
    }
    port->end(id, status);
    return true;
}

[[noreturn]] void serveForEver()
{
    Port port(openPort());
    const int stores = open(storesDevice, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    port.end("0", 0); // "I am there"
    for (;;) {
        std::vector<pollfd> waiting = {{port.fd(), POLLIN, 0}, {stores, POLLIN, 0}};
        for (const Script &script : scripts) {
            waiting.push_back({script.output, POLLIN, 0});
            waiting.push_back({script.process, POLLIN, 0});
        }
        if (poll(waiting.data(), waiting.size(), -1) < 0)
            continue;
        if (waiting[1].revents != 0)
            passStores(stores, &port);
        size_t at = 2;
        for (auto script = scripts.begin(); script != scripts.end(); at += 2) {
            // A closed output is polled no more: what counts is the end of the process.
            if (waiting[at].revents != 0 && script->output >= 0 && !pass(*script, &port)) {
                close(script->output);
                script->output = -1;
            }
            if (waiting[at + 1].revents != 0) {
                finish(*script, &port);
                script = scripts.erase(script);
            } else {
                ++script;
            }
        }
        if ((waiting[0].revents & POLLIN) != 0 && !serve(&port, stores))
            _exit(0);
        if ((waiting[0].revents & (POLLHUP | POLLERR)) != 0)
            usleep(waitUsecs); // the bench is not there at the moment
    }
}

// The boot.

std::string option(const std::string &name, const std::string &otherwise)
{
    std::ifstream commandLine("/proc/cmdline");
    std::string word;
    while (commandLine >> word) {
        if (word.compare(0, name.size() + 1, name + "=") == 0)
            return word.substr(name.size() + 1);
    }
    return otherwise;
}

bool isListed(const std::string &name, const std::string &list)
{
    return ("," + list + ",").find("," + name + ",") != std::string::npos;
}

int loadModule(const std::string &file, const std::string &parameters)
{
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    const int error = syscall(SYS_finit_module, fd, parameters.c_str(), 0) == 0 ? 0 : errno;
    close(fd);
    return error;
}

void copyFile(const std::string &from, const std::string &to)
{
    std::ofstream(to, std::ios::binary) << std::ifstream(from, std::ios::binary).rdbuf();
}

/// The emulated machine has a power key, which would be the first input device.
void removePowerKey()
{
    const std::string folder = "/sys/bus/platform/drivers/gpio-keys";
    DIR *dir = opendir(folder.c_str());
    while (const dirent *entry = dir != nullptr ? readdir(dir) : nullptr) {
        const std::string name = entry->d_name;
        struct stat status;
        if (stat((folder + "/" + name + "/driver").c_str(), &status) == 0)
            std::ofstream(folder + "/unbind") << name;
    }
    if (dir != nullptr)
        closedir(dir);
}

/// /modules/order: a module in a line, with its parameters, after those that it needs.
void loadModules(const std::string &late)
{
    std::ifstream order("/modules/order");
    std::string line;
    while (std::getline(order, line)) {
        const std::string name = line.substr(0, line.find(' '));
        const std::string parameters =
            line.size() > name.size() ? line.substr(name.size() + 1) : "";
        const std::string file = "/modules/" + name + ".ko";
        if (isListed(name, late)) {
            copyFile(file, std::string(lateFolder) + "/" + name + ".ko");
            continue;
        }
        const int error = loadModule(file, parameters);
        // ENODEV: one of several ways to do something, and not this machine's.
        if (error != 0 && error != EEXIST && error != ENODEV)
            printf("keypad: module %s: %s\n", name.c_str(), strerror(error));
    }
}

void mountFirst()
{
    mkdir("/proc", 0755);
    mkdir("/sys", 0755);
    mkdir("/dev", 0755);
    mkdir("/run", 0755);
    mkdir("/root", 0755);
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    mount("devtmpfs", "/dev", "devtmpfs", MS_NOSUID, "mode=0755");
    mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=20%");
    const int console = open("/dev/console", O_RDWR);
    for (int fd = 0; console >= 0 && fd < 3; ++fd)
        dup2(console, fd);
}

/// What the board's udev and its like find in /run.
void furnish()
{
    mkdir(lateFolder, 0755);
    mkdir("/run/udev", 0755);
    mkdir("/run/udev/rules.d", 0755);
    copyFile("/70-keypad.rules", "/run/udev/rules.d/70-keypad.rules");
    for (const std::string script : {"/install-base.sh", "/install-tool.sh"}) {
        copyFile(script, lateFolder + script);
        chmod((lateFolder + script).c_str(), 0755);
    }
}

void enterRoot()
{
    while (mount(rootDevice, "/root", "ext4", 0, nullptr) != 0)
        usleep(waitUsecs);
    for (const char *folder : {"/proc", "/sys", "/dev", "/run"}) {
        mkdir((std::string("/root") + folder).c_str(), 0755);
        mount(folder, (std::string("/root") + folder).c_str(), nullptr, MS_MOVE, nullptr);
    }
    if (chdir("/root") != 0 || mount(".", "/", nullptr, MS_MOVE, nullptr) != 0 ||
        chroot(".") != 0 || chdir("/") != 0)
        printf("keypad: %s cannot be the root: %s\n", rootDevice, strerror(errno));
}

/// Starts @p program, waits for it, and lets go of the machine.
[[noreturn]] void runAlone(const std::string &program)
{
    const pid_t pid = fork();
    if (pid == 0) {
        execl(program.c_str(), program.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    while (waitpid(-1, nullptr, 0) != pid) {
    }
    sync();
    mount(nullptr, "/", nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
    reboot(RB_AUTOBOOT);
    for (;;)
        pause();
}

} // namespace

int main()
{
    mountFirst();
    furnish();
    signal(SIGPIPE, SIG_IGN);
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    const std::string late = option("keypad.late", "");
    removePowerKey();
    loadModules(late);
    // The home key first: the board's first input device is where the tool looks for it.
    for (const char *device : {"home", "touch"}) {
        const int error = isListed(device, late) ? 0 : plug(device);
        if (error != 0)
            printf("keypad: input device %s: %s\n", device, strerror(error));
    }
    enterRoot();
    const std::string alone = option("keypad.run", "");
    if (!alone.empty())
        runAlone(alone);
    const std::string program = option("keypad.init", "/sbin/init");
    const pid_t agent = fork();
    if (agent == 0) {
        setsid();
        serveForEver();
    }
    for (const auto &input : inputs)
        close(input.second);
    execl(program.c_str(), program.c_str(), static_cast<char *>(nullptr));
    printf("keypad: %s cannot be started: %s\n", program.c_str(), strerror(errno));
    for (;;)
        pause();
}
