/// Several fixtures on one terminal: a row each, their verdicts above, and one question
/// at a time below. In a file, lines that begin with the fixture's name.
#ifndef BENCH_LINE_FLOORCONSOLE_H
#define BENCH_LINE_FLOORCONSOLE_H

#include "bench/line/console.h"
#include "bench/line/floorwatcher.h"
#include "bench/line/linereader.h"

#include <QObject>

#include <deque>
#include <vector>

class FloorConsole : public QObject, public FloorWatcher
{
    Q_OBJECT

public:
    /// @param answers     descriptor of the keyboard
    /// @param isTerminal  whether lines on @p out can be erased
    /// @param interrupt   raised when nobody reads @p out any more; may be null
    FloorConsole(int answers, FILE *out, bool isTerminal, Interrupt *interrupt = nullptr);

    void begin(const Plan &plan, const QStringList &fixtures, int units) override;
    void heard(int fixture, const QJsonObject &event) override;
    void idle(int fixture) override;
    void told(const QString &about, const QString &text) override;
    void summary(const QList<UnitRecord> &units, const QString &files) override;

private slots:
    void take(const QByteArray &line);
    void nobodyAnswers();

private:
    struct Row {
        QString name;
        QString unit; ///< "unit 3 KP-0003"
        int steps = 0;
        bool isTesting = false;
        QString doing; ///< the step that runs, or the last verdict
        QString progress;
    };
    struct Question {
        int fixture = 0;
        int id = 0;
        QString kind;
        QString text;
    };

    void ask(int fixture, const QJsonObject &event);
    void put();
    void goOnAfter(int fixture);
    void withdraw(int fixture, int id);
    void close();
    QString promptOf(const Question &question) const;
    QString shownPrompt() const;
    int linesAbove(const QString &text) const;
    void stepEnded(int fixture, const QJsonObject &event);
    void unitEnded(int fixture, const QJsonObject &event);
    void log(int fixture, const QString &text);
    void print(const QString &text);
    void erase();
    void draw();
    void refresh();
    void writeRows();
    QString shown(const Row &row) const;
    void write(const QString &text);
    void flush();

    FILE *m_out;
    bool m_isTerminal;
    Interrupt *m_interrupt;
    Console m_console; ///< for verdicts and the summary
    LineReader m_answers;
    std::vector<Row> m_rows;
    int m_nameWidth = 0;
    std::deque<Question> m_questions; ///< the first one is asked
    bool m_isAsking = false;
    int m_answered = -1; ///< a fixture that may ask again because of what was typed
    QStringList m_held;  ///< lines that would break up what is being typed
    bool m_isDrawn = false;
    int m_above = 0; ///< lines of the rows and the question above that of the cursor
    int m_width = 0;
};

#endif
