#include "bench/station/stationcommand.h"
#include "bench/station/transcript.h"
#include "tests/support/fakekeypad.h"
#include "tests/support/testprogram.h"

#include <QtTest>

#include <QProcess>

/// Runs the bench as a person does, on a line that a fake keypad answers.
class TestStationCommand : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void helpSaysItAll();
    void refusesWrongUsage_data();
    void refusesWrongUsage();
    void carriesOutOneCommand();
    void exitStatusTellsWhy_data();
    void exitStatusTellsWhy();
    void readsCommandsFromStandardInput();
    void leavesThePrompt();
    void tellsThatExitEndsTheTool();
    void endsWithoutStandardInput();
    void printsWhatComesUnasked();
    void endsWhenTheLineHangsUp();
    void waitsForReady();
    void listensAndWaits();
    void recordsAndReplays();
    void sharesNoLine();
    void tellsThatATranscriptIsNotWhole();
    void decodes_data();
    void decodes();
    void decodesStandardInput();

private:
    struct Run {
        int status = -1;
        QString out;
        QString err;
    };

    static QString program();
    Run run(const QStringList &arguments, const QByteArray &input = QByteArray());
    Run station(const QStringList &arguments, const QByteArray &input = QByteArray());
    void converse(QProcess &process);

    std::unique_ptr<FakeKeypad> m_keypad;
};

QString TestStationCommand::program()
{
    return QString::fromLocal8Bit(qgetenv("MFTOOL_BUILD_DIR")) + QStringLiteral("/bench");
}

void TestStationCommand::initTestCase()
{
    QVERIFY2(QFile::exists(program()), "MFTOOL_BUILD_DIR names no build folder");
    qRegisterMetaType<QProcess::ExitStatus>();
}

void TestStationCommand::init()
{
    m_keypad = std::make_unique<FakeKeypad>();
    m_keypad->answer("7E000E61431F006403607F\r\n", QByteArray("7E000A00043102957F\r\n"));
    m_keypad->answer("7E000A70801C02907F\r\n", QByteArray("7E001270810F0001234504347F\r\n"));
    m_keypad->answer("7E000A70531C02907F\r\n", QByteArray("7E000A00033002937F\r\n"));
    m_keypad->answer("7E000A70701B028E7F\r\n", QByteArray("7E000C70713E0003377F\r\n"));
}

TestStationCommand::Run TestStationCommand::run(const QStringList &arguments,
                                                const QByteArray &input)
{
    QProcess process;
    QSignalSpy finished(&process, SIGNAL(finished(int, QProcess::ExitStatus)));
    process.start(program(), arguments);
    process.write(input);
    process.closeWriteChannel();
    Run result;
    // The event loop that plays the keypad has to run meanwhile.
    if (!finished.wait(60000))
        return result;
    if (process.exitStatus() == QProcess::NormalExit)
        result.status = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

TestStationCommand::Run TestStationCommand::station(const QStringList &arguments,
                                                    const QByteArray &input)
{
    return run(QStringList{"station", m_keypad->path()} + arguments, input);
}

void TestStationCommand::helpSaysItAll()
{
    const Run help = run({"station", "--help"});
    QCOMPARE(help.status, 0);
    for (const char *word : {"--timeout", "--late", "--baud", "--ready", "--transcript", "--quiet",
                             "backlight LEVEL", "send TYPE [DATA]", "raw TEXT", "wait TYPE",
                             "listen", "replay FILE", "decode FRAME", "Exit status"})
        QVERIFY2(help.out.contains(QLatin1String(word)), word);
    const Run decode = run({"decode", "--help"});
    QCOMPARE(decode.status, 0);
    QVERIFY(decode.out.startsWith("Usage: bench decode"));
}

void TestStationCommand::refusesWrongUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("no PTY") << QStringList{"station"}
                            << "bench station: no PTY given; see bench station --help\n";
    QTest::newRow("command for PTY") << QStringList{"station", "voltage"}
                                     << "bench station: no PTY given; see bench station --help\n";
    QTest::newRow("option") << QStringList{"station", "--loud", "/dev/null"}
                            << "bench station: Unknown option 'loud'; see bench station --help\n";
    QTest::newRow("limit") << QStringList{"station", "PTY", "-t", "soon", "voltage"}
                           << "bench station: a limit is a number of seconds\n";
    QTest::newRow("empty transcript")
        << QStringList{"station", "PTY", "-o", "", "voltage"}
        << "bench station: --transcript takes a file, not an empty text\n";
    QTest::newRow("decode option") << QStringList{"decode", "--loud"}
                                   << "bench decode: unknown option --loud; "
                                      "see bench decode --help\n";
}

void TestStationCommand::refusesWrongUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    const Run result = run(arguments);
    QCOMPARE(result.err, error);
    QCOMPARE(result.status, 2);
}

void TestStationCommand::carriesOutOneCommand()
{
    const Run loud = station({"backlight", "100"});
    QCOMPARE(loud.err, QString());
    QCOMPARE(loud.status, 0);
    const QStringList lines = loud.out.split('\n');
    QCOMPARE(lines.size(), 3);
    QVERIFY(QRegularExpression("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} > backlight 100 +"
                               "7E000E61431F006403607F$")
                .match(lines.at(0))
                .hasMatch());
    QVERIFY(QRegularExpression("^\\d\\d:\\d\\d:\\d\\d\\.\\d{3} < ACK +"
                               "7E000A00043102957F\\\\r\\\\n$")
                .match(lines.at(1))
                .hasMatch());

    // What was there before the request is not an answer to it, and comes before it.
    m_keypad->say("7E000A99995102B77F\r\n");
    const QStringList late = station({"backlight", "100"}).out.split('\n');
    QCOMPARE(late.size(), 4);
    QVERIFY2(late.at(0).contains(" < ready "), qPrintable(late.at(0)));
    QVERIFY2(late.at(1).contains(" > backlight 100 "), qPrintable(late.at(1)));

    const Run quiet = station({"-q", "send", "7080"});
    QCOMPARE(quiet.out, QString("voltage reading '00012345'\n"));
    QCOMPARE(quiet.status, 0);
}

void TestStationCommand::exitStatusTellsWhy_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("error");
    QTest::newRow("accepted") << QStringList{"voltage"} << 0 << "";
    QTest::newRow("refused") << QStringList{"flash-query"} << 1
                             << "bench station: flash-query was refused with NA\n";
    QTest::newRow("usage") << QStringList{"backlight", "256"} << 2
                           << "bench station: backlight: \"256\" is not a number from 0 to 255\n";
    QTest::newRow("unknown")
        << QStringList{"light"} << 2
        << "bench station: unknown request \"light\"; \"help\" lists them all\n";
    QTest::newRow("quit without a prompt")
        << QStringList{"quit"} << 2
        << "bench station: \"quit\" leaves the prompt, and there is none; \"exit\" ends the "
           "keypad's tool\n";
    QTest::newRow("number") << QStringList{"7080"} << 2
                            << "bench station: unknown request \"7080\"; by number it is \"send "
                               "7080\"\n";
    QTest::newRow("option behind") << QStringList{"voltage", "-t", "3"} << 2
                                   << "bench station: usage: voltage; options stand before the "
                                      "command\n";
    QTest::newRow("time-out") << QStringList{"-t", "0.1", "mount"} << 3
                              << "bench station: nothing came in 0.1 s, waiting for ACK to "
                                 "mount\n";
    QTest::newRow("damaged") << QStringList{"buttons"} << 1
                             << "bench station: damaged frame: checksum is 0337, should be 0336 "
                                "(7E000C70713E0003377F\\r\\n)\n";
    QTest::newRow("speed") << QStringList{"-b", "123", "voltage"} << 2
                           << "bench station: 123 is not a standard baud rate\n";
}

void TestStationCommand::exitStatusTellsWhy()
{
    QFETCH(QStringList, command);
    QFETCH(int, status);
    QFETCH(QString, error);
    const Run result = station(command);
    QCOMPARE(result.err, error);
    QCOMPARE(result.status, status);
}

void TestStationCommand::readsCommandsFromStandardInput()
{
    const Run result = station({"--quiet"}, "# comment\n\nvoltage\nflash-query\n"
                                            "light\nbacklight  100");
    QCOMPARE(result.out, QString("voltage reading '00012345'\nNA\nACK\n"));
    // The first that fails decides, and the rest is carried out all the same.
    QCOMPARE(result.status, 1);
    QCOMPARE(result.err,
             QString("bench station: flash-query was refused with NA\n"
                     "bench station: unknown request \"light\"; \"help\" lists them all\n"));
}

void TestStationCommand::leavesThePrompt()
{
    QProcess process;
    process.start(program(), {"station", m_keypad->path(), "-q"});
    QVERIFY(process.waitForStarted());
    process.write("voltage\nquit\nbacklight 100\n"); // and standard input stays open
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 30000);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardOutput(), QByteArray("voltage reading '00012345'\n"));
    QCOMPARE(m_keypad->reads(), QList<QByteArray>{"7E000A70801C02907F\r\n"});
}

void TestStationCommand::tellsThatExitEndsTheTool()
{
    m_keypad->answer("7E000A60011402797F\r\n", QByteArray("7E000A00043102957F\r\n"));
    const Run prompt = station({}, "exit\n");
    QCOMPARE(prompt.status, 0);
    QVERIFY2(prompt.out.contains(" - this ends the keypad's tool; \"quit\" leaves the prompt"),
             qPrintable(prompt.out));
    const Run alone = station({"exit"});
    QCOMPARE(alone.status, 0);
    QVERIFY2(!alone.out.contains("prompt"), qPrintable(alone.out));
}

void TestStationCommand::endsWithoutStandardInput()
{
    // Closed by the shell: the next file that is opened would get its number.
    QProcess process;
    process.start("/bin/sh", {"-c", "exec \"$0\" station \"$1\" <&-", program(), m_keypad->path()});
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 30000);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardError(), QByteArray());
}

/// Starts a session and waits for its first answer.
void TestStationCommand::converse(QProcess &process)
{
    process.start(program(), {"station", m_keypad->path(), "-q"});
    QVERIFY(process.waitForStarted());
    process.write("voltage\n");
    QByteArray out;
    QTRY_VERIFY_WITH_TIMEOUT((out += process.readAllStandardOutput()).contains("12345"), 30000);
}

void TestStationCommand::printsWhatComesUnasked()
{
    QProcess process;
    converse(process);
    m_keypad->say("7E0010703108120045039C7F\r\n");
    QByteArray out;
    QTRY_VERIFY_WITH_TIMEOUT((out += process.readAllStandardOutput()).contains("touch at 120,45"),
                             30000);
    process.closeWriteChannel();
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 30000);
    QCOMPARE(process.exitCode(), 0);
}

void TestStationCommand::endsWhenTheLineHangsUp()
{
    QProcess process;
    converse(process);
    m_keypad->hangUp();
    QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 30000);
    QCOMPARE(process.exitCode(), 4);
    QCOMPARE(process.readAllStandardError(), QByteArray("bench station: the line hung up\n"));
}

void TestStationCommand::waitsForReady()
{
    m_keypad->say("7E000A00043102957F\r\n7E000A99995102B77F\r\n");
    const Run result = station({"--ready", "-q", "voltage"});
    QCOMPARE(result.out, QString("ACK\nready\nvoltage reading '00012345'\n"));
    QCOMPARE(result.status, 0);
    const Run silent = station({"ready", "0.1"});
    QCOMPARE(silent.status, 3);
    QVERIFY2(silent.err.endsWith("a keypad says ready once, when its tool starts\n"),
             qPrintable(silent.err));
}

void TestStationCommand::listensAndWaits()
{
    m_keypad->say("7E000A99995102B77F\r\nmodule\r\n");
    const Run listened = station({"-q", "listen", "0.2"});
    QCOMPARE(listened.out, QString("ready\nunframed line \"module\"\n"));
    QCOMPARE(listened.status, 0);
    m_keypad->say("7E0010703108120045039C7F\r\n");
    const Run waited = station({"-q", "wait", "7031", "30"});
    QCOMPARE(waited.out, QString("touch at 120,45\n"));
    QCOMPARE(waited.status, 0);
    QCOMPARE(station({"wait", "7031", "0.1"}).status, 3);
    QCOMPARE(station({"wait", "touch"}).status, 2);
}

void TestStationCommand::recordsAndReplays()
{
    QTemporaryDir folder;
    const QString path = folder.filePath("line.txt");
    QCOMPARE(station({"-o", path}, "backlight 100\nvoltage\n").status, 0);
    QString error;
    const std::optional<Transcript> recorded = Transcript::load(path, &error);
    QVERIFY2(recorded.has_value(), qPrintable(error));
    QCOMPARE(recorded->entries().size(), size_t(4));

    QVERIFY(station({"replay", path}).out.contains(" > voltage  "));
    const Run same = station({"-q", "replay", path});
    QCOMPARE(same.status, 0);
    QVERIFY2(same.out.endsWith("2 requests, 2 replies compared, 0 differences\n"),
             qPrintable(same.out));

    m_keypad->forgetAnswers();
    m_keypad->answer("7E000E61431F006403607F\r\n", QByteArray("7E000A00043102957F\r\n"));
    m_keypad->answer("7E000A70801C02907F\r\n", QByteArray("7E001270810F0000000004257F\r\n"));
    const Run other = station({"-q", "replay", path});
    QCOMPARE(other.status, 1);
    QVERIFY(other.out.contains("voltage reading '00000000' (7E001270810F0000000004257F\\r\\n) "
                               "instead of voltage reading '00012345'"));
    QCOMPARE(station({"replay", "/nowhere/line.txt"}).status, 2);
}

void TestStationCommand::sharesNoLine()
{
    QProcess first;
    converse(first);
    const Run second = station({"voltage"});
    QCOMPARE(second.status, 4);
    QCOMPARE(second.err,
             QString("bench station: %1 is in use by another program\n").arg(m_keypad->path()));
    first.closeWriteChannel();
    QTRY_COMPARE_WITH_TIMEOUT(first.state(), QProcess::NotRunning, 30000);
    QCOMPARE(station({"voltage"}).status, 0);
    const Run file = run({"station", "/dev/null", "voltage"});
    QCOMPARE(file.err, QString("bench station: /dev/null is not a serial line\n"));
}

void TestStationCommand::tellsThatATranscriptIsNotWhole()
{
    const Run result = station({"-o", "/dev/full", "voltage"});
    QCOMPARE(result.err, QString("bench station: the transcript is not whole: /dev/full: "
                                 "No space left on device\n"));
    QCOMPARE(result.status, 4);
    const Run unwritable = station({"-o", "/nowhere/line.txt", "voltage"});
    QCOMPARE(unwritable.err,
             QString("bench station: /nowhere/line.txt: No such file or directory\n"));
    QCOMPARE(unwritable.status, 4);
}

void TestStationCommand::decodes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("contains");
    QTest::newRow("right") << QStringList{"7E000E61431F006403607F"} << 0
                           << "meaning: backlight 100\n";
    QTest::newRow("words of a log")
        << QStringList{"12:00:01", "Got_newsocket:", "7E000E61431F006403607F"} << 0
        << "meaning: backlight 100\n";
    QTest::newRow("wrong") << QStringList{"7E000E61431F006403617F"} << 1
                           << "wrong:   checksum is 0361, should be 0360\n";
    QTest::newRow("refused content")
        << QStringList{"7E000E61431F016403617F"} << 1 << "the keypad answers NA\n";
    QTest::newRow("fields set apart")
        << QStringList{"7E 000E 6143 1F 0064 0360 7F"} << 0
        << "note:    read without the blanks between; on the line there are none\n";
    QTest::newRow("bytes set apart")
        << QStringList{"12:00", "rx", "7E", "00", "0A", "70", "80", "1C", "02", "90", "7F"} << 0
        << "meaning: voltage\n";
    QTest::newRow("two requests") << QStringList{"7E000A60011402797F7E000A60011402797F"} << 0
                                  << "takes them for one message";
    QTest::newRow("no frame") << QStringList{"hello"} << 1 << "";
}

void TestStationCommand::decodes()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, contains);
    const Run direct = run(QStringList{"decode"} + arguments);
    QVERIFY2(direct.out.contains(contains), qPrintable(direct.out));
    QCOMPARE(direct.status, status);
    const Run within = station(QStringList{"decode"} + arguments);
    QCOMPARE(within.out, direct.out);
    QCOMPARE(within.status, status);
}

void TestStationCommand::decodesStandardInput()
{
    const Run right = run({"decode"}, "In ATE Mode\nGot_newsocket: 7E000E61431F006403607F\n"
                                      "7E000A00043102957F\r\n");
    QCOMPARE(right.status, 0);
    QVERIFY(right.out.contains("meaning: backlight 100\n"));
    QVERIFY(right.out.contains("meaning: ACK\n"));
    QCOMPARE(run({"decode", "-"}, "7E000A00043102967F\n").status, 1);
    const Run none = run({"decode"}, "no frame here\n");
    QCOMPARE(none.status, 1);
    QCOMPARE(none.err, QString("bench decode: no frame found\n"));
}

MFTOOL_TEST(TestStationCommand, EventLoop)
#include "tst_stationcommand.moc"
