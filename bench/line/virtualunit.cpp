#include "bench/line/virtualunit.h"

#include "bench/line/fault.h"
#include "bench/station/station.h"

#include <csignal>

#include <unistd.h>

namespace
{

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

} // namespace

VirtualUnit::VirtualUnit(const VirtualUnitOptions &options)
    : PlayedUnit(options.faults, momentOf), m_options(options), m_keypad(keypadOptions(options))
{
}

QString VirtualUnit::momentOf(const Fault &fault)
{
    if (fault.later)
        return noLateStep();
    if (fault.homeSticks)
        return noRelease();
    if (fault.card != VirtualKeypad::Writable)
        return QStringLiteral("no card was put in");
    return QString();
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
    if (isLate())
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

bool VirtualUnit::perform(const Plan::Action &action)
{
    switch (action.kind) {
    case Plan::Action::Power:
        return switchPower(action.on);
    case Plan::Action::Home:
        return moveHome(action.on);
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

bool VirtualUnit::pushHome(bool down)
{
    if (down)
        m_keypad.pressHome();
    else
        m_keypad.releaseHome();
    return true;
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

QList<MadeStore> VirtualUnit::stores()
{
    QList<MadeStore> made;
    const QList<SysfsModel::Store> all = m_keypad.stores().mid(m_firstStore);
    for (const SysfsModel::Store &store : all)
        made.append({store.path, QString::fromLatin1(store.text), store.error != 0});
    return made;
}

QStringList VirtualUnit::logTexts()
{
    QStringList texts;
    const QList<VirtualKeypad::LogLine> lines = m_keypad.log().mid(m_firstLine);
    for (const VirtualKeypad::LogLine &line : lines)
        texts.append(line.text);
    return texts;
}

std::optional<QByteArray> VirtualUnit::attribute(const QString &path)
{
    if (!m_keypad.hasNode(path))
        return std::nullopt;
    return m_keypad.attribute(path);
}

std::optional<QByteArray> VirtualUnit::file(const QString &path)
{
    if (!m_keypad.exists(path))
        return std::nullopt;
    return m_keypad.readFile(path);
}

QImage VirtualUnit::screen()
{
    return m_keypad.screen();
}

QString VirtualUnit::end()
{
    return m_isOn ? shownEnding() : QString();
}

PlayedUnit::Ending VirtualUnit::ending()
{
    const VirtualKeypad::ExitStatus status = m_keypad.exitStatus();
    const bool hasEnded = status.code >= 0 || status.signal != 0;
    return {!status.running && hasEnded, status.code, status.signal};
}

QString VirtualUnit::whyNoEnding()
{
    return m_keypad.exitStatus().running ? QStringLiteral("it still runs")
                                         : QStringLiteral("it has not been started");
}

QByteArray VirtualUnit::log()
{
    QByteArray text;
    const QList<VirtualKeypad::LogLine> lines = m_keypad.log();
    for (const VirtualKeypad::LogLine &line : lines)
        text += logLine(line.time, line.severity, line.text);
    return text;
}
