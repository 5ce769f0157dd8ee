/// Runs a plan on units one after the other and leaves their records.
#ifndef BENCH_LINE_LINERUN_H
#define BENCH_LINE_LINERUN_H

#include "bench/board/vmboard.h"
#include "bench/line/linewatcher.h"
#include "bench/line/plan.h"
#include "bench/line/recordfolder.h"
#include "bench/line/virtualunit.h"

#include <QHash>

#include <memory>
#include <optional>

class OperatorDesk;
class Station;

struct LineOptions {
    QString port; ///< empty: virtual keypads, or emulated boards
    std::optional<VmBoardOptions> board;
    int baudRate = 115200;
    int units = 1;
    QString serialNumber; ///< of the first unit; the trailing number counts up
    QString station;
    QString fixture; ///< empty where there is only one
    QString outDir;
    KeypadDisplay display;
    double flashSeconds = 0;
    int paceMs = 0;
    QHash<int, QList<const Fault *>> faults; ///< by unit; 0 is every unit
    const Interrupt *interrupt = nullptr;    ///< may be null
};

class LineRun
{
public:
    LineRun(const Plan &plan, const LineOptions &options, LineWatcher *watcher, OperatorDesk *desk);

    /// Once a record cannot be written no further unit is begun, and all that can be told is
    /// told to the watcher.
    /// @param error  set to what could not be written, or why not all units were tested
    /// @return the worst outcome, at least Error when *error is set
    Outcome run(QString *error);

    /// "KP-0009" and 1 give "KP-0010"; a text without a number at its end gets "-2".
    static QString countedUp(const QString &serialNumber, int by);

private:
    bool isInterrupted() const;
    bool wantsAnswers() const;
    void runUnits(QString *error);
    void runUnit(int number, QString *error);
    void test(Unit *unit, Station *station, UnitRecord *record);
    void leaveOut(int number, const QString &reason);
    bool connectNext(int number, QString *error);
    std::unique_ptr<Unit> makeUnit(int number) const;
    UnitRecord newRecord(int number) const;
    QList<const Fault *> faultsOf(int number) const;

    const Plan &m_plan;
    const LineOptions m_options;
    LineWatcher *m_watcher;
    OperatorDesk *m_desk;
    RecordFolder m_folder;
    QList<UnitRecord> m_records;
};

#endif
