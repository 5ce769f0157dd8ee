#include "flash/mount.h"
#include "tests/flash/steptest.h"

class TestMount : public QObject
{
    Q_OBJECT

private slots:
    void classAddsNoSignalOrSlot();
    void toolIsCalled();
    void toolInheritsTheEnvironment();
    void outputGoesToTheLog();
    void everyOutcomeIsReported_data();
    void everyOutcomeIsReported();
    void missingProgramFails();
};

void TestMount::classAddsNoSignalOrSlot()
{
    QCOMPARE(QString(Mount::staticMetaObject.className()), QString("Mount"));
    QCOMPARE(Mount::staticMetaObject.superClass(), &MFProc::staticMetaObject);
    QCOMPARE(declaredMethods(Mount::staticMetaObject), QStringList());
}

void TestMount::toolIsCalled()
{
    FakePrograms programs;
    programs.addNoting("mount", "exit 0");
    Mount step(nullptr);
    Emitted emitted(&step);
    Log log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList() << "status 100"
                                              << "complete");
    QCOMPARE(programs.argumentsSeen(), QStringList() << "-t"
                                                     << "ubifs"
                                                     << "/dev/ubi0_0"
                                                     << "/mnt");
    QCOMPARE(programs.directorySeen(), QDir::currentPath());
    QCOMPARE(processOf(step)->workingDirectory(), QString());
    QCOMPARE(log.lines, QStringList() << "debug: Starting mount"
                                      << "debug: process finished with code 0");
}

void TestMount::toolInheritsTheEnvironment()
{
    // Set after the step was made: what counts is the environment of the start.
    FakePrograms programs;
    programs.add("mount", "printf '%s\\n' \"$POINTERCAL_FILE\" >\"$here/seen\"");
    Mount step(nullptr);
    Emitted emitted(&step);
    qputenv("POINTERCAL_FILE", "/mnt/etc/pointercal");
    step.run();
    TRY_COMPARE(emitted.events.size(), 2);
    qunsetenv("POINTERCAL_FILE");
    QCOMPARE(programs.content("seen"), QByteArray("/mnt/etc/pointercal\n"));
}

void TestMount::outputGoesToTheLog()
{
    FakePrograms programs;
    programs.add("mount", "printf 'one\\r\\ntwo %%s %%d\\n\\nunfinished'; echo complaint >&2");
    Mount step(nullptr);
    Emitted emitted(&step);
    Log log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList() << "status 100"
                                              << "complete");
    QCOMPARE(log.lines, QStringList() << "debug: Starting mount"
                                      << "debug: one\r"
                                      << "debug: \n"
                                      << "debug: two %s %d\n"
                                      << "debug: \n"
                                      << "debug: process finished with code 0");
}

void TestMount::everyOutcomeIsReported_data()
{
    QTest::addColumn<QString>("capture");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QStringList>("log");

    const QStringList success = QStringList() << "status 100"
                                              << "complete";
    const QStringList failure("failed Finished with Error");
    QTest::newRow("mounted") << "mount-good" << 0 << success
                             << (QStringList() << "debug: Starting mount"
                                               << "debug: process finished with code 0");
    QTest::newRow("already mounted") << "mount-already" << 32 << failure
                                     << (QStringList() << "debug: Starting mount"
                                                       << "debug: process finished with code 32");
    QTest::newRow("no volume") << "mount-no-volume" << 32 << failure
                               << (QStringList() << "debug: Starting mount"
                                                 << "debug: process finished with code 32");
}

void TestMount::everyOutcomeIsReported()
{
    QFETCH(QString, capture);
    QFETCH(int, exitCode);
    QFETCH(QStringList, events);
    QFETCH(QStringList, log);

    FakePrograms programs;
    programs.addPlaying("mount", capture, exitCode);
    Mount step(nullptr);
    Emitted emitted(&step);
    Log seen;
    step.run();
    TRY_COMPARE(emitted.events, events);
    QCOMPARE(seen.lines, log);
}

void TestMount::missingProgramFails()
{
    FakePrograms programs;
    qputenv("PATH", QFile::encodeName(programs.path(".")));
    Mount step(nullptr);
    Emitted emitted(&step);
    Log log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList("failed Failed to Start"));
    QCOMPARE(log.lines, QStringList() << "debug: Starting mount"
                                      << "debug: Process error 'Failed to Start'");
}

QTEST_GUILESS_MAIN(TestMount)
#include "tst_mount.moc"
