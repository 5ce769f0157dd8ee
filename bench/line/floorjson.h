/// Several fixtures for another program: all their lines on one output, with new numbers
/// for their questions.
#ifndef BENCH_LINE_FLOORJSON_H
#define BENCH_LINE_FLOORJSON_H

#include "bench/line/floorwatcher.h"
#include "bench/line/jsonwatcher.h"
#include "bench/line/linereader.h"

#include <QHash>
#include <QObject>

class FloorJson : public QObject, public FloorWatcher
{
    Q_OBJECT

public:
    /// @param answers  descriptor that lines are read from
    /// @param stream   kept by the caller
    FloorJson(int answers, JsonStream *stream);

    void begin(const Plan &plan, const QStringList &fixtures, int units) override;
    void heard(int fixture, const QJsonObject &event) override;
    void idle(int fixture) override;
    void told(const QString &about, const QString &text) override;
    void summary(const QList<UnitRecord> &units, const QString &files) override;

private slots:
    void take(const QByteArray &line);
    void close();

private:
    struct Question {
        int fixture = 0;
        int id = 0; ///< at the fixture
    };

    void finish(int id);

    JsonStream *m_stream;
    LineReader m_answers;
    QStringList m_fixtures;
    QHash<int, Question> m_open; ///< by the number that the other program knows
    int m_last = 0;
};

#endif
