#include "bench/line/vmunit.h"

#include "bench/line/fault.h"
#include "bench/line/findings.h"
#include "bench/line/vmfault.h"
#include "bench/station/station.h"

#include <QThread>

#include <algorithm>
#include <iterator>

#include <unistd.h>

namespace
{

const int LaterStep = 4; // by then the unit has spoken and its screen was looked at
/// Measured on two busy processors: what takes a board one second takes the emulator
/// up to six.
const int Slowness = 8;
const int SlowLimitMs = 180000; ///< what takes a board longer is not that much slower
const int ShortestTouchMs = 300;

const char Board[] = "/sys/devices/platform/keypad-board/";

/// What the board's hot-plug script does.
const char CardIn[] = "mount -o loop /usr/share/keypad/card.img /media/mmcblk0p1 && "
                      "echo '#/media/mmcblk0p1' >/tmp/sdstat";
const char CardOut[] = "umount /media/mmcblk0p1; echo '!/media/mmcblk0p1' >/tmp/sdstat";

/// Why it may not have come to a fault; empty for one that the board has from the start.
QString momentOf(const Fault &fault)
{
    if (VmFault::byName(QLatin1String(fault.name)).later)
        return QStringLiteral("no step from the fourth on began while the tool ran");
    if (fault.homeSticks)
        return QStringLiteral("the home key was never released");
    return QString();
}

} // namespace

VmUnit::VmUnit(const VmBoardOptions &options, const QList<const Fault *> &faults)
    : m_options(options), m_faults(faults), m_board(options)
{
    std::copy_if(faults.begin(), faults.end(), std::back_inserter(m_awaited),
                 [](const Fault *fault) { return !momentOf(*fault).isEmpty(); });
}

VmUnit::~VmUnit() = default;

QString VmUnit::description() const
{
    return m_options.line == VmBoardOptions::Usb
               ? QStringLiteral("emulated board, line over a USB adapter")
               : QStringLiteral("emulated board, line over a 16550");
}

int VmUnit::limitFor(int limitMs) const
{
    return std::max(limitMs, std::min(limitMs * Slowness, SlowLimitMs));
}

bool VmUnit::attach(Station *station, QString *error)
{
    if (!m_board.prepare()) {
        *error = m_board.errorString();
        return false;
    }
    // The station closes what it is given, and so does the board.
    station->adopt(dup(m_board.lineFd()));
    return true;
}

void VmUnit::beginStep()
{
    m_firstStore = static_cast<int>(m_board.isOn() ? m_board.stores().size() : 0);
    m_firstLine = static_cast<int>(m_board.log().size());
    if (++m_steps < LaterStep || !m_board.isOn() || m_board.ending().known)
        return;
    hadItsMoment([this](const Fault &fault) {
        const char *script = VmFault::byName(QLatin1String(fault.name)).later;
        return script && m_board.run(script);
    });
}

void VmUnit::hadItsMoment(const std::function<bool(const Fault &fault)> &had)
{
    m_awaited.erase(std::remove_if(m_awaited.begin(), m_awaited.end(),
                                   [&had](const Fault *fault) { return had(*fault); }),
                    m_awaited.end());
}

Unit::Done VmUnit::operate(const Plan::Operation &operation, bool, int, QString *error)
{
    for (const Plan::Action &action : operation.actions) {
        m_error.clear();
        if (perform(action))
            continue;
        *error = QStringLiteral("\"%1\" could not be done: %2")
                     .arg(operation.ask, m_error.isEmpty() ? m_board.errorString() : m_error);
        return Impossible;
    }
    return Performed;
}

bool VmUnit::perform(const Plan::Action &action)
{
    switch (action.kind) {
    case Plan::Action::Power:
        return switchPower(action.on);
    case Plan::Action::Home:
        return moveHome(action.on);
    case Plan::Action::Tamper:
        return done(m_board.agent().put(QLatin1String(Board) + QLatin1String("tamper"),
                                        action.on ? "open" : "closed"));
    case Plan::Action::Card:
        // A card that cannot be mounted is no event, and no failure of the hand.
        return done(m_board.agent().run(action.on ? CardIn : CardOut)) || action.on;
    case Plan::Action::Touch:
        return touch(action.point, action.holdMs);
    }
    return false;
}

bool VmUnit::moveHome(bool down)
{
    const bool sticks = std::any_of(m_faults.begin(), m_faults.end(),
                                    [](const Fault *fault) { return fault->homeSticks; });
    if (down || !sticks)
        return done(m_board.agent().ask(down ? "key 102 1" : "key 102 0"));
    hadItsMoment([](const Fault &fault) { return fault.homeSticks; });
    return true;
}

bool VmUnit::done(const Agent::Answer &answer)
{
    if (!answer.came)
        m_error = QStringLiteral("the board does not answer");
    else if (answer.status != 0)
        m_error = QStringLiteral("%1 (status %2)")
                      .arg(QString::fromUtf8(answer.output.trimmed()))
                      .arg(answer.status);
    return answer.ok();
}

bool VmUnit::switchPower(bool on)
{
    if (!on) {
        m_board.powerOff();
        return true;
    }
    m_firstStore = 0; // the board counts from its start
    if (!m_board.powerOn() || !plantFaults())
        return false;
    // One that is never started fails the step by its silence.
    m_board.waitForTool();
    return m_board.isOn();
}

bool VmUnit::plantFaults()
{
    for (const Fault *fault : m_faults) {
        const VmFault &played = VmFault::byName(QLatin1String(fault->name));
        if (played.script && !m_board.run(played.script))
            return false;
    }
    return true;
}

/// A finger's time is the board's: one that is slow needs it longer.
bool VmUnit::touch(const QPoint &point, int holdMs)
{
    const QByteArray at = QByteArray::number(point.x()) + ' ' + QByteArray::number(point.y());
    if (!done(m_board.agent().ask("touch " + at)))
        return false;
    QThread::msleep(static_cast<unsigned long>(std::max(ShortestTouchMs, holdMs * Slowness / 2)));
    return done(m_board.agent().ask("lift"));
}

Unit::Done VmUnit::look(const QString &, int, QString *)
{
    return Impossible; // no person is asked; the board checks of a step look
}

Unit::Finding VmUnit::check(const Plan::Check &check, Difference *difference)
{
    QString *found = &difference->found;
    switch (check.kind) {
    case Plan::Check::Stores:
        return checkStores(check, difference);
    case Plan::Check::Attribute: {
        const Agent::Answer answer = m_board.agent().get(check.path);
        if (answer.ok())
            return Findings::text(check, answer.output, found);
        *found = QStringLiteral("no such attribute");
        return NotYet;
    }
    case Plan::Check::File: {
        const Agent::Answer answer = m_board.agent().get(check.path);
        return Findings::file(check, answer.ok(), answer.output, found);
    }
    case Plan::Check::Pixel:
        return Findings::pixel(check, m_board.screen(), found);
    case Plan::Check::Log:
        return checkLog(check, found);
    case Plan::Check::Exit:
        return checkExit(check, found);
    }
    return CannotLook;
}

Unit::Finding VmUnit::checkStores(const Plan::Check &check, Difference *difference)
{
    QList<MadeStore> made;
    const QList<VmBoard::Store> all = m_board.stores().mid(m_firstStore);
    for (const VmBoard::Store &store : all)
        made.append({store.path, store.text, store.error != 0});
    return Findings::stores(check, made, difference);
}

Unit::Finding VmUnit::checkLog(const Plan::Check &check, QString *found)
{
    QStringList texts;
    const QList<Journal::Entry> lines = m_board.log().mid(m_firstLine);
    for (const Journal::Entry &line : lines)
        texts.append(line.text);
    return Findings::log(check, texts, found);
}

Unit::Finding VmUnit::checkExit(const Plan::Check &check, QString *found)
{
    *found = ending();
    if (found->isEmpty()) {
        *found = QStringLiteral("it still runs");
        return NotYet;
    }
    return m_board.ending().status == check.status ? Holds : Broken;
}

QImage VmUnit::screen()
{
    return m_board.isOn() ? m_board.screen() : QImage();
}

QString VmUnit::end()
{
    return m_steps > 0 ? ending() : QString();
}

QString VmUnit::ending() const
{
    const VmBoard::Ending ending = m_board.ending();
    if (!ending.known)
        return QString();
    return Findings::ending(ending.status, ending.signal);
}

QByteArray VmUnit::log()
{
    QByteArray text;
    const QList<Journal::Entry> lines = m_board.log();
    for (const Journal::Entry &line : lines) {
        text += QStringLiteral("%1 %2 %3\n")
                    .arg(line.time, -12)
                    .arg(line.severity, -8)
                    .arg(line.text)
                    .toUtf8();
    }
    return text;
}

QString VmUnit::missedFault() const
{
    if (m_awaited.isEmpty())
        return QString();
    const Fault &fault = *m_awaited.first();
    return QStringLiteral("the fault \"%1\" was never injected: %2")
        .arg(QLatin1String(fault.name), momentOf(fault));
}
