/// The result of a run of a plan on one unit, from which every report is written.
#ifndef BENCH_LINE_RECORD_H
#define BENCH_LINE_RECORD_H

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>

/// From best to worst; of several the worst decides.
enum class Outcome {
    NotRun,     ///< an earlier step ended the unit, or nothing of it could be looked at
    Pass,       ///< all held
    Fail,       ///< something came or was shown that is not as it should be
    TimeOut,    ///< the unit, or the operator, did not answer in time
    Error,      ///< it could not be tested to the end: the tool died, the line failed
    Interrupted ///< somebody ended the run while it was under way
};

/// "pass", "fail", "time-out", "error", "interrupted", "not run".
QString outcomeName(Outcome outcome);

/// One decoded field that the plan has limits for.
struct Measurement {
    QString name;
    QVariant value; ///< int or QString; invalid when the frame does not have it
    QString unit;
    std::optional<double> min;
    std::optional<double> max;
    QString limits; ///< for a person
    bool good = false;

    /// "12345 mV"
    QString shown() const;
};

/// One look at the board, or at the unit when nobody could be asked.
struct CheckRecord {
    enum Result { Held, Broken, Skipped };

    QString what;
    QString brief; ///< shorter
    Result result = Skipped;
    QString found; ///< when broken
};

/// One try of a step.
struct AttemptRecord {
    Outcome outcome = Outcome::NotRun;
    QDateTime start;
    double seconds = 0;
    QString sent;         ///< decoded
    QStringList received; ///< decoded, in order
    QList<Measurement> measured;
    QList<CheckRecord> checks;
    QString reason;    ///< why it did not pass, one line
    QString expected;  ///< of what failed
    QString came;      ///< decoded
    QByteArray raw;    ///< as it came
    QStringList notes; ///< operator's actions, skipped checks
};

/// The result of the last try, which decides; start and seconds are those of all tries.
struct StepRecord : AttemptRecord {
    int number = 0; ///< from 1
    QString name;
    QString group;
    int tries = 0;                 ///< none when the step was not begun
    QList<AttemptRecord> attempts; ///< every try, the last one too
    QString picture;               ///< file beside the record
    QString lostPicture;           ///< which one could not be written, and why

    /// Measured values, or else what came (only the last if there was much).
    QString value() const;
    /// What the board has shown, briefly.
    QString shownByBoard() const;
    QString limits() const;
};

/// What a unit's time was spent on, in seconds; together all of it.
struct TimeSpent {
    double tool = 0;       ///< waiting for the tool, on the line and on its board
    double flash = 0;      ///< waiting for the flash, which the tool reports
    double operatorAt = 0; ///< waiting for the operator
    double bench = 0;      ///< all else: a virtual hand, pictures, records, pauses, silence

    /// "tool 12.1 s, flash 8.20 s, operator 30.5 s, bench 1.02 s".
    QString shown() const;
};

/// The result of a run of a plan on a unit: one attempt at it.
struct UnitRecord {
    QString id; ///< no other record has it
    QString plan;
    QString planTitle;
    QString planFile;
    QString planSha256;       ///< of that file's bytes, hexadecimal
    QJsonObject planIncludes; ///< the same of the files that it includes, by their names
    QString variant;          ///< name of the file that set variables; empty for none
    QJsonObject variables;    ///< of the plan that were set, with their values
    int number = 1;
    int attempt = 1; ///< at this unit in its batch
    QString serialNumber;
    QString operatorName;
    QString station;
    QString fixture; ///< of the station; empty where there is one
    QString unit;    ///< "virtual keypad", or the port
    QStringList faults;
    QString toolVersion;
    QString benchVersion;
    TimeSpent time;
    QDateTime start;
    QDateTime end; ///< while the run goes on: of the last step so far
    bool ended = false;
    Outcome outcome = Outcome::NotRun;
    QString reason; ///< of the step that decided, with its name
    QList<StepRecord> steps;

    /// Whether it has a record of its own: a unit that was never begun has none.
    bool wasBegun() const;
    double seconds() const;
    int count(Outcome outcome) const;
    /// The first picture that could not be written, and why; empty when none was lost.
    QString lostPicture() const;
    /// The run is over: sets outcome and reason from the steps; the first of the worst decides.
    void conclude();
};

/// How many units passed, of records of which each is an attempt at one.
struct Yield {
    int units = 0; ///< that were asked for
    int tested = 0;
    int firstPass = 0; ///< passed at the first attempt
    int finalPass = 0; ///< passed at any
    int retested = 0;  ///< records of further attempts

    /// Share of all units, in percent: "87.5".
    QString percent(int part) const;

    static Yield of(const QList<UnitRecord> &records);
};

/// Whether each record is of its unit's last attempt.
QList<bool> lastAttempts(const QList<UnitRecord> &records);

/// The record as docs/line.md describes record.json. While a run goes on, its record is
/// that of an interrupted run, which is true if nothing is written after it.
QJsonObject toJson(const UnitRecord &unit);

/// The exit status of a run: 0 pass, 1 fail, 3 time-out, 4 error or interrupted.
int exitStatus(Outcome outcome);

/// "0.4 ms", "52 ms", "3.38 s", "12.3 s".
QString shownSeconds(double seconds);

#endif
