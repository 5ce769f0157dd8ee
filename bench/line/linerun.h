/// Runs a plan on units one after the other and leaves their records.
#ifndef BENCH_LINE_LINERUN_H
#define BENCH_LINE_LINERUN_H

#include "bench/board/vmboard.h"
#include "bench/line/linewatcher.h"
#include "bench/line/operatordesk.h"
#include "bench/line/passedunits.h"
#include "bench/line/plan.h"
#include "bench/line/recordfolder.h"
#include "bench/line/storefeed.h"
#include "bench/line/virtualunit.h"

#include <QHash>

#include <memory>
#include <optional>

class Station;

/// One unit of a batch that another process runs.
struct BatchPart {
    QString folder; ///< of the batch
    int unit = 0;
    bool connects = false; ///< the operator is asked to connect it first
};

struct LineOptions {
    QString port; ///< empty: virtual keypads, or emulated boards
    std::optional<VmBoardOptions> board;
    int baudRate = 115200;
    int units = 1;
    std::optional<BatchPart> part; ///< only this one of the units
    QString serialNumber;          ///< of the unit, or of the first one
    bool asksSerialNumber = false; ///< of every unit
    bool countsUp = false;         ///< the serial number's last digits, with the units
    QString operatorName; ///< empty when the operator is asked for it, if the plan wants it
    QString station;
    QString fixture; ///< empty where there is only one
    QString outDir;
    QString store; ///< of all records; empty for none
    QString after; ///< program that gets each record; empty for none
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

    /// Once a record cannot be written, no further unit is begun, and the watcher is told
    /// everything that is known.
    /// @param error  set to what could not be written, or why not all units were tested
    /// @return the worst outcome, at least Error when *error is set
    Outcome run(QString *error);

    /// "KP-0009" and 1 give "KP-0010"; a text without a number at its end gets "-2".
    static QString countedUp(const QString &serialNumber, int by);

    /// For a unit of which nothing is known yet.
    UnitRecord newRecord(int number, int attempt = 1) const;

private:
    bool needsConnecting(int number) const;
    bool isInterrupted() const;
    bool wantsAnswers() const;
    void runUnits(QString *error);
    bool asksAtOnce() const;
    bool askOperator(QString *error);
    bool identify(int number, QString *notThisOne, QString *why);
    bool askSerialNumber(int number, QString *why);
    bool mayBeTested(QString *refusal, QString *why);
    bool isAnswer(OperatorDesk::Reply reply, const QString &missing, QString *why) const;
    void runUnit(int number, QString *error);
    bool isTestedAgain(const UnitRecord &record, int attempt);
    void runAttempt(int number, int attempt, QString *error);
    void tellOthers(const QString &dir);
    void test(Unit *unit, Station *station, UnitRecord *record);
    void leaveOut(int number, const QString &reason);
    bool connectNext(int number, QString *error);
    std::unique_ptr<Unit> makeUnit(int number) const;
    QList<const Fault *> faultsOf(int number) const;

    const Plan &m_plan;
    const LineOptions m_options;
    LineWatcher *m_watcher;
    OperatorDesk *m_desk;
    RecordFolder m_folder;
    StoreFeed m_store;
    PassedUnits m_passed;
    QString m_operatorName;
    QString m_serialNumber; ///< of the unit that is at hand
    QList<UnitRecord> m_records;
};

#endif
