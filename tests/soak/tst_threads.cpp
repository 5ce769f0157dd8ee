/// One thread runs every slot. The card monitor's is the only other one, and what
/// it reports reaches the tool through the event queue.
#include "app/mftool.h"
#include "bench/station/frame.h"
#include "hardware/sdmon.h"
#include "protocol/testproto.h"
#include "tests/support/boardfolder.h"
#include "tests/support/ptyline.h"
#include "tests/support/requests.h"
#include "tests/support/testprogram.h"
#include "tests/whole/patience.h"

#include <QMetaMethod>
#include <QMutex>
#include <QSemaphore>
#include <QSet>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

namespace
{

QMutex mutex;
QMap<QString, Qt::HANDLE> loggedBy; ///< the thread of the last message with this text
int pipeWaits = 0;

void noteThread(QtMsgType, const QMessageLogContext &, const QString &text)
{
    const QMutexLocker locker(&mutex);
    loggedBy.insert(text, QThread::currentThreadId());
    if (text == QLatin1String("In ATE Mode--->, Waiting for SD event"))
        ++pipeWaits;
}

/// How often the card monitor has gone to its pipe.
int pipeWaitsSoFar()
{
    const QMutexLocker locker(&mutex);
    return pipeWaits;
}

/// Slots of objects of one thread, connected with the default type of connection, run
/// directly if their own thread emits, and through the queue otherwise. So it is enough
/// to see where every signal is emitted and where every object lives.
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
    /// "Class::signal" of what was emitted here.
    QSet<QByteArray> here() const { return m_here; }

public slots:
    void note()
    {
        const QMutexLocker locker(&mutex);
        ++m_emissions;
        if (QThread::currentThread() != thread()) {
            m_elsewhere.append(
                QString::fromLatin1(sender() ? sender()->metaObject()->className() : "somebody"));
            return;
        }
        const QMetaObject *meta = sender()->metaObject();
        m_here.insert(QByteArray(meta->className()) +
                      "::" + meta->method(senderSignalIndex()).name());
    }

private:
    int m_emissions = 0;
    QStringList m_elsewhere;
    QSet<QByteArray> m_here;
};

/// What the steps emit when all goes well.
const char *const successes[] = {
    "BootStream::status",  "BootStream::complete", "RootFS::status",
    "RootFS::next",        "RootFS::complete",     "UBIAttach::status",
    "UBIAttach::complete", "Mount::status",        "Mount::complete",
};

const char kobsNg[] = "#!/bin/sh\n"
                      "echo 'mtd: erasing @0:0x0-0x20000'\n"
                      "echo 'mtd: erasing @0:0x20000-0x40000'\n";
const char ubiformat[] = "#!/bin/sh\n"
                         "for phase in 'libscan: scanning' 'ubiformat: flashing' "
                         "'ubiformat: formatting'; do\n"
                         "    printf '%s eraseblock 0 -- 50 %% complete  \\r' \"$phase\"\n"
                         "    printf '%s eraseblock 1 -- 100 %% complete  \\n' \"$phase\"\n"
                         "done\n";
const char nothing[] = "#!/bin/sh\n";

} // namespace

class TestThreads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyObjectLivesHere();
    void everySignalIsEmittedHere();
    void cardEventsComeThroughTheQueue();
    void cleanupTestCase();

private:
    void addProgram(const char *name, const char *script);
    void writeCardEvent(const QByteArray &line);

    QScopedPointer<BoardFolder> m_board;
    QScopedPointer<PtyLine> m_line;
    QScopedPointer<mftool> m_widget;
};

void TestThreads::initTestCase()
{
    m_board.reset(new BoardFolder);
    m_line.reset(new PtyLine);
    m_board->link("/dev/ttySP0", m_line->path());
    m_board->makeFolder("/tmp");
    m_board->write("/usr/lib/panel/version", "20140101 1.2\n");
    // The only programs that are found: the PC's own mount must not be run.
    qputenv("PATH", QFile::encodeName(m_board->at("/programs")));
    addProgram("kobs-ng", kobsNg);
    addProgram("ubiformat", ubiformat);
    addProgram("ubiattach", nothing);
    addProgram("mount", nothing);
    m_board->makeFolder("/mnt/etc");
    qInstallMessageHandler(noteThread);
    m_widget.reset(new mftool(nullptr, m_board->board()));
    m_widget->show();
}

void TestThreads::addProgram(const char *name, const char *script)
{
    const QString path = QLatin1String("/programs/") + QLatin1String(name);
    m_board->write(path, script);
    QVERIFY(QFile::setPermissions(m_board->at(path), QFile::ReadOwner | QFile::ExeOwner));
}

void TestThreads::cleanupTestCase()
{
    m_widget.reset();
    qInstallMessageHandler(nullptr);
}

void TestThreads::everyObjectLivesHere()
{
    QList<QObject *> all = m_widget->findChildren<QObject *>();
    all.append(m_widget.data());
    QVERIFY(all.size() > 40);
    for (const QObject *object : qAsConst(all))
        QVERIFY2(object->thread() == QThread::currentThread(), object->metaObject()->className());
}

void TestThreads::everySignalIsEmittedHere()
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
    for (const SampleRequest &request : sampleRequests) {
        m_line->clear();
        m_line->send(wire::buildFrame(wire::Sender::Station, request.type, request.data) + "\r\n");
        QByteArray end("\r\n");
        if (*request.later)
            end.prepend(
                wire::buildFrame(wire::Sender::Keypad, request.lastType(), request.lastData()));
        const bool isAnswered = Patience::waitUntil(
            [&] { return m_line->received().endsWith(end); }, Patience::mountPause);
        QVERIFY2(isAnswered, request.name().constData());
    }
    QVERIFY(protocol);
    for (const char *success : successes)
        QVERIFY2(notes.here().contains(success), success);
    // At least a notifier or a signal for each request.
    QVERIFY2(notes.emissions() > 30, qPrintable(QString::number(notes.emissions())));
    QVERIFY2(notes.elsewhere().isEmpty(), qPrintable(notes.elsewhere().join(' ')));
}

void TestThreads::writeCardEvent(const QByteArray &line)
{
    const int writer = open(QFile::encodeName(m_board->at("/tmp/sdstat")).constData(), O_WRONLY);
    QVERIFY(writer >= 0);
    QCOMPARE(write(writer, line.constData(), size_t(line.size())), ssize_t(line.size()));
    close(writer);
}

void TestThreads::cardEventsComeThroughTheQueue()
{
    const TestProto *protocol = m_widget->findChild<TestProto *>();
    SDMon *monitor = m_widget->findChild<SDMon *>();
    QVERIFY(monitor->isRunning());
    // Emitted by the monitor's own thread, seen before anything is delivered.
    QSemaphore emitted;
    Qt::HANDLE emitter = nullptr;
    const auto noteEmitter = [&](const QString &) {
        emitter = QThread::currentThreadId();
        emitted.release();
    };
    connect(monitor, &SDMon::dirAdded, monitor, noteEmitter, Qt::DirectConnection);
    connect(monitor, &SDMon::dirRemoved, monitor, noteEmitter, Qt::DirectConnection);

    AWAIT_VERIFY(pipeWaitsSoFar() > 0);
    const int waits = pipeWaitsSoFar();
    writeCardEvent("#/card\n");
    QVERIFY(emitted.tryAcquire(1, 10000));
    QVERIFY(emitter != QThread::currentThreadId());
    QVERIFY2(protocol->sdCardMountPath().isNull(), "the slot did not wait for the event loop");
    AWAIT_COMPARE(protocol->sdCardMountPath(), QStringLiteral("/card"));

    // What comes while the monitor has the pipe open for the first line is lost.
    AWAIT_VERIFY(pipeWaitsSoFar() > waits);
    emitter = nullptr;
    writeCardEvent("!/card\n");
    QVERIFY(emitted.tryAcquire(1, 10000));
    QVERIFY(emitter && emitter != QThread::currentThreadId());
    QVERIFY2(protocol->sdCardMountPath() == QLatin1String("/card"),
             "the slot did not wait for the event loop");
    AWAIT_VERIFY(protocol->sdCardMountPath().isNull());

    const QMutexLocker locker(&mutex);
    const QString mounted = QStringLiteral("In ATE Mode--->, SD Mount to m_sdCardMountPath=/card");
    const QString removed =
        QStringLiteral("In ATE Mode--->, SD UnMount from m_sdCardMountPath=/card");
    QCOMPARE(loggedBy.value(mounted), QThread::currentThreadId());
    QCOMPARE(loggedBy.value(removed), QThread::currentThreadId());
}

MFTOOL_TEST(TestThreads, Widgets)
#include "tst_threads.moc"
