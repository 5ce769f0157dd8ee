#include "bench/line/jsondesk.h"

#include <QEventLoop>
#include <QJsonDocument>

#include <algorithm>

namespace
{

const int SliceMs = 20; ///< between two looks at the answers the line is served

} // namespace

bool JsonDesk::isDeserted()
{
    return m_answers.isEmpty() && !m_answers.read(0);
}

void JsonDesk::tell(const QString &text)
{
    m_stream->say("told", {{QStringLiteral("text"), text}});
}

OperatorDesk::Reply JsonDesk::confirm(const QString &text, int limitMs)
{
    QString reply;
    return put(Confirm, text, limitMs, &reply);
}

OperatorDesk::Reply JsonDesk::question(const QString &text, int limitMs)
{
    QString reply;
    const Reply result = put(YesNo, text, limitMs, &reply);
    return result == Yes && reply == QLatin1String("no") ? No : result;
}

OperatorDesk::Reply JsonDesk::ask(const QString &text, int limitMs, QString *line)
{
    QString reply;
    const Reply result = put(Text, text, limitMs, &reply);
    if (result == Yes)
        *line = reply.trimmed();
    return result;
}

OperatorDesk::Reply JsonDesk::put(Kind kind, const QString &text, int limitMs, QString *reply)
{
    static const char *const names[] = {"confirm", "yes/no", "text"};
    ++m_id;
    m_stream->say("question", {{QStringLiteral("id"), m_id},
                               {QStringLiteral("kind"), QLatin1String(names[kind])},
                               {QStringLiteral("text"), text},
                               {QStringLiteral("limit_ms"), limitMs}});
    const Reply result = await(kind, limitMs, reply);
    m_stream->say("question over", {{QStringLiteral("id"), m_id}});
    return result;
}

/// @return Yes for any answer that the question can have
OperatorDesk::Reply JsonDesk::await(Kind kind, int limitMs, QString *reply)
{
    m_deadline.setRemainingTime(limitMs);
    for (;;) {
        if (takeLines(kind, limitMs, reply))
            return Yes;
        if (m_interrupt != nullptr && m_interrupt->isRaised())
            return Interrupted;
        const qint64 left = m_deadline.isForever()
                                ? SliceMs
                                : std::min<qint64>(SliceMs, m_deadline.remainingTime());
        const bool canAnswer = m_answers.read(static_cast<int>(left));
        QEventLoop().processEvents();
        // What was said in time counts, even if this program reads it late.
        if (takeLines(kind, limitMs, reply))
            return Yes;
        if (!canAnswer)
            return Nobody;
        if (left == 0 && m_deadline.hasExpired())
            return TooLate;
    }
}

/// @return whether one of those that have come answers the question
bool JsonDesk::takeLines(Kind kind, int limitMs, QString *reply)
{
    QByteArray line;
    while (m_answers.takeLine(&line)) {
        if (take(line, kind, limitMs, reply))
            return true;
    }
    return false;
}

/// @return whether it answers the question
bool JsonDesk::take(const QByteArray &line, Kind kind, int limitMs, QString *reply)
{
    const QJsonDocument document = QJsonDocument::fromJson(line);
    if (!document.isObject()) {
        refuse(line, "not a JSON object");
        return false;
    }
    const QJsonObject object = document.object();
    // Whoever asks several questions in turn says when this one is asked.
    if (object.value(QStringLiteral("waits")).toInt() == m_id) {
        m_deadline = QDeadlineTimer(QDeadlineTimer::Forever);
        return false;
    }
    if (object.value(QStringLiteral("shown")).toInt() == m_id) {
        m_deadline.setRemainingTime(limitMs);
        return false;
    }
    // An answer to a question that is over may still be on its way.
    if (object.value(QStringLiteral("answer")).toInt() != m_id) {
        refuse(line, "not of the open question");
        return false;
    }
    const QJsonValue value = object.value(QStringLiteral("reply"));
    *reply = value.toString();
    const bool isYes = *reply == QLatin1String("yes");
    const bool isNo = *reply == QLatin1String("no");
    if (value.isString() && (kind == Text || isYes || (kind == YesNo && isNo)))
        return true;
    refuse(line, kind == Text    ? "its reply is a text"
                 : kind == YesNo ? "its reply is \"yes\" or \"no\""
                                 : "its reply is \"yes\"");
    return false;
}

void JsonDesk::refuse(const QByteArray &line, const char *reason)
{
    m_stream->say("refused", {{QStringLiteral("line"), QString::fromUtf8(line)},
                              {QStringLiteral("reason"), QLatin1String(reason)}});
}
