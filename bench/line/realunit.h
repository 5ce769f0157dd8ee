/// A unit on a serial port, with an operator. Its board cannot be looked at from here;
/// the operator says what its lights and its screen show.
#ifndef BENCH_LINE_REALUNIT_H
#define BENCH_LINE_REALUNIT_H

#include "bench/line/operatordesk.h"
#include "bench/line/unit.h"

class RealUnit : public Unit
{
public:
    /// @param desk  kept by the caller
    RealUnit(const QString &port, int baudRate, OperatorDesk *desk);

    QString description() const override;
    bool attach(Station *station, QString *error) override;
    void beginStep() override {}
    Done operate(const Plan::Operation &operation, bool confirm, int limitMs,
                 QString *error) override;
    bool hasOperator() const override { return true; }
    Done look(const QString &question, int limitMs, QString *error) override;
    Finding check(const Plan::Check &check, Difference *difference) override;
    QImage screen() override { return QImage(); }
    QString end() override { return QString(); }
    QByteArray log() override { return QByteArray(); }
    QString missedFault() const override { return QString(); }

private:
    const QString m_port;
    const int m_baudRate;
    OperatorDesk *m_desk;
};

#endif
