#include "bench/keypad/keypadconsole.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <iterator>

namespace
{

struct ErrorName {
    const char *name;
    int number;
};

const ErrorName errorNames[] = {
    {"EPERM", EPERM},   {"ENOENT", ENOENT}, {"EIO", EIO},       {"EACCES", EACCES},
    {"EBUSY", EBUSY},   {"ENODEV", ENODEV}, {"EINVAL", EINVAL}, {"EMFILE", EMFILE},
    {"ENOSPC", ENOSPC}, {"EROFS", EROFS},   {"ENOMEM", ENOMEM}, {"ETIMEDOUT", ETIMEDOUT},
};

/// What each program can play; all of them know the words of anyPlay as well.
const struct {
    const char *program;
    const char *plays;
} programs[] = {
    {"kobs-ng", "no-image"},
    {"ubiformat", "no-image attached image-too-large no-device image-truncated"},
    {"ubiattach", "twice no-ubi"},
    {"mount", "already no-volume"},
};
const char anyPlay[] = "auto good crash hang endless missing";

const int screenWidth = 800;
const int screenHeight = 480;

/// What a program can play; empty for a program that the board does not have.
QStringList playsOf(const QString &program)
{
    for (const auto &row : programs) {
        if (program == QLatin1String(row.program))
            return QString(QLatin1String(anyPlay) + QLatin1Char(' ') + QLatin1String(row.plays))
                .split(QLatin1Char(' '));
    }
    return QStringList();
}

const char noProgram[] = "a program is kobs-ng, ubiformat, ubiattach or mount";

const char voltageFile[] = "/sys/class/power_supply/corlink/voltage_now";
const char revisionFile[] = "/sys/board_revision/marlow_revision";

/// On or off, down or up, in or out: 1 for the first word, 0 for the second, -1 for others.
int choice(const QString &word, const char *first, const char *second)
{
    if (word == QLatin1String(first))
        return 1;
    return word == QLatin1String(second) ? 0 : -1;
}

/// Nothing for a line that is empty or a comment.
QStringList wordsOf(const QString &line)
{
    const QString text = line.simplified();
    return text.isEmpty() || text.startsWith(QLatin1Char('#')) ? QStringList()
                                                               : text.split(QLatin1Char(' '));
}

QString storeText(const SysfsModel::Store &store)
{
    QByteArray written = store.text;
    written.replace('\n', "\\n");
    QString text = QStringLiteral("%1 %2 \"%3\"")
                       .arg(double(store.usec) / 1e6, 10, 'f', 6)
                       .arg(store.path, QString::fromLatin1(written));
    if (store.error != 0)
        text += QLatin1String(" refused: ") + QString::fromLocal8Bit(strerror(store.error));
    return text;
}

} // namespace

const KeypadConsole::Row KeypadConsole::rows[] = {
    {"power", "on|off", "switch the keypad on or off; off ends the tool at once", 1, 1,
     &KeypadConsole::power},
    {"home", "down|up", "press or release the home key", 1, 1, &KeypadConsole::home},
    {"card", "in|out|writable|read-only|full|reads-back-wrong|no-folder",
     "insert or remove the SD card, or say how it behaves", 1, 1, &KeypadConsole::card},
    {"voltage", "N", "what the bus voltage reads, any word", 1, 1, &KeypadConsole::voltage},
    {"tamper", "on|off", "the tamper switch: on is an open enclosure", 1, 1,
     &KeypadConsole::tamper},
    {"revision", "N", "what the board revision reads; the tool looks when it starts", 1, 1,
     &KeypadConsole::revision},
    {"touch", "X Y [MS]", "touch the screen there, for so many milliseconds", 2, 3,
     &KeypadConsole::touch},
    {"screenshot", "FILE", "save what the screen shows", 1, 1, &KeypadConsole::screenshot},
    {"stores", "[PATH]", "all stores into /sys so far: time, attribute, text", 0, 1,
     &KeypadConsole::stores},
    {"show", "PATH", "what an attribute of /sys reads", 1, 1, &KeypadConsole::show},
    {"set", "PATH TEXT", "make an attribute of /sys read so", 2, 2, &KeypadConsole::set},
    {"fault", "PATH open|read|store ERROR | PATH clear",
     "make an operation on an attribute fail, with EIO, EACCES, ... or a number", 2, 3,
     &KeypadConsole::fault},
    {"remove", "PATH", "take away a device or an attribute of /sys, or a file", 1, 1,
     &KeypadConsole::remove},
    {"play", "PROGRAM WORD",
     "what kobs-ng, ubiformat, ubiattach or mount does next: auto, good, crash, hang, endless,\n"
     "missing, or the name of a captured failure (\"play mount ?\" lists them)",
     2, 2, &KeypadConsole::play},
    {"seconds", "PROGRAM S", "how long a run of it takes", 2, 2, &KeypadConsole::seconds},
    {"unplug", "", "hang up the serial line", 0, 0, &KeypadConsole::unplug},
    {"help", "", "this list", 0, 0, &KeypadConsole::help},
    {"quit", "", "end the keypad", 0, 0, &KeypadConsole::quit},
};

QString KeypadConsole::help()
{
    QString text;
    for (const Row &row : rows) {
        const QString explanation =
            QString::fromLatin1(row.help).replace(QLatin1Char('\n'), QLatin1String("\n      "));
        const QString usage =
            QStringLiteral("%1 %2").arg(QLatin1String(row.name), QLatin1String(row.arguments));
        text += QStringLiteral("  %1\n      %2\n").arg(usage.trimmed(), explanation);
    }
    return text;
}

const KeypadConsole::Row *KeypadConsole::rowOf(const QString &name)
{
    const auto row = std::find_if(std::begin(rows), std::end(rows), [&name](const Row &each) {
        return name == QLatin1String(each.name);
    });
    return row == std::end(rows) ? nullptr : row;
}

QString KeypadConsole::misspelt(const QString &line)
{
    const QStringList words = wordsOf(line);
    if (words.isEmpty())
        return QString();
    const Row *row = rowOf(words.first());
    if (!row)
        return QStringLiteral("there is no command \"%1\"; try help").arg(words.first());
    const int arguments = int(words.size()) - 1;
    if (arguments < row->least || arguments > row->most)
        return QStringLiteral("usage: %1 %2").arg(words.first(), QLatin1String(row->arguments));
    return QString();
}

KeypadConsole::Outcome KeypadConsole::execute(const QString &line)
{
    const QString wrong = misspelt(line);
    if (!wrong.isEmpty())
        return result(false, wrong);
    const QStringList words = wordsOf(line);
    return words.isEmpty() ? Outcome() : (this->*rowOf(words.first())->action)(words.mid(1));
}

KeypadConsole::Outcome KeypadConsole::result(bool ok, const QString &reason) const
{
    Outcome outcome;
    outcome.ok = ok;
    if (!ok)
        outcome.text = reason.isEmpty() ? m_keypad.errorString() : reason;
    return outcome;
}

KeypadConsole::Outcome KeypadConsole::power(const QStringList &arguments)
{
    switch (choice(arguments.first(), "on", "off")) {
    case 1:
        return powerOn();
    case 0:
        return powerOff();
    default:
        return result(false, QStringLiteral("usage: power on|off"));
    }
}

KeypadConsole::Outcome KeypadConsole::powerOn()
{
    if (m_keypad.isRunning())
        return result(false, QStringLiteral("the keypad is on"));
    if (!m_keypad.start())
        return result(false);
    m_powered = true;
    Outcome outcome;
    if (!m_keypad.displayName().isEmpty())
        outcome.text = QStringLiteral("display %1\n").arg(m_keypad.displayName());
    outcome.text += QStringLiteral("tool %1").arg(m_keypad.toolPid());
    return outcome;
}

KeypadConsole::Outcome KeypadConsole::powerOff()
{
    if (!m_powered && !m_keypad.isRunning())
        return result(false, QStringLiteral("the keypad is off"));
    m_powered = false;
    // The tool may have ended by itself; nothing else in a keypad needs power.
    return result(!m_keypad.kill(SIGKILL) || m_keypad.waitForExit());
}

KeypadConsole::Outcome KeypadConsole::home(const QStringList &arguments)
{
    const int down = choice(arguments.first(), "down", "up");
    if (down == 1)
        m_keypad.pressHome();
    else if (down == 0)
        m_keypad.releaseHome();
    return result(down >= 0, QStringLiteral("usage: home down|up"));
}

KeypadConsole::Outcome KeypadConsole::card(const QStringList &arguments)
{
    const QString word = arguments.first();
    const struct {
        const char *name;
        VirtualKeypad::Card kind;
    } kinds[] = {
        {"writable", VirtualKeypad::Writable},  {"read-only", VirtualKeypad::ReadOnly},
        {"full", VirtualKeypad::Full},          {"reads-back-wrong", VirtualKeypad::ReadsBackWrong},
        {"no-folder", VirtualKeypad::NoFolder},
    };
    for (const auto &kind : kinds) {
        if (word != QLatin1String(kind.name))
            continue;
        // An old test file would make room for the next one.
        if (kind.kind == VirtualKeypad::Full && !m_keypad.setCard(VirtualKeypad::NoFolder))
            return result(false);
        return result(m_keypad.setCard(kind.kind));
    }
    switch (choice(word, "in", "out")) {
    case 1:
        return result(m_keypad.insertCard());
    case 0:
        return result(m_keypad.removeCard());
    default:
        return result(false, QStringLiteral("there is no card \"%1\"").arg(word));
    }
}

KeypadConsole::Outcome KeypadConsole::voltage(const QStringList &arguments)
{
    return result(
        m_keypad.setAttribute(QLatin1String(voltageFile), arguments.first().toLatin1() + '\n'),
        QStringLiteral("there is no bus voltage"));
}

KeypadConsole::Outcome KeypadConsole::tamper(const QStringList &arguments)
{
    const int on = choice(arguments.first(), "on", "off");
    if (on >= 0)
        m_keypad.setTamper(on == 1);
    return result(on >= 0, QStringLiteral("usage: tamper on|off"));
}

KeypadConsole::Outcome KeypadConsole::revision(const QStringList &arguments)
{
    return result(m_keypad.setAttribute(QLatin1String(revisionFile), arguments.first().toLatin1()),
                  QStringLiteral("there is no revision file"));
}

KeypadConsole::Outcome KeypadConsole::touch(const QStringList &arguments)
{
    bool numbers[3] = {false, false, true};
    const int x = arguments.at(0).toInt(&numbers[0]);
    const int y = arguments.at(1).toInt(&numbers[1]);
    const int msecs = arguments.size() > 2 ? arguments.at(2).toInt(&numbers[2]) : 100;
    if (!numbers[0] || !numbers[1] || !numbers[2] || msecs < 0)
        return result(false, QStringLiteral("usage: touch X Y [MS]"));
    if (x < 0 || x >= screenWidth || y < 0 || y >= screenHeight)
        return result(false, QStringLiteral("the screen ends at 799 479"));
    return result(m_keypad.touch(x, y, msecs));
}

KeypadConsole::Outcome KeypadConsole::screenshot(const QStringList &arguments)
{
    return result(m_keypad.screenshot(arguments.first()));
}

KeypadConsole::Outcome KeypadConsole::stores(const QStringList &arguments)
{
    if (!arguments.isEmpty() && !arguments.first().startsWith(QLatin1String("/sys/")))
        return result(false, QStringLiteral("stores go to whole paths, beginning with /sys/"));
    const QList<SysfsModel::Store> stores =
        arguments.isEmpty() ? m_keypad.stores() : m_keypad.stores(arguments.first());
    Outcome outcome;
    QStringList lines;
    for (const SysfsModel::Store &store : stores)
        lines.append(storeText(store));
    outcome.text = lines.join(QLatin1Char('\n'));
    return outcome;
}

KeypadConsole::Outcome KeypadConsole::show(const QStringList &arguments)
{
    if (!m_keypad.hasNode(arguments.first()))
        return result(false, QStringLiteral("there is no ") + arguments.first());
    Outcome outcome;
    outcome.text = QString::fromLatin1(m_keypad.attribute(arguments.first())).trimmed();
    return outcome;
}

KeypadConsole::Outcome KeypadConsole::set(const QStringList &arguments)
{
    return result(m_keypad.setAttribute(arguments.at(0), arguments.at(1).toLatin1() + '\n'),
                  QStringLiteral("there is no ") + arguments.at(0));
}

KeypadConsole::Outcome KeypadConsole::fault(const QStringList &arguments)
{
    const QString path = arguments.at(0);
    if (arguments.size() == 2 && arguments.at(1) == QLatin1String("clear")) {
        m_keypad.clearFault(path);
        return Outcome();
    }
    if (arguments.size() < 3)
        return result(false, QStringLiteral("usage: fault PATH open|read|store ERROR"));
    const int operation =
        int(QStringList{QStringLiteral("open"), QStringLiteral("read"), QStringLiteral("store")}
                .indexOf(arguments.at(1)));
    int number = arguments.at(2).toInt();
    QStringList names;
    for (const ErrorName &error : errorNames) {
        names.append(QLatin1String(error.name));
        if (arguments.at(2) == QLatin1String(error.name))
            number = error.number;
    }
    if (operation < 0)
        return result(false, QStringLiteral("usage: fault PATH open|read|store ERROR"));
    if (number <= 0)
        return result(false, QStringLiteral("an error is a number or ") +
                                 names.join(QStringLiteral(", ")));
    // An attribute that does not exist yet may come later, such as a GPIO's when it is
    // exported.
    if (!path.startsWith(QLatin1String("/sys/")))
        return result(false, QStringLiteral("only attributes of /sys can fail"));
    m_keypad.fail(path, SysfsModel::Operation(operation), number);
    return Outcome();
}

KeypadConsole::Outcome KeypadConsole::remove(const QStringList &arguments)
{
    const QString path = arguments.first();
    return result(path.startsWith(QLatin1String("/sys/")) ? m_keypad.removeNode(path)
                                                          : m_keypad.removeFile(path),
                  QStringLiteral("cannot remove ") + path);
}

KeypadConsole::Outcome KeypadConsole::play(const QStringList &arguments)
{
    const QStringList plays = playsOf(arguments.at(0));
    if (plays.isEmpty())
        return result(false, QLatin1String(noProgram));
    if (!plays.contains(arguments.at(1)))
        return result(
            false,
            QStringLiteral("%1 plays %2").arg(arguments.at(0), plays.join(QStringLiteral(", "))));
    return result(m_keypad.setStandin(arguments.at(0), arguments.at(1)));
}

KeypadConsole::Outcome KeypadConsole::seconds(const QStringList &arguments)
{
    bool number = false;
    const double seconds = arguments.at(1).toDouble(&number);
    if (!number || !std::isfinite(seconds) || seconds < 0)
        return result(false, QStringLiteral("usage: seconds PROGRAM S"));
    if (playsOf(arguments.at(0)).isEmpty())
        return result(false, QLatin1String(noProgram));
    return result(m_keypad.setStandinSeconds(arguments.at(0), seconds));
}

KeypadConsole::Outcome KeypadConsole::unplug(const QStringList &)
{
    m_keypad.hangUp();
    return Outcome();
}

KeypadConsole::Outcome KeypadConsole::help(const QStringList &)
{
    Outcome outcome;
    outcome.text = help();
    return outcome;
}

KeypadConsole::Outcome KeypadConsole::quit(const QStringList &)
{
    m_over = true;
    return Outcome();
}
