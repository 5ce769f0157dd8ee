#include <QtTest>

#include "tests/support/testprogram.h"

/// What "bench" itself does with its arguments, its manual page and its completion.
class TestBench : public QObject
{
    Q_OBJECT

private slots:
    void tellsItsVersion();
    void listsItsCommands();
    void refusesWrongCalls_data();
    void refusesWrongCalls();
    void helpIsThatOfTheCommand_data();
    void helpIsThatOfTheCommand();
    void helpReadsTheSameFromTheSearchPath();
    void manualPageHasEveryOption_data();
    void manualPageHasEveryOption();
    void completes_data();
    void completes();

private:
    struct Run {
        int status = -1;
        QString out;
        QString err;
    };
    static Run run(const QString &program, const QStringList &arguments);
    static void commands();
};

TestBench::Run TestBench::run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.status = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

void TestBench::tellsItsVersion()
{
    for (const char *option : {"--version", "-V"}) {
        const Run version = run(BENCH, {option});
        QCOMPARE(version.out, QString("bench " MFTOOL_VERSION "\n"));
        QCOMPARE(version.status, 0);
    }
}

void TestBench::listsItsCommands()
{
    const Run help = run(BENCH, {"--help"});
    QCOMPARE(help.status, 0);
    for (const char *word : {"\n  keypad ", "\n  station ", "\n  decode ", "\n  board ",
                             "\n  line ", "\n  records ", "\n  help ", "--version", "Exit status"})
        QVERIFY2(help.out.contains(word), word);
    QCOMPARE(run(BENCH, {"help"}).out, help.out);
    const Run nothing = run(BENCH, {});
    QCOMPARE(nothing.status, 2);
    QCOMPARE(nothing.err, help.out);
}

void TestBench::refusesWrongCalls_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    const QString unknown = "bench: there is no command \"dance\"; see bench --help\n";
    QTest::newRow("command") << QStringList{"dance"} << unknown;
    QTest::newRow("help for it") << QStringList{"help", "dance"} << unknown;
    QTest::newRow("help for two") << QStringList{"help", "line", "keypad"}
                                  << "bench: help takes one command\n";
}

void TestBench::refusesWrongCalls()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    const Run result = run(BENCH, arguments);
    QCOMPARE(result.status, 2);
    QCOMPARE(result.err, error);
}

void TestBench::commands()
{
    QTest::addColumn<QString>("command");
    for (const char *command : {"keypad", "station", "decode", "board", "line", "records"})
        QTest::newRow(command) << command;
}

void TestBench::helpIsThatOfTheCommand_data()
{
    commands();
}

void TestBench::helpIsThatOfTheCommand()
{
    QFETCH(QString, command);
    const Run help = run(BENCH, {"help", command});
    QCOMPARE(help.status, 0);
    QVERIFY2(help.out.startsWith("Usage: bench " + command + " "), qPrintable(help.out));
    QVERIFY2(help.out.contains("Exit status: "), qPrintable(help.out));
    QCOMPARE(help.out, run(BENCH, {command, "--help"}).out);
}

void TestBench::helpReadsTheSameFromTheSearchPath()
{
    const Run found = run("/bin/sh", {"-c", "PATH=${0%/*}:$PATH; bench help keypad", BENCH});
    QCOMPARE(found.out, run(BENCH, {"help", "keypad"}).out);
}

void TestBench::manualPageHasEveryOption_data()
{
    commands();
}

void TestBench::manualPageHasEveryOption()
{
    QFETCH(QString, command);
    QFile page(SOURCE_DIR "/docs/bench.1");
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(page.readAll());
    const QString section =
        text.section(".SS \"bench " + command + "\"\n", 1).section("\n.S", 0, 0);
    QVERIFY(!section.isEmpty());

    static const QRegularExpression option("^ +(?:-[a-z], )?(--[a-z-]+)",
                                           QRegularExpression::MultilineOption);
    auto options = option.globalMatch(run(BENCH, {"help", command}).out);
    QVERIFY(options.hasNext());
    while (options.hasNext()) {
        const QString name = options.next().captured(1);
        if (name == "--help") // of all commands, in the page's description
            continue;
        const QRegularExpression written(
            QRegularExpression::escape(QString(name).replace("-", "\\-")) + "[\" \n]");
        QVERIFY2(section.contains(written), qPrintable(name));
    }
}

void TestBench::completes_data()
{
    QTest::addColumn<QStringList>("line");
    QTest::addColumn<QStringList>("words");
    QTest::newRow("commands") << QStringList{""}
                              << QStringList{"keypad",  "station", "decode", "board",    "line",
                                             "records", "help",    "--help", "--version"};
    QTest::newRow("begun command") << QStringList{"k"} << QStringList{"keypad"};
    QTest::newRow("help") << QStringList{"help", "s"} << QStringList{"station"};
    QTest::newRow("options of a keypad")
        << QStringList{"keypad", "--f"} << QStringList{"--faketime", "--flash-seconds"};
    QTest::newRow("options of a station")
        << QStringList{"station", "--t"} << QStringList{"--timeout", "--transcript"};
    QTest::newRow("options of a line")
        << QStringList{"line", "plan.json", "--ser"} << QStringList{"--serial-number"};
    QTest::newRow("actions of records") << QStringList{"records", "re"} << QStringList{"report"};
    QTest::newRow("options of records")
        << QStringList{"records", "list", "--st"} << QStringList{"--store", "--station"};
    QTest::newRow("requests and commands of a station")
        << QStringList{"station", "/dev/pts/5", "r"}
        << QStringList{"relay", "raw", "ready", "replay"};
    QTest::newRow("faults") << QStringList{"line", "--fault", "flash-"}
                            << QStringList{"flash-fails", "flash-crashes", "flash-hangs"};
    // Nothing of its own: the shell completes the name of a file.
    QTest::newRow("value") << QStringList{"line", "--out", "p"} << QStringList();
    QTest::newRow("transcript") << QStringList{"station", "/dev/pts/5", "replay", "r"}
                                << QStringList();
    QTest::newRow("plan") << QStringList{"line", "p"} << QStringList();
}

void TestBench::completes()
{
    QFETCH(QStringList, line);
    QFETCH(QStringList, words);
    const QString bash = QStandardPaths::findExecutable("bash");
    if (bash.isEmpty())
        QSKIP("bash is not installed");
    // As bash calls it: the program, the word that was begun, the one before it.
    const QString script = ". \"$0\" || exit; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
                           "_bench \"$1\" \"${COMP_WORDS[-1]}\" \"${COMP_WORDS[-2]}\"; "
                           "for word in \"${COMPREPLY[@]}\"; do echo \"$word\"; done";
    const Run result =
        run(bash, QStringList{"-c", script, SOURCE_DIR "/bench/completion.bash", BENCH} + line);
    QCOMPARE(result.err, QString());
    QCOMPARE(result.out.split('\n', Qt::SkipEmptyParts), words);
}

MFTOOL_TEST(TestBench, EventLoop)
#include "tst_bench.moc"
