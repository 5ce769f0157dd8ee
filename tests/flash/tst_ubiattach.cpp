#include "flash/ubiattach.h"
#include "tests/flash/steptest.h"

class TestUBIAttach : public QObject
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

void TestUBIAttach::classAddsNoSignalOrSlot()
{
    QCOMPARE(QString(UBIAttach::staticMetaObject.className()), QString("UBIAttach"));
    QCOMPARE(UBIAttach::staticMetaObject.superClass(), &MFProc::staticMetaObject);
    QCOMPARE(declaredMethods(UBIAttach::staticMetaObject), QStringList());
}

void TestUBIAttach::toolIsCalled()
{
    FakePrograms programs;
    programs.addNoting("ubiattach", "exit 0");
    UBIAttach step(nullptr);
    Emitted emitted(&step);
    Log log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList() << "status 100"
                                              << "complete");
    QCOMPARE(programs.argumentsSeen(), QStringList() << "/dev/ubi_ctrl"
                                                     << "-m"
                                                     << "1");
    QCOMPARE(programs.directorySeen(), QDir::currentPath());
    QCOMPARE(processOf(step)->workingDirectory(), QString());
    QCOMPARE(log.lines, QStringList() << "debug: Starting ubiattach"
                                      << "debug: process finished with code 0");
}

void TestUBIAttach::toolInheritsTheEnvironment()
{
    // Set after the step was made: what counts is the environment of the start.
    FakePrograms programs;
    programs.add("ubiattach", "printf '%s\\n' \"$POINTERCAL_FILE\" >\"$here/seen\"");
    UBIAttach step(nullptr);
    Emitted emitted(&step);
    qputenv("POINTERCAL_FILE", "/mnt/etc/pointercal");
    step.run();
    TRY_COMPARE(emitted.events.size(), 2);
    qunsetenv("POINTERCAL_FILE");
    QCOMPARE(programs.content("seen"), QByteArray("/mnt/etc/pointercal\n"));
}

void TestUBIAttach::outputGoesToTheLog()
{
    FakePrograms programs;
    programs.add("ubiattach", "printf 'one\\r\\ntwo %%s %%d\\n\\nunfinished'; echo complaint >&2");
    UBIAttach step(nullptr);
    Emitted emitted(&step);
    Log log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList() << "status 100"
                                              << "complete");
    QCOMPARE(log.lines, QStringList() << "debug: Starting ubiattach"
                                      << "debug: one\r"
                                      << "debug: \n"
                                      << "debug: two %s %d\n"
                                      << "debug: \n"
                                      << "debug: process finished with code 0");
}

void TestUBIAttach::everyOutcomeIsReported_data()
{
    QTest::addColumn<QString>("capture");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QStringList>("log");

    const QStringList success = QStringList() << "status 100"
                                              << "complete";
    const QStringList failure("failed Finished with Error");
    QTest::newRow("attached")
        << "ubiattach-good" << 0 << success
        << (QStringList() << "debug: Starting ubiattach"
                          << "debug: UBI device number 0, total 1984 LEBs (255983616 bytes, 244.1 "
                             "MiB), available 0 LEBs (0 bytes), LEB size 129024 bytes (126.0 KiB)\n"
                          << "debug: process finished with code 0");
    QTest::newRow("already attached") << "ubiattach-twice" << 255 << failure
                                      << (QStringList() << "debug: Starting ubiattach"
                                                        << "debug: process finished with code 255");
    QTest::newRow("no UBI in the kernel")
        << "ubiattach-no-ubi" << 255 << failure
        << (QStringList() << "debug: Starting ubiattach"
                          << "debug: process finished with code 255");
}

void TestUBIAttach::everyOutcomeIsReported()
{
    QFETCH(QString, capture);
    QFETCH(int, exitCode);
    QFETCH(QStringList, events);
    QFETCH(QStringList, log);

    FakePrograms programs;
    programs.addPlaying("ubiattach", capture, exitCode);
    UBIAttach step(nullptr);
    Emitted emitted(&step);
    Log seen;
    step.run();
    TRY_COMPARE(emitted.events, events);
    QCOMPARE(seen.lines, log);
}

void TestUBIAttach::missingProgramFails()
{
    FakePrograms programs;
    qputenv("PATH", QFile::encodeName(programs.path(".")));
    UBIAttach step(nullptr);
    Emitted emitted(&step);
    Log log;
    step.run();
    TRY_COMPARE(emitted.events, QStringList("failed Failed to Start"));
    QCOMPARE(log.lines, QStringList() << "debug: Starting ubiattach"
                                      << "debug: Process error 'Failed to Start'");
}

QTEST_GUILESS_MAIN(TestUBIAttach)
#include "tst_ubiattach.moc"
