#include "bench/keypad/boardroot.h"

#include "bench/keypad/hostprotocol.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace
{

const char oldRoot[] = "/oldroot";
const char newRoot[] = "/newroot";

QString failure(const char *what)
{
    return QStringLiteral("cannot %1: %2").arg(QLatin1String(what), QLatin1String(strerror(errno)));
}

QByteArray inNew(const QByteArray &path)
{
    return newRoot + path;
}

QByteArray inOld(const QByteArray &path)
{
    return oldRoot + path;
}

void makeDirs(const QByteArray &path)
{
    for (int slash = int(path.indexOf('/', 1)); slash > 0;
         slash = int(path.indexOf('/', slash + 1)))
        mkdir(path.left(slash).constData(), 0755);
    mkdir(path.constData(), 0755);
}

void writeFile(const QByteArray &path, const QByteArray &content)
{
    const int fd = open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    if (write(fd, content.constData(), size_t(content.size())) < 0)
        qWarning("keypad: cannot write %s", path.constData());
    close(fd);
}

/// A file of that size that takes no memory.
void writeHole(const QByteArray &path, off_t size)
{
    writeFile(path, QByteArray());
    if (truncate(path.constData(), size) != 0)
        qWarning("keypad: cannot size %s", path.constData());
}

/// Shows @p from, a file or folder with what is mounted below it, at @p to.
bool bind(const QByteArray &from, const QByteArray &to)
{
    struct stat status;
    if (stat(from.constData(), &status) != 0)
        return false;
    if (S_ISDIR(status.st_mode))
        mkdir(to.constData(), 0755);
    else
        close(open(to.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    return mount(from.constData(), to.constData(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

void copySmallFile(const QByteArray &from, const QByteArray &to)
{
    QFile source(QFile::decodeName(from));
    if (source.open(QIODevice::ReadOnly))
        writeFile(to, source.readAll());
}

enum Files { BindFiles, CopyFiles };

/// Shows every entry of @p from in @p to, except some; links stay links. What cannot be
/// shown, such as a file system that is gone, is left out.
void mirror(const QByteArray &from, const QByteArray &to, const QList<QByteArray> &except,
            Files files = BindFiles)
{
    mkdir(to.constData(), 0755);
    DIR *folder = opendir(from.constData());
    if (folder == nullptr)
        return;
    while (const dirent *entry = readdir(folder)) {
        const QByteArray name = entry->d_name;
        if (name == "." || name == ".." || except.contains(name))
            continue;
        const QByteArray source = from + '/' + name;
        const QByteArray target = to + '/' + name;
        struct stat status;
        if (lstat(source.constData(), &status) != 0)
            continue;
        if (S_ISLNK(status.st_mode)) {
            char buffer[4096] = {};
            if (readlink(source.constData(), buffer, sizeof buffer - 1) > 0 &&
                symlink(buffer, target.constData()) != 0)
                qWarning("keypad: cannot link %s", target.constData());
        } else if (files == CopyFiles && S_ISREG(status.st_mode)) {
            copySmallFile(source, target);
        } else {
            bind(source, target);
        }
    }
    closedir(folder);
}

/// The PC's /etc, where changes stay in the keypad. A file there must be
/// replaceable by rename, so files may not be mount points.
void showEtc()
{
    const QByteArray etc = inNew("/etc");
    mkdir(etc.constData(), 0755);
    mkdir("/etc-changes", 0755);
    mkdir("/etc-work", 0755);
    const QByteArray options =
        "lowerdir=" + inOld("/etc") + ",upperdir=/etc-changes,workdir=/etc-work";
    if (mount("overlay", etc.constData(), "overlay", 0, options.constData()) == 0) {
        // The PC's own calibration does not belong to the keypad.
        unlink((etc + "/pointercal").constData());
        return;
    }
    // Some user namespaces allow no overlay.
    mirror(inOld("/etc"), etc, {"pointercal"}, CopyFiles);
}

void showDevices(const QByteArray &line)
{
    const QByteArray dev = inNew("/dev");
    mkdir(dev.constData(), 0755);
    for (const char *node :
         {"/null", "/zero", "/full", "/random", "/urandom", "/tty", "/fuse", "/pts"})
        bind(inOld("/dev") + node, dev + node);
    mkdir((dev + "/shm").constData(), 01777);
    chmod((dev + "/shm").constData(), 01777);
    bind(inOld(line), dev + "/ttySP0");
    mkdir((dev + "/input").constData(), 0755);
    mkfifo((dev + "/input/event0").constData(), 0600);
    const char *links[][2] = {{"pts/ptmx", "/ptmx"},
                              {"/proc/self/fd", "/fd"},
                              {"/proc/self/fd/0", "/stdin"},
                              {"/proc/self/fd/1", "/stdout"},
                              {"/proc/self/fd/2", "/stderr"}};
    for (const auto &link : links) {
        if (symlink(link[0], (dev + link[1]).constData()) != 0)
            qWarning("keypad: cannot link %s", link[1]);
    }
}

void showBoardPlaces()
{
    for (const char *dir : {"/sys", "/run", "/root", "/mnt", "/media/mmcblk0p1", "/home/default",
                            "/usr/lib/panel", "/boot/fw-1.2", "/run/bench/xdg"})
        makeDirs(inNew(dir));
    chmod(inNew("/run/bench/xdg").constData(), 0700);
    writeFile(inNew("/usr/lib/panel/version"), "20140101 1.2\n");
    const off_t eraseBlock = 128 * 1024;
    writeHole(inNew("/boot/fw-1.2/imx28_ivt_linux.sb"), 20 * eraseBlock);
    writeHole(inNew("/boot/fw-1.2/qm8velrootfs.ubi"), 87 * eraseBlock);
    mkdir(inNew("/tmp").constData(), 01777);
    chmod(inNew("/tmp").constData(), 01777);
    bind(inOld("/tmp/.X11-unix"), inNew("/tmp/.X11-unix"));
}

void showStandins(const QString &programsDir)
{
    for (const char *dir :
         {BenchPlace::programs, BenchPlace::captures, BenchPlace::plays, BenchPlace::calls})
        makeDirs(inNew(dir));
    const QByteArray standin = inOld(QFile::encodeName(programsDir) + "/keypad-standin");
    bind(standin, inNew("/run/bench/keypad-standin"));
    for (const char *name : {"kobs-ng", "ubiformat", "ubiattach", "mount"}) {
        const QByteArray path = inNew(BenchPlace::programs) + '/' + name;
        if (symlink("../keypad-standin", path.constData()) != 0)
            qWarning("keypad: cannot link %s", path.constData());
    }
    const QDir captures(QStringLiteral(":/captures"));
    const QStringList names = captures.entryList();
    for (const QString &name : names) {
        QFile capture(captures.filePath(name));
        if (capture.open(QIODevice::ReadOnly))
            writeFile(inNew(BenchPlace::captures) + '/' + QFile::encodeName(name),
                      capture.readAll());
    }
}

void showHidden(QStringList visible)
{
    // A folder that was made for one inside it would be taken for there already.
    std::sort(visible.begin(), visible.end());
    for (const QString &path : std::as_const(visible)) {
        const QByteArray local = QFile::encodeName(path);
        const QByteArray target = inNew(local);
        struct stat status;
        if (stat(target.constData(), &status) == 0)
            continue;
        makeDirs(target.left(target.lastIndexOf('/')));
        bind(inOld(local), target);
    }
}

int pivotRoot(const char *root, const char *old)
{
    return int(syscall(SYS_pivot_root, root, old));
}

} // namespace

QString BoardRoot::build() const
{
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return failure("make the mount namespace private");
    // First a tmpfs becomes the root with the PC's below it, so that nothing of the PC
    // hides anything else while the board is put together.
    if (mount("keypad", "/tmp", "tmpfs", MS_NOSUID, "mode=755") != 0)
        return failure("mount a tmpfs");
    if (chdir("/tmp") != 0 || mkdir("oldroot", 0755) != 0 || mkdir("newroot", 0755) != 0 ||
        pivotRoot(".", "oldroot") != 0 || chdir("/") != 0)
        return failure("change the root");
    if (mount(newRoot, newRoot, nullptr, MS_BIND, nullptr) != 0)
        return failure("mount the board's root");

    mirror(oldRoot, newRoot,
           {"proc", "sys", "dev", "tmp", "run", "root", "boot", "mnt", "media", "etc", "home",
            "usr", "lost+found"});
    mirror(inOld("/usr"), inNew("/usr"), {"lib"});
    mirror(inOld("/usr/lib"), inNew("/usr/lib"), {"panel"});
    mirror(inOld("/home"), inNew("/home"), {"default"});
    showEtc();
    showBoardPlaces();
    showDevices(QFile::encodeName(linePath));
    showStandins(programsDir);
    showHidden(visible);
    bind(inOld(QFile::encodeName(toolDir)), inNew(BenchPlace::tool));
    mkdir(inNew("/proc").constData(), 0755);
    // A container that hides parts of its /proc may not mount another one.
    if (mount("proc", inNew("/proc").constData(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC,
              nullptr) != 0 &&
        !bind(inOld("/proc"), inNew("/proc")))
        return failure("show /proc");

    if (umount2(oldRoot, MNT_DETACH) != 0)
        return failure("leave the PC's root");
    if (chdir(newRoot) != 0 || pivotRoot(".", ".") != 0 || umount2(".", MNT_DETACH) != 0 ||
        chdir("/") != 0)
        return failure("enter the board's root");
    return QString();
}
