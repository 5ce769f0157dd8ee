#include "bench/screen/questions.h"

#include <algorithm>

namespace
{

const int Own = 0; ///< id of the screen's own question

} // namespace

bool Questions::isOpenAt(const QString &fixture) const
{
    return std::any_of(m_open.begin(), m_open.end(), [&fixture](const Question &question) {
        return question.id != Own && question.fixture == fixture;
    });
}

void Questions::ask(const Question &question)
{
    m_open.append(question);
    if (m_open.size() == 1)
        turn();
    else
        emit said({{QStringLiteral("waits"), question.id}});
    emit changed();
}

void Questions::interject(const Question &question)
{
    if (!m_open.isEmpty() && m_open.first().id == Own)
        return;
    if (!m_open.isEmpty())
        emit said({{QStringLiteral("waits"), m_open.first().id}});
    m_open.prepend(question);
    m_open.first().id = Own;
    turn();
    emit changed();
}

void Questions::answer(const QString &reply)
{
    if (m_open.isEmpty())
        return;
    const Question question = m_open.takeFirst();
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
    const bool hadItsTurn = place == m_open.begin();
    m_open.erase(place);
    if (hadItsTurn)
        turn();
    emit changed();
}

void Questions::clear()
{
    m_open.clear();
    turn();
    emit changed();
}

void Questions::turn()
{
    if (!m_open.isEmpty() && m_open.first().id != Own)
        emit said({{QStringLiteral("shown"), m_open.first().id}});
    emit turned();
}
