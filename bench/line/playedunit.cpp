#include "bench/line/playedunit.h"

#include "bench/line/fault.h"
#include "bench/line/findings.h"

#include <QDeadlineTimer>
#include <QThread>

#include <algorithm>
#include <iterator>

namespace
{

const int LaterStep = 4;     // by then the unit has spoken and its screen was looked at
const int KeySeenMs = 30000; ///< a tool that has not followed the home key by then will not
const QString Buzzer = QStringLiteral("/sys/class/leds/buzzer/brightness");
const unsigned long LookEveryMs = 5;

} // namespace

PlayedUnit::PlayedUnit(const QList<const Fault *> &faults, MomentOf momentOf)
    : m_faults(faults), m_momentOf(momentOf)
{
    std::copy_if(faults.begin(), faults.end(), std::back_inserter(m_awaited),
                 [momentOf](const Fault *fault) { return !momentOf(*fault).isEmpty(); });
}

Unit::Done PlayedUnit::look(const QString &, int, QString *)
{
    return Impossible; // no person is asked; the board checks of a step look
}

Unit::Finding PlayedUnit::check(const Plan::Check &check, Difference *difference)
{
    QString *found = &difference->found;
    switch (check.kind) {
    case Plan::Check::Stores:
        return Findings::stores(check, stores(), difference);
    case Plan::Check::Attribute: {
        const std::optional<QByteArray> content = attribute(check.path);
        if (content)
            return Findings::text(check, *content, found);
        *found = QStringLiteral("no such attribute");
        return NotYet;
    }
    case Plan::Check::File: {
        const std::optional<QByteArray> content = file(check.path);
        return Findings::file(check, content.has_value(), content.value_or(QByteArray()), found);
    }
    case Plan::Check::Pixel:
        return Findings::pixel(check, screen(), found);
    case Plan::Check::Log:
        return Findings::log(check, logTexts(), found);
    case Plan::Check::Exit:
        return checkExit(check, found);
    }
    return CannotLook;
}

Unit::Finding PlayedUnit::checkExit(const Plan::Check &check, QString *found)
{
    *found = shownEnding();
    if (found->isEmpty()) {
        *found = whyNoEnding();
        return NotYet;
    }
    return ending().status == check.status ? Holds : Broken;
}

QString PlayedUnit::shownEnding()
{
    const Ending how = ending();
    return how.known ? Findings::ending(how.status, how.signal) : QString();
}

bool PlayedUnit::isLate()
{
    return ++m_steps >= LaterStep;
}

void PlayedUnit::hadItsMoment(const std::function<bool(const Fault &fault)> &had)
{
    m_awaited.erase(std::remove_if(m_awaited.begin(), m_awaited.end(),
                                   [&had](const Fault *fault) { return had(*fault); }),
                    m_awaited.end());
}

std::ptrdiff_t PlayedUnit::buzzerStores()
{
    const QList<MadeStore> made = stores();
    return std::count_if(made.begin(), made.end(),
                         [](const MadeStore &store) { return store.path == Buzzer; });
}

bool PlayedUnit::moveHome(bool down)
{
    if (!down && homeSticks())
        return true;
    const auto before = buzzerStores();
    if (!pushHome(down))
        return false;
    const QDeadlineTimer deadline(KeySeenMs);
    while (buzzerStores() == before && !ending().known && !deadline.hasExpired())
        QThread::msleep(LookEveryMs);
    return true;
}

/// Whether the home key stays down although it is let go of.
bool PlayedUnit::homeSticks()
{
    hadItsMoment([](const Fault &fault) { return fault.homeSticks; });
    return std::any_of(m_faults.begin(), m_faults.end(),
                       [](const Fault *fault) { return fault->homeSticks; });
}

QString PlayedUnit::missedFault() const
{
    if (m_awaited.isEmpty())
        return QString();
    const Fault &fault = *m_awaited.first();
    return QStringLiteral("the fault \"%1\" was never injected: %2")
        .arg(QLatin1String(fault.name), m_momentOf(fault));
}

QString PlayedUnit::noLateStep()
{
    return QStringLiteral("no step from the fourth on began while the tool ran");
}

QString PlayedUnit::noRelease()
{
    return QStringLiteral("the home key was never released");
}

QByteArray PlayedUnit::logLine(const QString &time, const QString &severity, const QString &text)
{
    return QStringLiteral("%1 %2 %3\n").arg(time, -12).arg(severity, -8).arg(text).toUtf8();
}
