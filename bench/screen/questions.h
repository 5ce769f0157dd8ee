/// The open questions of all fixtures. They are shown one after another.
#ifndef BENCH_SCREEN_QUESTIONS_H
#define BENCH_SCREEN_QUESTIONS_H

#include "bench/screen/question.h"

#include <QJsonObject>
#include <QList>
#include <QObject>

class Questions : public QObject
{
    Q_OBJECT

public:
    bool isEmpty() const { return m_open.isEmpty(); }
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

private:
    void turn();

    QList<Question> m_open;
};

#endif
