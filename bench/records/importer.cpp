#include "bench/records/importer.h"

#include "bench/records/outbox.h"

#include <QDirIterator>
#include <QFile>

#include <functional>

namespace
{

/// Records in one transaction: a commit costs as much as a record, and other stations
/// wait for it.
const int Together = 50;

/// Collects records, and stores many in one transaction.
class Import
{
public:
    /// @param done  called with the index of each file that the store has now
    Import(Store *store, std::function<void(int)> done, ImportResult *result)
        : m_store(store), m_done(std::move(done)), m_result(result)
    {
    }

    void take(int index, const QString &path)
    {
        if (m_isAway) {
            ++m_result->waiting;
            return;
        }
        QString error;
        const std::optional<RecordFile> record = RecordFile::load(path, &error);
        if (record) {
            m_files.append({index, path});
            m_records.append(*record);
        } else {
            m_result->problems.append(error);
            ++m_result->waiting;
        }
        if (m_records.size() == Together)
            flush();
    }

    void flush()
    {
        int stored = 0;
        QString error;
        if (m_store->add(m_records, &stored, &error)) {
            m_result->stored += stored;
            m_result->known += static_cast<int>(m_records.size()) - stored;
            for (const File &file : m_files)
                m_done(file.index);
        } else {
            flushOneByOne(error);
        }
        m_files.clear();
        m_records.clear();
    }

private:
    struct File {
        int index;
        QString path;
    };

    /// A record that the store refuses must not keep the others out.
    void flushOneByOne(QString error)
    {
        for (int i = 0; i < m_records.size(); ++i) {
            if (!m_isAway && !m_store->answers()) {
                m_isAway = true;
                m_result->problems.append(error);
            }
            const Store::Added added =
                m_isAway ? Store::Refused : m_store->add(m_records.at(i), &error);
            switch (added) {
            case Store::Stored:
                ++m_result->stored;
                m_done(m_files.at(i).index);
                break;
            case Store::Known:
                ++m_result->known;
                m_done(m_files.at(i).index);
                break;
            case Store::Refused:
                ++m_result->waiting;
                if (!m_isAway)
                    m_result->problems.append(
                        QStringLiteral("%1: %2").arg(m_files.at(i).path, error));
                break;
            }
        }
    }

    Store *const m_store;
    const std::function<void(int)> m_done;
    ImportResult *const m_result;
    QList<File> m_files;
    QList<RecordFile> m_records;
    bool m_isAway = false; ///< the connection is lost: nothing more is tried
};

void add(const ImportResult &result, ImportResult *sum)
{
    sum->stored += result.stored;
    sum->known += result.known;
    sum->waiting += result.waiting;
    sum->problems += result.problems;
}

} // namespace

ImportResult importWaiting(Store *store, const QString &dir)
{
    ImportResult result;
    const QList<Outbox::Entry> entries = Outbox(dir).waiting();
    Import import(
        store, [&](int index) { Outbox::takeOut(entries.at(index)); }, &result);
    for (int i = 0; i < entries.size(); ++i) {
        if (QFile::exists(entries.at(i).record))
            import.take(i, entries.at(i).record);
        else // killed before the first byte was written
            Outbox::takeOut(entries.at(i));
    }
    import.flush();
    return result;
}

ImportResult importFolder(Store *store, const QString &dir)
{
    ImportResult result;
    Import import(
        store, [](int) {}, &result);
    QDirIterator files(dir, {QStringLiteral("record.json")}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext())
        import.take(0, files.next());
    import.flush();
    return result;
}

ImportResult importFolders(Store *store, const QStringList &dirs, ImportScope scope)
{
    ImportResult sum;
    for (const QString &dir : dirs) {
        if (!store->answers()) {
            sum.problems.append(QStringLiteral("%1: the store does not answer").arg(dir));
            continue;
        }
        add(importWaiting(store, dir), &sum);
        if (scope == WhatIsThere)
            add(importFolder(store, dir), &sum);
    }
    return sum;
}
