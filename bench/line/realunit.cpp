#include "bench/line/realunit.h"

#include "bench/station/station.h"

namespace
{

Unit::Done done(OperatorDesk::Reply reply, int limitMs, QString *error)
{
    switch (reply) {
    case OperatorDesk::Yes:
        return Unit::Performed;
    case OperatorDesk::No:
        return Unit::Refused;
    case OperatorDesk::TooLate:
        *error = QStringLiteral("the operator did not answer in %1 s").arg(limitMs / 1000.0);
        return Unit::TooLate;
    case OperatorDesk::Interrupted:
        return Unit::Impossible;
    case OperatorDesk::Nobody:
        break;
    }
    *error = QStringLiteral("there is no operator: standard input is closed");
    return Unit::Impossible;
}

} // namespace

RealUnit::RealUnit(const QString &port, int baudRate, OperatorDesk *desk)
    : m_port(port), m_baudRate(baudRate), m_desk(desk)
{
}

QString RealUnit::description() const
{
    return m_port;
}

bool RealUnit::attach(Station *station, QString *error)
{
    if (station->open(m_port, m_baudRate))
        return true;
    *error = station->errorString();
    return false;
}

Unit::Done RealUnit::operate(const Plan::Operation &operation, bool confirm, int limitMs,
                             QString *error)
{
    if (confirm)
        return done(m_desk->confirm(operation.ask, limitMs), limitMs, error);
    m_desk->tell(operation.ask);
    return Performed;
}

Unit::Done RealUnit::look(const QString &question, int limitMs, QString *error)
{
    return done(m_desk->question(question, limitMs), limitMs, error);
}

Unit::Finding RealUnit::check(const Plan::Check &, Difference *)
{
    return CannotLook;
}
