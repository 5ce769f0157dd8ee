/// Brings a line's records to the store of all records. Another process does it, and
/// nothing that happens to the store holds up a unit or changes a verdict.
#ifndef BENCH_LINE_STOREFEED_H
#define BENCH_LINE_STOREFEED_H

#include "bench/records/outbox.h"

#include <QDateTime>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <optional>

class StoreFeed : public QObject
{
    Q_OBJECT

public:
    /// How long a run waits for the store at its end.
    static constexpr int LimitMs = 5000;

    /// @param outDir  folder that records are written to
    /// @param place   of the store, as "bench records" takes it; empty for none
    StoreFeed(const QString &outDir, const QString &place);
    ~StoreFeed() override;

    /// Call it before the first byte of a record is written, so that the record is stored
    /// some day whatever happens to this program.
    void enter(const QString &record);
    /// The record is written: it may be stored.
    void release();
    /// Stores what was released, here and by other processes; returns at once.
    void bring();
    /// Waits until all is stored, for @p limitMs at most. The next run does what is left.
    /// @return for a person: where the records are, or how many wait and why; empty without
    ///         a store
    QString finish(int limitMs);
    /// For a person: why a record will not be stored by itself; empty when all will.
    QString complaint() const;
    /// Files of records that are written and not stored yet.
    QStringList waiting() const;

    /// When the unit has passed @p plan last, as the store knows it; nothing when it does
    /// not answer within @p limitMs, invalid when the unit has not passed.
    std::optional<QDateTime> whenPassed(const QString &plan, const QString &serialNumber,
                                        int limitMs) const;

private slots:
    void goOn();

private:
    QStringList command(const QStringList &action) const;

    const QString m_outDir;
    const QString m_place;
    const Outbox m_outbox;
    Outbox::Ticket m_ticket;
    QProcess m_import;
    bool m_isDue = false; ///< another import, since this one began
    QString m_complaint;  ///< of the last entry that could not be made
};

#endif
