#include "bench/records/importer.h"

#include "bench/records/outbox.h"

#include <QDirIterator>
#include <QFile>

namespace
{

/// False when the store did not take it; what is no record is told, and not tried again.
bool importFile(Store *store, const QString &path, ImportResult *result)
{
    QString error;
    const std::optional<RecordFile> record = RecordFile::load(path, &error);
    if (!record) {
        result->problems.append(error);
        return true;
    }
    switch (store->add(*record, &error)) {
    case Store::Stored:
        ++result->stored;
        return true;
    case Store::Known:
        ++result->known;
        return true;
    case Store::Refused:
        break;
    }
    ++result->waiting;
    result->problems.append(QStringLiteral("%1: %2").arg(path, error));
    return false;
}

} // namespace

ImportResult importWaiting(Store *store, const QString &dir)
{
    ImportResult result;
    const QList<Outbox::Entry> entries = Outbox(dir).waiting();
    for (const Outbox::Entry &entry : entries) {
        // Killed before the first byte was written: there is nothing to store.
        if (!QFile::exists(entry.record) || importFile(store, entry.record, &result))
            Outbox::takeOut(entry);
    }
    return result;
}

ImportResult importFolder(Store *store, const QString &dir)
{
    ImportResult result;
    QDirIterator files(dir, {QStringLiteral("record.json")}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (files.hasNext())
        importFile(store, files.next(), &result);
    return result;
}
