/// Brings records into the store: those that wait in an output folder, or all in it.
#ifndef BENCH_RECORDS_IMPORTER_H
#define BENCH_RECORDS_IMPORTER_H

#include "bench/records/store.h"

#include <QString>
#include <QStringList>

struct ImportResult {
    int stored = 0;
    int known = 0;        ///< were in the store already
    int waiting = 0;      ///< could not be stored yet
    QStringList problems; ///< a line each
};

/// Those that the line entered and whose units are not being tested any more. What the
/// store has then, and what has no file, is taken off the list; what could not be read
/// stays on it. Several programs may do this at once.
ImportResult importWaiting(Store *store, const QString &dir);

/// Every record.json in @p dir and below.
ImportResult importFolder(Store *store, const QString &dir);

enum ImportScope { WhatWaits, WhatIsThere };

/// One folder after the other. One whose turn comes when the store is away is a problem,
/// and its entries stay.
ImportResult importFolders(Store *store, const QStringList &dirs, ImportScope scope);

#endif
