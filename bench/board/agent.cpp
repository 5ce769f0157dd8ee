#include "bench/board/agent.h"

#include <QDeadlineTimer>
#include <QLocalSocket>

Agent::Agent(QObject *parent) : QObject(parent), m_socket(new QLocalSocket)
{
    connect(m_socket.get(), SIGNAL(readyRead()), SLOT(take()));
}

Agent::~Agent() = default;

bool Agent::open(int descriptor)
{
    close();
    return m_socket->setSocketDescriptor(descriptor);
}

void Agent::close()
{
    m_socket->abort();
    m_input.clear();
    m_stores.clear();
    m_streams.clear();
    m_there = false;
}

Agent::Answer Agent::run(const QByteArray &script, int limitMs)
{
    return answer(send("run " + QByteArray::number(script.size()), script), limitMs);
}

int Agent::follow(const QByteArray &script)
{
    const int id = send("run " + QByteArray::number(script.size()), script);
    m_streams[id].follows = true;
    return id;
}

Agent::Answer Agent::get(const QString &path)
{
    return answer(send("get " + path.toUtf8()), DefaultLimitMs);
}

Agent::Answer Agent::put(const QString &path, const QByteArray &bytes)
{
    const QByteArray size = QByteArray::number(bytes.size());
    return answer(send("put " + size + ' ' + path.toUtf8(), bytes), DefaultLimitMs);
}

Agent::Answer Agent::ask(const QByteArray &request)
{
    return answer(send(request), DefaultLimitMs);
}

int Agent::send(const QByteArray &request, const QByteArray &bytes)
{
    const int id = ++m_last;
    m_streams.insert(id, Stream());
    m_socket->write(QByteArray::number(id) + ' ' + request + '\n' + bytes);
    m_socket->flush();
    return id;
}

Agent::Answer Agent::answer(int id, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    while (!m_streams.value(id).ended && m_socket->state() == QLocalSocket::ConnectedState &&
           !deadline.hasExpired()) {
        m_socket->waitForReadyRead(static_cast<int>(deadline.remainingTime()));
        take();
    }
    const Stream stream = m_streams.take(id);
    Answer answer;
    answer.came = stream.ended;
    answer.status = stream.status;
    answer.output = stream.bytes;
    return answer;
}

void Agent::take()
{
    m_input += m_socket->readAll();
    while (takeOne()) {
    }
}

/// "ID out LENGTH" and so many bytes, or "ID end STATUS". False when there is no
/// whole one.
bool Agent::takeOne()
{
    const auto lineEnd = m_input.indexOf('\n');
    if (lineEnd < 0)
        return false;
    const QList<QByteArray> words = m_input.left(lineEnd).split(' ');
    if (words.size() != 3) {
        m_input.remove(0, lineEnd + 1);
        return true;
    }
    if (words.at(1) == "out") {
        const int length = words.at(2).toInt();
        if (m_input.size() < lineEnd + 1 + length)
            return false;
        const QByteArray bytes = m_input.mid(lineEnd + 1, length);
        m_input.remove(0, lineEnd + 1 + length);
        takeOutput(words.at(0), bytes);
        return true;
    }
    m_input.remove(0, lineEnd + 1);
    const int id = words.at(0).toInt();
    if (id == 0)
        m_there = true;
    const auto stream = m_streams.find(id);
    if (stream == m_streams.end())
        return true;
    stream->ended = true;
    stream->status = words.at(2).toInt();
    if (stream->follows)
        m_streams.erase(stream);
    return true;
}

void Agent::takeOutput(const QByteArray &id, const QByteArray &bytes)
{
    if (id == "stores") {
        m_stores += bytes;
        passLines(&m_stores, 0);
        return;
    }
    const auto stream = m_streams.find(id.toInt());
    if (stream == m_streams.end()) // nobody waits any more
        return;
    stream->bytes += bytes;
    if (stream->follows)
        passLines(&stream->bytes, id.toInt());
}

void Agent::passLines(QByteArray *pending, int mark)
{
    // What hears of a line may ask the agent something, which changes the streams.
    QList<QByteArray> lines = pending->split('\n');
    *pending = lines.takeLast();
    for (const QByteArray &line : qAsConst(lines)) {
        if (mark == 0)
            emit stored(line);
        else
            emit printed(mark, line);
    }
}
