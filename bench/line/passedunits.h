/// Which units have passed before, so that none is tested again by mistake.
#ifndef BENCH_LINE_PASSEDUNITS_H
#define BENCH_LINE_PASSEDUNITS_H

#include "bench/line/record.h"
#include "bench/line/storefeed.h"

#include <QDateTime>
#include <QHash>
#include <QString>

class PassedUnits
{
public:
    /// @param plan    only its records count
    /// @param outDir  folder with the records of earlier runs, searched when the store
    ///                does not answer
    /// @param store   must outlive this
    PassedUnits(const QString &plan, const QString &outDir, const StoreFeed *store)
        : m_plan(plan), m_outDir(outDir), m_store(store)
    {
    }

    /// A record of this run.
    void note(const UnitRecord &record);
    /// When the unit has passed last; invalid when it has not.
    QDateTime when(const QString &serialNumber) const;

private:
    QDateTime inFolder(const QString &serialNumber) const;
    QDateTime inWaiting(const QString &serialNumber) const;
    QDateTime inRecord(const QString &path, const QString &serialNumber) const;

    const QString m_plan;
    const QString m_outDir;
    const StoreFeed *m_store;
    QHash<QString, QDateTime> m_noted;
};

#endif
