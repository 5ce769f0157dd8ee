/// A record.json as the store keeps it: what can be asked about, and the text itself.
/// Reads every form that a bench has written.
#ifndef BENCH_RECORDS_RECORDFILE_H
#define BENCH_RECORDS_RECORDFILE_H

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

struct RecordFile {
    struct Measurement {
        QString name;
        std::optional<double> value; ///< absent for a text, and when nothing came
        QString text;                ///< of what is not a number
        QString unit;
        std::optional<double> minimum;
        std::optional<double> maximum;
        bool good = false;
    };

    struct Step {
        int number = 0; ///< from 1
        QString name;
        QString outcome; ///< as in record.json: "pass", "fail", "time-out" ...
        double seconds = 0;
        int tries = 0;
        QList<Measurement> measured;
    };

    QString id; ///< one for each run on a unit, and the same each time it is read
    QString serialNumber;
    QString plan;
    QString title;
    QString planSum; ///< SHA-256 of the plan's file, hexadecimal
    QString variant; ///< its name; without one what was set, "NAME=VALUE, ..."
    QString station;
    QString fixture;
    QString operatorName;
    QString unit; ///< "virtual keypad", or the port
    QString toolVersion;
    QString benchVersion;
    qint64 start = 0; ///< milliseconds since 1970, UTC
    QString day;      ///< of the start, in the station's time zone: "2026-11-21"
    double seconds = 0;
    int attempt = 1; ///< of this unit in its batch, from 1
    /// "pass", "fail" ..., or notEnded() for a run that goes on, or was cut off.
    QString outcome;
    QString reason;
    QString failedStep; ///< name of the step that decided; empty when none did
    QList<Step> steps;  ///< those that were run
    QByteArray json;

    static QString notEnded() { return QStringLiteral("not ended"); }
    bool ended() const { return outcome != notEnded(); }

    /// @param error  set to the reason when nothing is returned
    static std::optional<RecordFile> fromJson(const QByteArray &json, QString *error);
    /// The same from a file; *error names it.
    static std::optional<RecordFile> load(const QString &path, QString *error);
};

#endif
