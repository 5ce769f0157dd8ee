/// Runs a plan on units at several fixtures side by side and leaves their records.
#ifndef BENCH_LINE_FLOORRUN_H
#define BENCH_LINE_FLOORRUN_H

#include "bench/line/fixture.h"
#include "bench/line/floorwatcher.h"
#include "bench/line/linerun.h"
#include "bench/line/storefeed.h"

#include <QEventLoop>
#include <QObject>

#include <memory>
#include <vector>

struct FloorOptions {
    QStringList fixtures; ///< their names
    QStringList ports;    ///< of real units, as many as fixtures; empty for virtual ones
    /// The arguments that the processes of all units have in common.
    QStringList arguments;
    QString planFile;
};

class FloorRun : public QObject
{
    Q_OBJECT

public:
    FloorRun(const Plan &plan, const LineOptions &line, const FloorOptions &floor,
             FloorWatcher *watcher);

    /// Once a record cannot be written, no further unit is begun anywhere.
    /// @param error  set to what could not be written, or why not all units were tested
    /// @return the worst outcome, at least Error when *error is set
    Outcome run(QString *error);

private slots:
    void passInterruptOn();

private:
    struct Place {
        std::unique_ptr<Fixture> fixture;
        int unit = 0;           ///< the one that is tested, or was
        int attempt = 1;        ///< at it
        bool isBegun = false;   ///< it is under way
        bool isDecided = false; ///< its verdict, or that it was left out, is known
    };

    void handOut(int place);
    void hear(int place, const QJsonObject &event);
    void end(int place, const QString &how);
    void leaveOut(int number, const QString &reason);
    void hearEnd(Place *place, const QString &error);
    void concludeDead(int place, const QString &how);
    void tellOthers(int place, const QString &dir);
    void noteError(const QString &error);
    UnitRecord unknown(int number, int attempt = 1) const;
    bool isBatch() const;
    bool isInterrupted() const;
    Outcome conclude(QString *error);

    const Plan &m_plan;
    const LineOptions m_line;
    const FloorOptions m_floor;
    FloorWatcher *m_watcher;
    LineRun m_maker; ///< of records for units that no process reports
    RecordFolder m_folder;
    StoreFeed m_store;
    QEventLoop m_loop;
    std::vector<Place> m_places;
    QList<UnitRecord> m_records;
    int m_next = 1;            ///< unit
    bool m_isPassedOn = false; ///< the interrupt
    QString m_why;             ///< no further unit is begun; empty while they are
    QString m_error;
};

#endif
