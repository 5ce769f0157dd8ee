/// The questions of all fixtures, shown one after another: the first of them has its turn.
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
    /// The one whose turn it is; there must be one.
    const Question &first() const { return m_open.first(); }
    /// Whether the fixture waits for an answer.
    bool isOpenAt(const QString &fixture) const;

    /// One of the screen itself comes before all others.
    void interject(const Question &question);
    /// Answers the one whose turn it is.
    void answer(const QString &reply);
    /// Nobody waits for any answer.
    void clear();

public slots:
    void ask(const Question &question);
    void withdraw(int id);

signals:
    /// A line for the line: an answer, or that a question waits or is shown, from when on
    /// its limit counts.
    void said(const QJsonObject &line);
    /// The screen's own question was answered.
    void decided(const QString &reply);
    /// Another one has its turn, or there is none any more.
    void turned();
    /// How many there are has changed.
    void changed();

private:
    void turn();

    QList<Question> m_open;
};

#endif
