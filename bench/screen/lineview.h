/// Reads the JSON lines of the line (docs/line.md) and keeps what the screen shows: the state
/// of each fixture, and how many units passed.
#ifndef BENCH_SCREEN_LINEVIEW_H
#define BENCH_SCREEN_LINEVIEW_H

#include "bench/screen/question.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

/// One fixture and the unit in it.
struct FixtureView {
    QString name;
    int unit = 0; ///< 0 before the first one
    int attempt = 1;
    QString serialNumber;
    int steps = 0;
    int step = 0; ///< under way, or the last one; 0 before the first one
    QString stepName;
    QString progress;
    QString instruction; ///< what the operator shall do now
    int failedSteps = 0;
    bool isTesting = false;
    QString outcome; ///< of the unit, once it is known
    QString reason;
    double seconds = 0; ///< that the unit took
};

class LineView : public QObject
{
    Q_OBJECT

public:
    struct Count {
        int units = 0;
        int tested = 0;
        int passed = 0;
        int counted = 0; ///< in the yield: those tested, and at the end all that were asked for
    };

    /// Reads the next bytes, which need not be whole lines. Lines that are no JSON objects and
    /// unknown events are ignored.
    void read(const QByteArray &bytes);

    QString title() const { return m_title; }
    const QList<FixtureView> &fixtures() const { return m_fixtures; }
    /// If a unit was tested again, its last attempt counts.
    Count count() const;
    /// The text of the last note.
    QString note() const { return m_note; }
    /// Whether the line has sent its last event.
    bool hasEnded() const { return m_hasEnded; }
    /// What could not be done; empty if nothing went wrong.
    QString error() const { return m_error; }

signals:
    void changed();
    void asked(const Question &question);
    /// The question was answered, or nobody waits for an answer any more.
    void withdrawn(int id);
    /// A unit at the fixture has begun or ended.
    void wentOn(const QString &fixture);

private:
    void take(const QJsonObject &event);
    void beginRun(const QJsonObject &event);
    void beginUnit(const QJsonObject &event);
    void beginStep(const QJsonObject &event);
    void noteProgress(const QJsonObject &event);
    void endStep(const QJsonObject &event);
    void instruct(const QJsonObject &event);
    void ask(const QJsonObject &event);
    void withdraw(const QJsonObject &event);
    void endUnit(const QJsonObject &event);
    void sumUp(const QJsonObject &event);
    void tell(const QJsonObject &event);
    void end(const QJsonObject &event);
    FixtureView &fixtureOf(const QJsonObject &event);

    QByteArray m_pending;
    QString m_title;
    QList<FixtureView> m_fixtures;
    int m_units = 0;
    QMap<int, QString> m_outcomes; ///< of each unit that has ended
    bool m_isSummedUp = false;
    QString m_note;
    bool m_hasEnded = false;
    QString m_error;
};

#endif
