/// Which records of an output folder are not in the store yet. The line enters a record
/// before it writes its first byte; whoever stores records takes them out. So no record
/// is forgotten when the store cannot be reached or the line is killed:
///
///     QString error;
///     Outbox::Ticket ticket = Outbox(outDir).enter(unitDir + "/record.json", &error);
///     ... the unit is tested, its record written again and again ...
///     ticket = Outbox::Ticket();
///
/// and then, in a separate process that nobody waits for,
///
///     bench records import --waiting outDir --store PLACE
///
/// which stores this record and all that still wait. It ends with 0 when none is left,
/// and with another status when some had to stay; Outbox(outDir).waiting() returns them.
#ifndef BENCH_RECORDS_OUTBOX_H
#define BENCH_RECORDS_OUTBOX_H

#include <QList>
#include <QString>

class Outbox
{
public:
    struct Entry {
        QString marker; ///< the entry's own file
        QString record; ///< the record's file
    };

    /// An entry whose unit is still being tested: nobody takes it out while this lives, or
    /// the process that has it.
    class Ticket
    {
    public:
        Ticket() = default;
        Ticket(Ticket &&other) noexcept;
        /// Releases the entry that it had.
        Ticket &operator=(Ticket &&other) noexcept;
        ~Ticket();

        bool isHeld() const { return m_lock >= 0; }

    private:
        friend class Outbox;
        explicit Ticket(int lock) : m_lock(lock) {}
        int m_lock = -1;
    };

    /// @param dir  the folder that records are written to
    explicit Outbox(const QString &dir);

    /// Enters the file @p record, which is below the folder and need not exist yet. A
    /// ticket that is not held, with *error, when the entry could not be written.
    Ticket enter(const QString &record, QString *error) const;

    /// Those whose ticket is gone, the oldest first.
    QList<Entry> waiting() const;
    /// For records that are stored, and those without a file.
    static void takeOut(const Entry &entry);

private:
    const QString m_dir;
};

#endif
