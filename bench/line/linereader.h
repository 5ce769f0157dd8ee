/// Lines from a descriptor as signals of the event loop.
#ifndef BENCH_LINE_LINEREADER_H
#define BENCH_LINE_LINEREADER_H

#include "bench/line/lineinput.h"

#include <QObject>
#include <QSocketNotifier>

class LineReader : public QObject
{
    Q_OBJECT

public:
    /// Reads nothing until listen().
    /// @param descriptor  kept by the caller
    explicit LineReader(int descriptor);

    void listen(bool on);
    /// For a terminal, see LineInput.
    void forgetTypedAhead() { m_input.forgetTypedAhead(); }

signals:
    /// One at a time while it listens; lines that come early wait until it listens again.
    void line(const QByteArray &line);
    /// Nothing more can come. Once.
    void closed();

private slots:
    void read();
    void handOver();

private:
    LineInput m_input;
    QSocketNotifier m_notifier;
    bool m_isListening = false;
    bool m_isClosed = false;
    bool m_isTold = false; ///< that it is closed
};

#endif
