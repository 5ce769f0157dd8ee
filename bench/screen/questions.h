/// The open questions of all fixtures. They are shown one after another. After an answer that
/// may be refused no other fixture's question is shown until the fixture goes on: who scans a
/// number again does not look whose turn it is.
#ifndef BENCH_SCREEN_QUESTIONS_H
#define BENCH_SCREEN_QUESTIONS_H

#include "bench/screen/question.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QTimer>

class Questions : public QObject
{
    Q_OBJECT

    static constexpr int Own = 0; ///< id of the screen's own question

public:
    /// @param holdMs  a fixture that hangs after an answer holds up the others no longer
    explicit Questions(int holdMs);

    bool isAnyShown() const;
    int size() const { return static_cast<int>(m_open.size()); }
    /// The question that is shown; there must be one.
    const Question &first() const { return m_open.first(); }
    /// Whether the fixture waits for an answer.
    bool isOpenAt(const QString &fixture) const;

    /// Shows a question of the screen itself before all others.
    void interject(const Question &question);
    /// Answers the question that is shown.
    void answer(const QString &reply);
    /// Drops all questions: nobody waits for answers any more.
    void clear();

public slots:
    void ask(const Question &question);
    void withdraw(int id);
    /// The fixture has begun or ended a unit, and asks for nothing more before that.
    void goOnAfter(const QString &fixture);

signals:
    /// For the line: an answer, or that a question waits or is shown. Its time limit counts
    /// from when it is shown.
    void said(const QJsonObject &line);
    /// The screen's own question was answered.
    void decided(const QString &reply);
    /// Another question is shown, or none any more.
    void turned();
    /// The number of questions has changed.
    void changed();

private slots:
    void goOn();

private:
    bool mayLeadToAnother(const Question &question) const;
    void release();
    void turn();

    QList<Question> m_open; ///< the first one is shown, unless others are held back
    bool m_isHeld = false;  ///< while what an answer leads to is awaited
    QTimer m_hold;          ///< its limit
    QString m_answered;     ///< the fixture that it is awaited from
    int m_ledTo = Own;      ///< id of the last question that an answer led to
};

#endif
