#include "bench/line/vmunit.h"

#include "bench/line/fault.h"
#include "bench/line/vmfault.h"
#include "bench/station/station.h"

#include <algorithm>

#include <unistd.h>

namespace
{

/// Measured on two busy processors: what takes a board one second takes the emulator
/// up to six.
const int Slowness = 8;
const int SlowLimitMs = 180000; ///< limits are not stretched beyond this
const int ShortestTouchMs = 300;
const int TouchFactor = 2; ///< how much longer a finger stays than it has to

const char Board[] = "/sys/devices/platform/keypad-board/";

/// What the board's hot-plug script does.
const char CardIn[] = "mount -o loop /usr/share/keypad/card.img /media/mmcblk0p1 && "
                      "echo '#/media/mmcblk0p1' >/tmp/sdstat";
const char CardOut[] = "umount /media/mmcblk0p1; echo '!/media/mmcblk0p1' >/tmp/sdstat";

} // namespace

VmUnit::VmUnit(const VmBoardOptions &options, const QList<const Fault *> &faults)
    : PlayedUnit(faults, momentOf), m_options(options), m_board(options)
{
}

QString VmUnit::momentOf(const Fault &fault)
{
    if (VmFault::byName(QLatin1String(fault.name)).later)
        return noLateStep();
    if (fault.homeSticks)
        return noRelease();
    return QString();
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
    if (!isLate() || !m_board.isOn() || m_board.ending().known)
        return;
    hadItsMoment([this](const Fault &fault) {
        const char *script = VmFault::byName(QLatin1String(fault.name)).later;
        return script && m_board.run(script);
    });
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
        // A card that cannot be mounted causes no event, but that is not the operation's
        // failure.
        return done(m_board.agent().run(action.on ? CardIn : CardOut)) || action.on;
    case Plan::Action::Touch:
        return touch(action.point, action.holdMs);
    }
    return false;
}

bool VmUnit::pushHome(bool down)
{
    return done(m_board.agent().ask(down ? "key 102 1" : "key 102 0"));
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
    // If it is never started, its silence fails the step.
    m_board.waitForTool();
    return m_board.isOn();
}

bool VmUnit::plantFaults()
{
    for (const Fault *fault : faults()) {
        const VmFault &played = VmFault::byName(QLatin1String(fault->name));
        if (played.script && !m_board.run(played.script))
            return false;
    }
    return true;
}

/// A finger's time is the board's, whose clock is not this PC's.
bool VmUnit::touch(const QPoint &point, int holdMs)
{
    const QByteArray at = QByteArray::number(point.x()) + ' ' + QByteArray::number(point.y());
    if (!done(m_board.agent().ask("touch " + at)))
        return false;
    const int ms = std::max(ShortestTouchMs, holdMs * TouchFactor);
    return done(m_board.agent().run("sleep " + QByteArray::number(ms / 1000.0))) &&
           done(m_board.agent().ask("lift"));
}

QList<MadeStore> VmUnit::stores()
{
    QList<MadeStore> made;
    const QList<VmBoard::Store> all = m_board.stores().mid(m_firstStore);
    for (const VmBoard::Store &store : all)
        made.append({store.path, store.text, store.error != 0});
    return made;
}

QStringList VmUnit::logTexts()
{
    QStringList texts;
    const QList<Journal::Entry> lines = m_board.log().mid(m_firstLine);
    for (const Journal::Entry &line : lines)
        texts.append(line.text);
    return texts;
}

std::optional<QByteArray> VmUnit::attribute(const QString &path)
{
    return file(path);
}

std::optional<QByteArray> VmUnit::file(const QString &path)
{
    const Agent::Answer answer = m_board.agent().get(path);
    return answer.ok() ? std::optional<QByteArray>(answer.output) : std::nullopt;
}

QImage VmUnit::screen()
{
    return m_board.isOn() ? m_board.screen() : QImage();
}

QString VmUnit::end()
{
    return hasBegun() ? shownEnding() : QString();
}

PlayedUnit::Ending VmUnit::ending()
{
    const VmBoard::Ending ending = m_board.ending();
    return {ending.known, ending.status, ending.signal};
}

QString VmUnit::whyNoEnding()
{
    return QStringLiteral("it still runs");
}

QByteArray VmUnit::log()
{
    QByteArray text;
    const QList<Journal::Entry> lines = m_board.log();
    for (const Journal::Entry &line : lines)
        text += logLine(line.time, line.severity, line.text);
    return text;
}
