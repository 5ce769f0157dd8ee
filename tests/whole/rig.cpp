#include "tests/whole/rig.h"

#include "tests/support/processes.h"

#include <QDirIterator>
#include <QSaveFile>
#include <QTest>

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{

const char receivedText[] = "Got_newsocket:";

/// One step of a patient wait.
const int moment = 20; // ms

/// Empty when it is not installed. It lives in a folder named after the machine.
QString fakeTimeLibrary()
{
    QDirIterator it(QStringLiteral("/usr/lib"), {QStringLiteral("libfaketimeMT.so.1")}, QDir::Files,
                    QDirIterator::Subdirectories);
    return it.hasNext() ? it.next() : QString();
}

QString written(const Station::Received &received)
{
    switch (received.kind) {
    case Station::Received::Text:
        return QStringLiteral("line ") + QString::fromLatin1(received.line());
    case Station::Received::DamagedFrame:
        return QStringLiteral("damaged ") + QString::fromLatin1(received.raw);
    case Station::Received::GoodFrame:
        break;
    }
    const QString type = QString::number(received.frame.type, 16).rightJustified(4, u'0').toUpper();
    if (received.frame.data.isEmpty())
        return type;
    return type + u' ' + QString::fromLatin1(received.frame.data);
}

QString written(const SysfsModel::Store &store)
{
    QString path = store.path;
    if (path.startsWith(QLatin1String("/sys/class/")))
        path.remove(0, int(strlen("/sys/class/")));
    const QString text = path + u'=' + QString::fromLatin1(store.text);
    return store.error == 0 ? text : text + QStringLiteral(" refused");
}

/// The thread that watches the card logs at any time.
bool isOfCardThread(const QString &text)
{
    return text == QLatin1String("In ATE Mode--->, SDMon thread started") ||
           text == QLatin1String("In ATE Mode--->, Waiting for SD event") ||
           text == QLatin1String("In ATE Mode--->, Received SD event");
}

/// Whether all threads of the process wait for something to do.
bool sleeps(qint64 pid)
{
    const QByteArray states = process::states(pid);
    return !states.isEmpty() && states.count('S') == states.size();
}

/// Qt's own complaint about what it draws on.
bool isOfPlatform(const QString &text)
{
    return text.startsWith(QLatin1String("This plugin does not support "));
}

QStringList written(const QList<VirtualKeypad::LogLine> &log)
{
    QStringList lines;
    for (const VirtualKeypad::LogLine &line : log) {
        if (line.severity == QLatin1String("output") ||
            line.text.startsWith(QLatin1String(receivedText)) || isOfCardThread(line.text) ||
            isOfPlatform(line.text))
            continue;
        lines.append(line.severity + QStringLiteral(": ") + line.text);
    }
    return lines;
}

} // namespace

void skipProgram(const QString &reason)
{
    printf("SKIPPED: %s\n", qPrintable(reason));
    fflush(stdout);
}

bool RigKeypad::waitForExit()
{
    return Patience::wait([this] { return VirtualKeypad::waitForExit(moment); });
}

bool RigKeypad::waitForLog(const QString &text)
{
    return Patience::wait([&] { return VirtualKeypad::waitForLog(text, moment); });
}

bool RigKeypad::waitForStore(const QString &path, const QByteArray &text)
{
    return Patience::wait([&] { return VirtualKeypad::waitForStore(path, text, moment); });
}

bool RigKeypad::waitForPixel(int x, int y, QRgb colour)
{
    return Patience::wait([&] { return VirtualKeypad::waitForPixel(x, y, colour, moment); });
}

bool RigKeypad::insertCard(const QString &dir)
{
    return Patience::wait([&] { return VirtualKeypad::insertCard(dir, moment); });
}

bool RigKeypad::removeCard(const QString &dir)
{
    return Patience::wait([&] { return VirtualKeypad::removeCard(dir, moment); });
}

std::optional<Station::Received> RigStation::receive(int ownPause)
{
    std::optional<Received> received;
    const auto ask = [&] {
        received = Station::receive(0);
        if (received || !isOpen() || isHungUp())
            return true;
        pollfd line = {descriptor(), POLLIN, 0};
        ::poll(&line, 1, moment);
        QCoreApplication::processEvents();
        return false;
    };
    // The beginning of a frame that breaks off is seen, too.
    return Patience::wait(ask, ownPause) ? received : Station::receive(1);
}

std::optional<wire::Frame> RigStation::waitFor(quint16 type)
{
    for (;;) {
        const std::optional<Received> received = receive();
        if (!received)
            return std::nullopt;
        if (received->isFrame() && received->frame.type == type)
            return received->frame;
    }
}

bool RigStation::expect(quint16 type, const QByteArray &data)
{
    return expectRaw(wire::buildFrame(wire::Sender::Keypad, type, data) + "\r\n");
}

bool RigStation::expectLine(const QByteArray &text)
{
    return expectRaw(text + "\r\n");
}

bool RigStation::expectRaw(const QByteArray &raw)
{
    const std::optional<Received> received = receive();
    if (!received || received->raw == raw)
        return received.has_value();
    qWarning("%s instead of %s", received->raw.constData(), raw.constData());
    return false;
}

Rig::Rig(const KeypadOptions &options) : keypad(options) {}

bool Rig::start()
{
    if (!keypad.start()) {
        m_why = keypad.errorString();
        return false;
    }
    station.adopt(fcntl(keypad.lineFd(), F_DUPFD_CLOEXEC, 0));
    return true;
}

bool Rig::startReady()
{
    if (!start())
        return false;
    if (!station.waitForReady()) {
        m_why = station.errorString();
        return false;
    }
    forget();
    return true;
}

Outcome Rig::request(quint16 type, const QByteArray &data)
{
    return raw(wire::buildFrame(wire::Sender::Station, type, data) + "\r\n");
}

Outcome Rig::raw(const QByteArray &bytes)
{
    // What is still on its way must not be taken for a result of these bytes.
    collect();
    forget();
    if (!station.sendRaw(bytes))
        return {{station.errorString()}, {}, {}};
    // Once it has been read, the echo after it is a read of its own.
    if (!keypad.waitForLog(QLatin1String(receivedText)))
        return {{QStringLiteral("(not read)")}, log(), stores()};
    return collect();
}

bool Rig::mount()
{
    station.clear();
    return station.send(wire::MountRequest) && next() == QLatin1String("0004") &&
           next(Patience::mountPause) == QLatin1String("7061 01");
}

Outcome Rig::settle()
{
    // Looked at twice: one thread may hand something to another between two looks.
    const qint64 pid = keypad.toolPid();
    if (!QTest::qWaitFor([pid] { return sleeps(pid) && sleeps(pid); }, 20000))
        return {{QStringLiteral("(the tool does not come to rest)")}, log(), stores()};
    return collect();
}

Outcome Rig::collect()
{
    const QByteArray token = newEcho();
    const QString echo = QStringLiteral("6003 ") + QString::fromLatin1(token);
    Outcome outcome;
    station.send(wire::EchoRequest, token);
    for (;;) {
        const std::optional<Station::Received> received = station.receive();
        if (!received) {
            outcome.line.append(u'(' + station.errorString() + u')');
            break;
        }
        if (written(*received) == echo)
            break;
        outcome.line.append(written(*received));
    }
    keypad.waitForLog(QString::fromLatin1(token));
    outcome.log = log();
    outcome.stores = stores();
    return outcome;
}

QByteArray Rig::newEcho()
{
    return "E0" + QByteArray::number(++m_echoes).rightJustified(8, '0') + "E0";
}

QString Rig::next(int ownPause)
{
    const std::optional<Station::Received> received = station.receive(ownPause);
    return received ? written(*received) : u'(' + station.errorString() + u')';
}

QStringList Rig::log()
{
    return written(keypad.log());
}

QStringList Rig::wholeLog()
{
    return m_forgottenLog + log();
}

bool Rig::waitForLog(const QString &line)
{
    const QString text = line.mid(line.indexOf(QLatin1String(": ")) + 2);
    keypad.waitForLog(text);
    return log().contains(line);
}

QStringList Rig::stores()
{
    QStringList lines;
    const QList<SysfsModel::Store> all = keypad.stores();
    for (const SysfsModel::Store &store : all)
        lines.append(written(store));
    return lines;
}

void Rig::forget()
{
    station.clear();
    m_forgottenLog += written(keypad.clearLog());
    keypad.clearStores();
}

qint64 processorTime(qint64 pid)
{
    const QList<QByteArray> fields = process::stat(pid);
    if (fields.isEmpty())
        return -1;
    // User and system time.
    const qint64 ticks = fields.value(11).toLongLong() + fields.value(12).toLongLong();
    return ticks * 1000 / sysconf(_SC_CLK_TCK);
}

QString ToolClock::whyNot()
{
    return fakeTimeLibrary().isEmpty() ? QStringLiteral("libfaketime is not installed") : QString();
}

void ToolClock::wind(KeypadOptions &options)
{
    set(0);
    options.visible.append(m_folder.path());
    options.environment.insert(QStringLiteral("LD_PRELOAD"), fakeTimeLibrary());
    options.environment.insert(QStringLiteral("FAKETIME_TIMESTAMP_FILE"),
                               m_folder.filePath(QStringLiteral("clock")));
    options.environment.insert(QStringLiteral("FAKETIME_NO_CACHE"), QStringLiteral("1"));
    // Where the tool is built with a sanitizer, that library cannot be the first one.
    options.environment.insert(QStringLiteral("ASAN_OPTIONS"),
                               qEnvironmentVariable("ASAN_OPTIONS") +
                                   QStringLiteral(":verify_asan_link_order=0"));
}

bool ToolClock::set(int seconds)
{
    // Replaced as a whole: the tool may look at any moment.
    QSaveFile file(m_folder.filePath(QStringLiteral("clock")));
    file.open(QIODevice::WriteOnly);
    file.write('+' + QByteArray::number(seconds) + '\n');
    return file.commit();
}
