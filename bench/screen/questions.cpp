#include "bench/screen/questions.h"

#include <algorithm>

Questions::Questions(int holdMs)
{
    m_hold.setSingleShot(true);
    m_hold.setInterval(holdMs);
    connect(&m_hold, SIGNAL(timeout()), SLOT(goOn()));
}

bool Questions::isAnyShown() const
{
    return !m_open.isEmpty() && (m_open.first().id == Own || !m_isHeld);
}

bool Questions::isOpenAt(const QString &fixture) const
{
    return std::any_of(m_open.begin(), m_open.end(), [&fixture](const Question &question) {
        return question.id != Own && question.fixture == fixture;
    });
}

void Questions::ask(const Question &question)
{
    const bool wasAnyShown = isAnyShown();
    if (m_isHeld && question.fixture == m_answered) {
        release();
        m_ledTo = question.id;
        m_open.insert(wasAnyShown ? 1 : 0, question);
    } else {
        m_open.append(question);
    }
    if (isAnyShown() && !wasAnyShown)
        turn();
    else
        emit said({{QStringLiteral("waits"), question.id}});
    emit changed();
}

void Questions::interject(const Question &question)
{
    if (!m_open.isEmpty() && m_open.first().id == Own)
        return;
    if (isAnyShown())
        emit said({{QStringLiteral("waits"), m_open.first().id}});
    m_open.prepend(question);
    m_open.first().id = Own;
    turn();
    emit changed();
}

void Questions::answer(const QString &reply)
{
    if (!isAnyShown())
        return;
    const Question question = m_open.takeFirst();
    if (mayLeadToAnother(question)) {
        m_answered = question.fixture;
        m_isHeld = true;
        m_hold.start();
    }
    if (question.id == Own)
        emit decided(reply);
    else
        emit said({{QStringLiteral("answer"), question.id}, {QStringLiteral("reply"), reply}});
    turn();
    emit changed();
}

void Questions::withdraw(int id)
{
    const auto place = std::find_if(m_open.begin(), m_open.end(),
                                    [id](const Question &question) { return question.id == id; });
    if (id == Own || place == m_open.end())
        return;
    const bool hadItsTurn = isAnyShown() && place == m_open.begin();
    m_open.erase(place);
    if (hadItsTurn)
        turn();
    emit changed();
}

void Questions::goOnAfter(const QString &fixture)
{
    if (fixture == m_answered)
        goOn();
}

void Questions::goOn()
{
    const bool wasAnyShown = isAnyShown();
    release();
    if (wasAnyShown || !isAnyShown())
        return;
    turn();
    emit changed();
}

void Questions::clear()
{
    release();
    m_open.clear();
    turn();
    emit changed();
}

void Questions::release()
{
    m_isHeld = false;
    m_hold.stop();
}

/// A text may be refused. It may also lead to the question whether it is meant, and "no" to
/// the text again; after any other judgement the line goes on without a word.
bool Questions::mayLeadToAnother(const Question &question) const
{
    if (question.id == Own)
        return false;
    return question.kind == Question::Text ||
           (question.kind == Question::YesNo && question.id == m_ledTo);
}

void Questions::turn()
{
    if (isAnyShown() && m_open.first().id != Own)
        emit said({{QStringLiteral("shown"), m_open.first().id}});
    emit turned();
}
