/// One thread runs every slot. The card monitor's is the only other one, and what
/// it reports reaches the tool through the event queue.
#include "app/mftool.h"
#include "bench/station/frame.h"
#include "hardware/sdmon.h"
#include "protocol/testproto.h"
#include "tests/support/boardfolder.h"
#include "tests/support/ptyline.h"

#include <QMetaMethod>
#include <QMutex>
#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

namespace
{

QMutex mutex;
QMap<QString, Qt::HANDLE> loggedBy; ///< the thread of the last message with this text

void noteThread(QtMsgType, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker locker(&mutex);
    loggedBy.insert(text, QThread::currentThreadId());
}

/// Slots of objects of one thread, connected without a word about the type of
/// connection, run in the thread that emits when that is their own, and through
/// the queue otherwise. So it is enough to see where every signal is emitted
/// and where every object lives.
class EmissionNotes : public QObject
{
    Q_OBJECT

public:
    void watch(QObject *sender)
    {
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("note()"));
        const QMetaObject *meta = sender->metaObject();
        for (int i = 0; i < meta->methodCount(); ++i) {
            if (meta->method(i).methodType() == QMetaMethod::Signal)
                connect(sender, meta->method(i), this, slot, Qt::DirectConnection);
        }
    }

    int emissions() const { return m_emissions; }
    QStringList elsewhere() const { return m_elsewhere; } ///< emitted in another thread than this

public slots:
    void note()
    {
        const QMutexLocker locker(&mutex);
        ++m_emissions;
        if (QThread::currentThread() != thread())
            m_elsewhere.append(
                QString::fromLatin1(sender() ? sender()->metaObject()->className() : "somebody"));
    }

private:
    int m_emissions = 0;
    QStringList m_elsewhere;
};

struct Frame {
    quint16 type;
    const char *data;
};

const Frame requests[] = {
    {0x6002, "ABCD"},
    {0x603C, "01"},
    {0x6143, "0064"},
    {0x6143, "0101"},
    {0x6144, "000F0000000000"},
    {0x6147, "80FF"},
    {0x6161, "010502"},
    {0x7000, "bars"},
    {0x7000, ""},
    {0x7010, "32"},
    {0x7020, "01"},
    {0x7020, "00"},
    {0x7030, "01"},
    {0x7030, "00"},
    {0x7040, "01"},
    {0x7041, "AT"},
    {0x7040, "00"},
    {0x7050, ""},
    {0x7053, ""},
    {0x7060, ""},
    {0x7070, ""},
    {0x7080, ""},
    {0x6001, ""},
};

} // namespace

class tst_Threads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyObjectLivesHere();
    void everySignalIsEmittedHere();
    void cardEventsComeThroughTheQueue();
    void cleanupTestCase();

private:
    QScopedPointer<BoardFolder> m_board;
    QScopedPointer<PtyLine> m_line;
    QScopedPointer<mftool> m_widget;
};

void tst_Threads::initTestCase()
{
    m_board.reset(new BoardFolder);
    m_line.reset(new PtyLine);
    m_board->link("/dev/ttySP0", m_line->path());
    m_board->makeFolder("/tmp");
    m_board->write("/usr/lib/panel/version", "20140101 1.2\n");
    // No program is ever found: the PC's own mount must not be run.
    qputenv("PATH", QFile::encodeName(m_board->at("/tmp")));
    qInstallMessageHandler(noteThread);
    m_widget.reset(new mftool(nullptr, m_board->board()));
    m_widget->show();
}

void tst_Threads::cleanupTestCase()
{
    m_widget.reset();
    qInstallMessageHandler(nullptr);
}

void tst_Threads::everyObjectLivesHere()
{
    QList<QObject *> all = m_widget->findChildren<QObject *>();
    all.append(m_widget.data());
    QVERIFY(all.size() > 40);
    for (const QObject *object : qAsConst(all))
        QVERIFY2(object->thread() == QThread::currentThread(), object->metaObject()->className());
}

void tst_Threads::everySignalIsEmittedHere()
{
    EmissionNotes notes;
    const SDMon *monitor = m_widget->findChild<SDMon *>();
    QVERIFY(monitor);
    QList<QObject *> all = m_widget->findChildren<QObject *>();
    all.append(m_widget.data());
    for (QObject *object : qAsConst(all)) {
        if (object != monitor)
            notes.watch(object);
    }
    const TestProto *protocol = m_widget->findChild<TestProto *>();
    for (const Frame &request : requests) {
        m_line->clear();
        m_line->send(wire::buildFrame(wire::Sender::Station, request.type, request.data) + "\r\n");
        QTRY_VERIFY_WITH_TIMEOUT(m_line->received().endsWith("\r\n"), 60000);
    }
    QVERIFY(protocol);
    // A notifier or a signal for each request at the least.
    QVERIFY2(notes.emissions() > 30, qPrintable(QString::number(notes.emissions())));
    QVERIFY2(notes.elsewhere().isEmpty(), qPrintable(notes.elsewhere().join(' ')));
}

void tst_Threads::cardEventsComeThroughTheQueue()
{
    const TestProto *protocol = m_widget->findChild<TestProto *>();
    SDMon *monitor = m_widget->findChild<SDMon *>();
    QVERIFY(monitor->isRunning());
    // Emitted by the monitor's own thread, seen before anything is delivered.
    QSemaphore emitted;
    Qt::HANDLE emitter = nullptr;
    connect(
        monitor, &SDMon::dirAdded, monitor,
        [&](const QString &) {
            emitter = QThread::currentThreadId();
            emitted.release();
        },
        Qt::DirectConnection);

    const int writer = open(QFile::encodeName(m_board->at("/tmp/sdstat")).constData(), O_WRONLY);
    QVERIFY(writer >= 0);
    QCOMPARE(write(writer, "#/card\n", 7), ssize_t(7));
    close(writer);
    QVERIFY(emitted.tryAcquire(1, 60000));
    QVERIFY(emitter != QThread::currentThreadId());
    QVERIFY2(protocol->sdCardMountPath().isNull(), "the slot did not wait for the event loop");

    QTRY_COMPARE_WITH_TIMEOUT(protocol->sdCardMountPath(), QStringLiteral("/card"), 60000);
    const QMutexLocker locker(&mutex);
    const QString line = QStringLiteral("In ATE Mode--->, SD Mount to m_sdCardMountPath=/card");
    QCOMPARE(loggedBy.value(line), QThread::currentThreadId());
}

QTEST_MAIN(tst_Threads)
#include "tst_threads.moc"
