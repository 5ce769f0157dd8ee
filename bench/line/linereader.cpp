#include "bench/line/linereader.h"

#include <QMetaObject>

LineReader::LineReader(int descriptor)
    : m_input(descriptor), m_notifier(descriptor, QSocketNotifier::Read)
{
    m_notifier.setEnabled(false);
    connect(&m_notifier, SIGNAL(activated(int)), SLOT(read()));
}

void LineReader::listen(bool on)
{
    m_isListening = on;
    m_notifier.setEnabled(on && !m_isClosed);
    if (on)
        QMetaObject::invokeMethod(this, "handOver", Qt::QueuedConnection);
}

void LineReader::read()
{
    m_isClosed = !m_input.read(0);
    m_notifier.setEnabled(m_isListening && !m_isClosed);
    handOver();
}

void LineReader::handOver()
{
    QByteArray next;
    while (m_isListening && m_input.takeLine(&next))
        emit line(next);
    if (!m_isListening || !m_isClosed || m_isTold)
        return;
    m_isListening = false;
    m_isTold = true;
    emit closed();
}
