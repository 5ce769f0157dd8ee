#include "bench/line/virtualunit.h"

#include "bench/line/fault.h"
#include "bench/line/findings.h"
#include "bench/station/station.h"

#include <algorithm>
#include <csignal>
#include <iterator>

#include <unistd.h>

namespace
{

const int LaterStep = 4; // by then the unit has spoken and its screen was looked at
/// The boot stream is the smaller part of a flash.
const double BootShare = 0.35;

KeypadOptions keypadOptions(const VirtualUnitOptions &options)
{
    KeypadOptions keypad;
    keypad.display = options.display;
    for (const Fault *fault : options.faults) {
        if (fault->choose)
            fault->choose(&keypad);
    }
    return keypad;
}

/// Why it may not have come to a fault; empty for one that the unit has from the start.
QString momentOf(const Fault &fault)
{
    if (fault.later)
        return QStringLiteral("no step from the fourth on began while the tool ran");
    if (fault.homeSticks)
        return QStringLiteral("the home key was never released");
    if (fault.card != VirtualKeypad::Writable)
        return QStringLiteral("no card was put in");
    return QString();
}

} // namespace

VirtualUnit::VirtualUnit(const VirtualUnitOptions &options)
    : m_options(options), m_keypad(keypadOptions(options))
{
    std::copy_if(options.faults.begin(), options.faults.end(), std::back_inserter(m_awaited),
                 [](const Fault *fault) { return !momentOf(*fault).isEmpty(); });
}

VirtualUnit::~VirtualUnit() = default;

QString VirtualUnit::description() const
{
    return QStringLiteral("virtual keypad");
}

bool VirtualUnit::attach(Station *station, QString *error)
{
    if (!m_keypad.prepare()) {
        *error = m_keypad.errorString();
        return false;
    }
    m_keypad.setCard(VirtualKeypad::NoFolder);
    m_keypad.setStandinSeconds(QStringLiteral("kobs-ng"), m_options.flashSeconds * BootShare);
    m_keypad.setStandinSeconds(QStringLiteral("ubiformat"),
                               m_options.flashSeconds * (1 - BootShare));
    for (const Fault *fault : m_options.faults) {
        if (fault->prepare)
            fault->prepare(&m_keypad);
    }
    // The station closes what it is given, and so does the keypad.
    station->adopt(dup(m_keypad.lineFd()));
    return true;
}

void VirtualUnit::beginStep()
{
    m_firstStore = static_cast<int>(m_keypad.stores().size());
    m_firstLine = static_cast<int>(m_keypad.log().size());
    if (++m_steps < LaterStep)
        return;
    hadItsMoment([this](const Fault &fault) { return fault.later && fault.later(&m_keypad); });
}

Unit::Done VirtualUnit::operate(const Plan::Operation &operation, bool, int, QString *error)
{
    for (const Plan::Action &action : operation.actions) {
        if (perform(action))
            continue;
        *error = QStringLiteral("\"%1\" could not be done").arg(operation.ask);
        if (!m_keypad.errorString().isEmpty())
            *error += QLatin1String(": ") + m_keypad.errorString();
        return Impossible;
    }
    return Performed;
}

void VirtualUnit::hadItsMoment(const std::function<bool(const Fault &fault)> &had)
{
    m_awaited.erase(std::remove_if(m_awaited.begin(), m_awaited.end(),
                                   [&had](const Fault *fault) { return had(*fault); }),
                    m_awaited.end());
}

bool VirtualUnit::perform(const Plan::Action &action)
{
    switch (action.kind) {
    case Plan::Action::Power:
        return switchPower(action.on);
    case Plan::Action::Home:
        moveHome(action.on);
        return true;
    case Plan::Action::Tamper:
        m_keypad.setTamper(action.on);
        return true;
    case Plan::Action::Card:
        return moveCard(action.on);
    case Plan::Action::Touch:
        return m_keypad.touch(action.point.x(), action.point.y(), action.holdMs);
    }
    return false;
}

void VirtualUnit::moveHome(bool down)
{
    const bool sticks = std::any_of(m_options.faults.begin(), m_options.faults.end(),
                                    [](const Fault *fault) { return fault->homeSticks; });
    if (down)
        m_keypad.pressHome();
    else if (sticks)
        hadItsMoment([](const Fault &fault) { return fault.homeSticks; });
    else
        m_keypad.releaseHome();
}

bool VirtualUnit::switchPower(bool on)
{
    m_isOn = on;
    if (on)
        return m_keypad.start();
    return m_keypad.kill(SIGKILL) && m_keypad.waitForExit();
}

bool VirtualUnit::moveCard(bool in)
{
    VirtualKeypad::Card card = VirtualKeypad::NoFolder;
    if (in)
        card = VirtualKeypad::Writable;
    for (const Fault *fault : m_options.faults) {
        if (in && fault->card != VirtualKeypad::Writable)
            card = fault->card;
    }
    if (in) {
        hadItsMoment([](const Fault &fault) { return fault.card != VirtualKeypad::Writable; });
        return m_keypad.setCard(card) && m_keypad.insertCard();
    }
    return m_keypad.removeCard() && m_keypad.setCard(card);
}

Unit::Done VirtualUnit::look(const QString &, int, QString *)
{
    return Impossible; // no person is asked; the board checks of a step look
}

Unit::Finding VirtualUnit::check(const Plan::Check &check, Difference *difference)
{
    QString *found = &difference->found;
    switch (check.kind) {
    case Plan::Check::Stores:
        return checkStores(check, difference);
    case Plan::Check::Attribute:
        if (!m_keypad.hasNode(check.path)) {
            *found = QStringLiteral("no such attribute");
            return NotYet;
        }
        return Findings::text(check, m_keypad.attribute(check.path), found);
    case Plan::Check::File:
        return checkFile(check, found);
    case Plan::Check::Pixel:
        return Findings::pixel(check, m_keypad.screen(), found);
    case Plan::Check::Log:
        return checkLog(check, found);
    case Plan::Check::Exit:
        return checkExit(check, found);
    }
    return CannotLook;
}

Unit::Finding VirtualUnit::checkStores(const Plan::Check &check, Difference *difference)
{
    QList<MadeStore> made;
    const QList<SysfsModel::Store> all = m_keypad.stores().mid(m_firstStore);
    for (const SysfsModel::Store &store : all)
        made.append({store.path, QString::fromLatin1(store.text), store.error != 0});
    return Findings::stores(check, made, difference);
}

Unit::Finding VirtualUnit::checkFile(const Plan::Check &check, QString *found)
{
    const bool exists = m_keypad.exists(check.path);
    return Findings::file(check, exists, exists ? m_keypad.readFile(check.path) : QByteArray(),
                          found);
}

Unit::Finding VirtualUnit::checkLog(const Plan::Check &check, QString *found)
{
    QStringList texts;
    const QList<VirtualKeypad::LogLine> lines = m_keypad.log().mid(m_firstLine);
    for (const VirtualKeypad::LogLine &line : lines)
        texts.append(line.text);
    return Findings::log(check, texts, found);
}

Unit::Finding VirtualUnit::checkExit(const Plan::Check &check, QString *found)
{
    const VirtualKeypad::ExitStatus status = m_keypad.exitStatus();
    if (status.running) {
        *found = QStringLiteral("it still runs");
        return NotYet;
    }
    *found = ending();
    if (found->isEmpty()) {
        *found = QStringLiteral("it has not been started");
        return NotYet;
    }
    return status.code == check.status ? Holds : Broken;
}

QImage VirtualUnit::screen()
{
    return m_keypad.screen();
}

QString VirtualUnit::end()
{
    return m_isOn ? ending() : QString();
}

QString VirtualUnit::ending()
{
    const VirtualKeypad::ExitStatus status = m_keypad.exitStatus();
    const bool hasEnded = status.code >= 0 || status.signal != 0;
    if (status.running || !hasEnded)
        return QString();
    return Findings::ending(status.code, status.signal);
}

QString VirtualUnit::missedFault() const
{
    if (m_awaited.isEmpty())
        return QString();
    const Fault &fault = *m_awaited.first();
    return QStringLiteral("the fault \"%1\" was never injected: %2")
        .arg(QLatin1String(fault.name), momentOf(fault));
}

QByteArray VirtualUnit::log()
{
    QByteArray text;
    const QList<VirtualKeypad::LogLine> lines = m_keypad.log();
    for (const VirtualKeypad::LogLine &line : lines) {
        text += QStringLiteral("%1 %2 %3\n")
                    .arg(line.time, -12)
                    .arg(line.severity, -8)
                    .arg(line.text)
                    .toUtf8();
    }
    return text;
}
