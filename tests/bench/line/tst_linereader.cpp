#include "bench/line/linereader.h"

#include "tests/bench/line/otherside.h"
#include "tests/support/testprogram.h"

#include <QList>
#include <QTest>

namespace
{

/// Who reads, and may stop listening after each line.
class Listener : public QObject
{
    Q_OBJECT

public:
    explicit Listener(LineReader *reader) : m_reader(reader)
    {
        connect(reader, SIGNAL(line(QByteArray)), SLOT(take(QByteArray)));
        connect(reader, SIGNAL(closed()), SLOT(end()));
    }

    QList<QByteArray> lines;
    int ends = 0;
    bool takesOne = false;

private slots:
    void take(const QByteArray &line)
    {
        lines.append(line);
        if (takesOne)
            m_reader->listen(false);
    }
    void end() { ++ends; }

private:
    LineReader *m_reader;
};

/// A round of the event loop, with all that is due in it.
void serveEvents()
{
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

} // namespace

class TestLineReader : public QObject
{
    Q_OBJECT

private slots:
    void readsWholeLines();
    void readsNothingUntilItListens();
    void handsOverOneLineAtATime();
    void forgetsWhatWasTypedAhead();
    void tellsOnceThatNothingCanCome();
    void handsOverWhatCameBeforeTheEnd();
};

void TestLineReader::readsWholeLines()
{
    OtherSide other;
    LineReader reader(other.answers());
    Listener listener(&reader);
    reader.listen(true);
    other.say("a\nb");
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines.size(), 1, 60000);
    other.say("c\n\n");
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines.size(), 3, 60000);
    QCOMPARE(listener.lines, (QList<QByteArray>{"a", "bc", ""}));
    QCOMPARE(listener.ends, 0);
}

void TestLineReader::readsNothingUntilItListens()
{
    OtherSide other;
    LineReader reader(other.answers());
    Listener listener(&reader);
    other.say("a\n");
    serveEvents();
    QVERIFY(listener.lines.isEmpty());
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines, QList<QByteArray>{"a"}, 60000);
}

void TestLineReader::handsOverOneLineAtATime()
{
    OtherSide other;
    LineReader reader(other.answers());
    Listener listener(&reader);
    listener.takesOne = true;
    other.say("a\nb\n");
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines, QList<QByteArray>{"a"}, 60000);
    serveEvents();
    QCOMPARE(listener.lines.size(), 1);
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines.size(), 2, 60000);
    QCOMPARE(listener.lines.last(), QByteArray("b"));
}

void TestLineReader::forgetsWhatWasTypedAhead()
{
    OtherSide other(OtherSide::Terminal);
    LineReader reader(other.answers());
    Listener listener(&reader);
    other.say("a\nb\n");
    reader.forgetTypedAhead();
    reader.listen(true);
    other.say("c\n");
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines, QList<QByteArray>{"c"}, 60000);
}

void TestLineReader::tellsOnceThatNothingCanCome()
{
    OtherSide other;
    LineReader reader(other.answers());
    Listener listener(&reader);
    other.hangUp();
    serveEvents();
    QCOMPARE(listener.ends, 0); // nobody asked
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.ends, 1, 60000);
    reader.listen(true);
    serveEvents();
    QCOMPARE(listener.ends, 1);
}

void TestLineReader::handsOverWhatCameBeforeTheEnd()
{
    OtherSide other;
    LineReader reader(other.answers());
    Listener listener(&reader);
    listener.takesOne = true;
    other.say("a\nb\n");
    other.hangUp();
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines.size(), 1, 60000);
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.lines, (QList<QByteArray>{"a", "b"}), 60000);
    QCOMPARE(listener.ends, 0);
    reader.listen(true);
    QTRY_COMPARE_WITH_TIMEOUT(listener.ends, 1, 60000);
}

MFTOOL_TEST(TestLineReader, EventLoop)
#include "tst_linereader.moc"
