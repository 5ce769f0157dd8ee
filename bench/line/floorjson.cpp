#include "bench/line/floorjson.h"

#include <QJsonDocument>

FloorJson::FloorJson(int answers, JsonStream *stream) : m_stream(stream), m_answers(answers)
{
    connect(&m_answers, SIGNAL(line(QByteArray)), SLOT(take(QByteArray)));
    connect(&m_answers, SIGNAL(closed()), SLOT(close()));
}

void FloorJson::begin(const Plan &, const QStringList &fixtures, int)
{
    m_fixtures = fixtures;
    m_answers.listen(true);
}

void FloorJson::heard(int fixture, const QJsonObject &event)
{
    const QString name = event.value(QStringLiteral("event")).toString();
    const int id = event.value(QStringLiteral("id")).toInt();
    QJsonObject object = event;
    if (name == QLatin1String("question")) {
        m_open.insert(++m_last, {fixture, id});
        object.insert(QStringLiteral("id"), m_last);
    } else if (name == QLatin1String("question over")) {
        for (auto open = m_open.cbegin(); open != m_open.cend(); ++open) {
            if (open->fixture != fixture || open->id != id)
                continue;
            finish(open.key());
            break;
        }
        return;
    }
    m_stream->say(qPrintable(name), object);
}

void FloorJson::finish(int id)
{
    const Question question = m_open.take(id);
    m_stream->say("question over", {{QStringLiteral("id"), id},
                                    {QStringLiteral("fixture"), m_fixtures.at(question.fixture)}});
}

void FloorJson::idle(int fixture)
{
    const QList<int> ids = m_open.keys();
    for (const int id : ids) {
        if (m_open.value(id).fixture == fixture)
            finish(id);
    }
}

void FloorJson::told(const QString &about, const QString &text)
{
    JsonWatcher(m_stream).told(about, text);
}

void FloorJson::summary(const QList<UnitRecord> &units, const QString &files)
{
    JsonWatcher(m_stream).summary(units, files);
}

void FloorJson::take(const QByteArray &line)
{
    QJsonObject object = QJsonDocument::fromJson(line).object();
    for (const char *key : {"answer", "waits", "shown"}) {
        const int id = object.value(QLatin1String(key)).toInt();
        if (!m_open.contains(id))
            continue;
        const Question question = m_open.value(id);
        object.insert(QLatin1String(key), question.id);
        say(question.fixture, object);
        return;
    }
    m_stream->say("refused",
                  {{QStringLiteral("line"), QString::fromUtf8(line)},
                   {QStringLiteral("reason"), QStringLiteral("not of an open question")}});
}

void FloorJson::close()
{
    hangUp();
}
