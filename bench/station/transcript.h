/// What went over a line, in both directions, with the time of each piece.
#ifndef BENCH_STATION_TRANSCRIPT_H
#define BENCH_STATION_TRANSCRIPT_H

#include <QByteArray>
#include <QFile>
#include <QString>

#include <deque>
#include <memory>
#include <optional>

/// A transcript in memory and, on request, in a file that grows with it.
///
/// The file is UTF-8 text, one entry a line, and can be read back:
///
///     # station transcript 1
///     2026-03-01T09:30:00.123456Z > "7E000E61431F006403607F\r\n" # backlight 100
///     2026-03-01T09:30:00.125016Z < "7E000A00043102957F\r\n" # ACK
///     2026-03-01T09:30:00.125020Z - text of a note
///
/// Bytes are between quotes; `\r`, `\n`, `\t`, `\\`, `\"` and `\xHH` stand for what
/// cannot be printed. Empty lines and lines that begin with # are comments.
class Transcript
{
public:
    enum Kind { Sent, Received, Note };

    struct Entry {
        qint64 time = 0; ///< microseconds since 1970, UTC
        Kind kind = Note;
        QByteArray bytes; ///< as on the line, with line end; for a note empty
        QString text;     ///< the note, or what the bytes mean

        bool operator==(const Entry &other) const;
    };

    /// Appends an entry with the present time.
    void add(Kind kind, const QByteArray &bytes, const QString &text = QString());
    void note(const QString &text) { add(Note, QByteArray(), text); }
    /// Appends @p entry as it is.
    void append(const Entry &entry);

    const std::deque<Entry> &entries() const { return m_entries; }
    void clear() { m_entries.clear(); }

    /// Keeps only the newest @p entries in memory (a file keeps them all); negative, as
    /// at the start, keeps all, 0 keeps none.
    void setLimit(qint64 entries);

    /// Writes every further entry to @p path too, which is truncated first.
    /// @return false when it cannot be written; @p error says why
    bool logTo(const QString &path, QString *error);

    /// Why the file of logTo() does not hold everything; empty while it does.
    QString logError() const { return m_logError; }

    /// All entries as text.
    QByteArray toText() const;

    /// Writes toText() to @p path.
    bool save(const QString &path, QString *error) const;

    /// Reads what toText(), save() or logTo() wrote.
    /// @param error  set to a line number and a reason, when nothing is returned
    static std::optional<Transcript> fromText(const QByteArray &text, QString *error);
    static std::optional<Transcript> load(const QString &path, QString *error);

    /// One entry as its line of text, with the line end.
    static QByteArray line(const Entry &entry);

    /// Microseconds since 1970, UTC.
    static qint64 now();

private:
    void log(const QByteArray &line);
    void trim();

    std::deque<Entry> m_entries;
    qint64 m_limit = -1;
    std::shared_ptr<QFile> m_file;
    QString m_logError;
};

#endif
