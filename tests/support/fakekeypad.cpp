#include "tests/support/fakekeypad.h"

#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

FakeKeypad::FakeKeypad()
    : m_notifier(new QSocketNotifier(m_line.near(), QSocketNotifier::Read, this))
{
    // A test that plays the keypad without an event loop waits in read().
    fcntl(m_line.near(), F_SETFL, 0);
    connect(m_notifier, SIGNAL(activated(int)), SLOT(read()));
}

int FakeKeypad::takeStationEnd() const
{
    return open(path().toLatin1().constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

void FakeKeypad::answer(const QByteArray &request, const QByteArray &bytes)
{
    answerInPieces(request, QList<QByteArray>() << bytes);
}

void FakeKeypad::answerInPieces(const QByteArray &request, const QList<QByteArray> &pieces)
{
    m_answers[request.trimmed()].append(pieces);
}

void FakeKeypad::hangUp()
{
    delete m_notifier;
    m_notifier = nullptr;
    m_line.hangUp();
}

void FakeKeypad::read()
{
    char bytes[4096];
    const ssize_t count = ::read(m_line.near(), bytes, sizeof bytes);
    if (count <= 0)
        return;
    m_reads.append(QByteArray(bytes, static_cast<int>(count)));
    m_pending.append(m_reads.last());
    for (auto end = m_pending.indexOf("\r\n"); end >= 0; end = m_pending.indexOf("\r\n")) {
        const QByteArray request = m_pending.left(end);
        m_pending.remove(0, end + 2);
        requests.append(request);
        sayNextAnswer(request);
        if (onRequest)
            onRequest();
    }
}

void FakeKeypad::sayNextAnswer(const QByteArray &request)
{
    QList<QList<QByteArray>> &answers = m_answers[request];
    if (answers.isEmpty())
        return;
    const QList<QByteArray> pieces = answers.size() > 1 ? answers.takeFirst() : answers.first();
    for (const QByteArray &piece : pieces)
        say(piece);
}
