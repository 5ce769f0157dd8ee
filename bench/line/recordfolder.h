/// The files that a run leaves: DIR/<time>/, and below it a folder for each attempt at a
/// unit when there may be several.
#ifndef BENCH_LINE_RECORDFOLDER_H
#define BENCH_LINE_RECORDFOLDER_H

#include "bench/line/record.h"
#include "bench/station/transcript.h"

/// Writes a file as a whole, so that nobody ever reads half of it; it is on the disk when
/// this returns. False with *error.
bool saveWhole(const QString &path, const QByteArray &bytes, QString *error);

class RecordFolder
{
public:
    /// Makes DIR/<time>/, or DIR/<time>-2/ and so on when others have begun in the same
    /// second, and makes DIR/latest point to it. False with *error.
    /// @param isBatch  it gets several records
    bool create(const QString &dir, bool isBatch, QString *error);

    /// Writes into the folder of a batch that another process has made.
    void join(const QString &path, bool isBatch);

    QString path() const { return m_path; }
    bool isBatch() const { return m_isBatch; }
    /// For an attempt at a unit, both counted from 1; made if it is missing.
    QString unitPath(int number, int attempt = 1) const;

    /// record.json of a unit whose run goes on. It is replaced as a whole and on the disk
    /// when this returns: however the program ends, the record is the last one or the one
    /// before it.
    bool keep(const UnitRecord &unit, QString *error) const;
    /// record.json, junit.xml, tool.log and report.html of one unit; its pictures and its
    /// transcript are there already. All are tried, even if one cannot be written.
    bool write(const UnitRecord &unit, const Transcript &transcript, const QByteArray &log,
               QString *error) const;
    /// Everything that write() writes, for a unit whose process has died: what it had
    /// saved, with the outcome and the reason of @p record unless it had saved its own.
    /// @param record set to what is in the folder then
    bool conclude(UnitRecord *record, QString *error) const;
    /// junit.xml and report.html of several units; those that were not tested have no
    /// folder.
    bool writeSummary(const QList<UnitRecord> &units, QString *error) const;

    /// The record in a unit's folder.
    static QString recordPath(const QString &unitPath);
    static QString transcriptName() { return QStringLiteral("transcript.txt"); }

private:
    QString m_path;
    bool m_isBatch = false;
};

#endif
