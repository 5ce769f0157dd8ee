#include "tests/flash/loggingsteptest.h"

#include "tests/flash/steptest.h"

void LoggingStepTest::toolIsCalled()
{
    FakePrograms programs;
    programs.addNoting(m_expected.program, "exit 0");
    const std::unique_ptr<MFProc> step = makeStep();
    Emitted emitted(step.get());
    LogCatcher log;
    step->run();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(programs.argumentsSeen(), m_expected.arguments);
    QCOMPARE(programs.directorySeen(), QDir::currentPath());
    QCOMPARE(processOf(*step)->workingDirectory(), QString());
    QCOMPARE(log.lines(), strings(m_expected.startLine, "debug: process finished with code 0"));
}

void LoggingStepTest::toolInheritsTheEnvironment()
{
    // Set after the step was made: what counts is the environment of the start.
    FakePrograms programs;
    programs.add(m_expected.program, "printf '%s\\n' \"$POINTERCAL_FILE\" >\"$here/seen\"");
    const std::unique_ptr<MFProc> step = makeStep();
    Emitted emitted(step.get());
    qputenv("POINTERCAL_FILE", "/mnt/etc/pointercal");
    step->run();
    TRY_COMPARE(emitted.events.size(), 2);
    qunsetenv("POINTERCAL_FILE");
    QCOMPARE(programs.content("seen"), QByteArray("/mnt/etc/pointercal\n"));
}

void LoggingStepTest::outputGoesToTheLog()
{
    FakePrograms programs;
    programs.add(m_expected.program,
                 "printf 'one\\r\\ntwo %%s %%d\\n\\nunfinished'; echo complaint >&2");
    const std::unique_ptr<MFProc> step = makeStep();
    Emitted emitted(step.get());
    LogCatcher log;
    step->run();
    TRY_COMPARE(emitted.events, strings("status 100", "complete"));
    QCOMPARE(log.lines(),
             strings(m_expected.startLine, "debug: one\r", "debug: \n", "debug: two %s %d\n",
                     "debug: \n", "debug: process finished with code 0"));
}

void LoggingStepTest::everyOutcomeIsReported_data()
{
    QTest::addColumn<QString>("capture");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QStringList>("log");
    addOutcomes();
}

void LoggingStepTest::everyOutcomeIsReported()
{
    QFETCH(QString, capture);
    QFETCH(int, exitCode);
    QFETCH(QStringList, events);
    QFETCH(QStringList, log);

    FakePrograms programs;
    programs.addPlaying(m_expected.program, capture, exitCode);
    const std::unique_ptr<MFProc> step = makeStep();
    Emitted emitted(step.get());
    LogCatcher seen;
    step->run();
    TRY_COMPARE(emitted.events, events);
    QCOMPARE(seen.lines(), log);
}

void LoggingStepTest::missingProgramFails()
{
    FakePrograms programs;
    qputenv("PATH", QFile::encodeName(programs.path(".")));
    const std::unique_ptr<MFProc> step = makeStep();
    Emitted emitted(step.get());
    LogCatcher log;
    step->run();
    TRY_COMPARE(emitted.events, QStringList("failed Failed to Start"));
    QCOMPARE(log.lines(), strings(m_expected.startLine, "debug: Process error 'Failed to Start'"));
}
