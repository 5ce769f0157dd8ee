// Backlight, bias power, LEDs and buzzer on a folder that plays sysfs. What needs the
// kernel's behaviour (each write is a store, pins appear) is tested with the whole tool.
#include "hardware/indicators.h"

#include <QFile>
#include <QtTest>

#include "tests/support/boardfolder.h"
#include "tests/support/logcatcher.h"
#include "tests/support/testprogram.h"

namespace
{

const char *const gpio62 = "/sys/class/gpio/gpio62/";

} // namespace

class TestIndicators : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void backlight();
    void backlightMissing();
    void statusLeds_data();
    void statusLeds();
    void missingStatusLed();
    void allLeds();
    void allLedsWithoutFolder();
    void allLedsWithoutBrightness();
    void buzzerLevel_data();
    void buzzerLevel();
    void buzzerLevelMissing();
    void soundThroughOpenFile();
    void soundThroughClosedFile();
    void homeLed_data();
    void homeLed();
    void homeLedMissing();

    void biasOnExportedPin_data();
    void biasOnExportedPin();
    void biasExportsFirst();
    void biasWithoutExportFile();
    void biasFailsAtAStep_data();
    void biasFailsAtAStep();

private:
    void writeLeds(const QStringList &names);
    QByteArray led(const QString &name) { return m_folder->read(ledPath(name)); }
    static QString ledPath(const QString &name)
    {
        return "/sys/class/leds/" + name + "/brightness";
    }

    std::unique_ptr<BoardFolder> m_folder;
};

void TestIndicators::init()
{
    m_folder = std::make_unique<BoardFolder>();
}

void TestIndicators::writeLeds(const QStringList &names)
{
    for (const QString &name : names)
        m_folder->write(ledPath(name), "-");
}

void TestIndicators::backlight()
{
    m_folder->write("/sys/class/backlight/mxs-bl/brightness", "-");
    setBacklight(m_folder->board(), 100);
    QCOMPARE(m_folder->read("/sys/class/backlight/mxs-bl/brightness"), QByteArray("100"));
    setBacklight(m_folder->board(), 4000000000U);
    QCOMPARE(m_folder->read("/sys/class/backlight/mxs-bl/brightness"), QByteArray("4000000000"));
}

void TestIndicators::backlightMissing()
{
    LogCatcher log;
    setBacklight(m_folder->board(), 1);
    QCOMPARE(log.lines(), QStringList("warning: Failed to open backlight file"));
}

void TestIndicators::statusLeds_data()
{
    QTest::addColumn<uint>("mask");
    QTest::addColumn<QByteArrayList>("stored"); // ready, armed, trouble, ac
    QTest::newRow("none") << 0x00U << QByteArrayList{"0", "0", "0", "0"};
    QTest::newRow("ready") << 0x01U << QByteArrayList{"255", "0", "0", "0"};
    QTest::newRow("armed") << 0x02U << QByteArrayList{"0", "255", "0", "0"};
    QTest::newRow("trouble") << 0x04U << QByteArrayList{"0", "0", "255", "0"};
    QTest::newRow("ac") << 0x08U << QByteArrayList{"0", "0", "0", "255"};
    QTest::newRow("all") << 0x0FU << QByteArrayList{"255", "255", "255", "255"};
    QTest::newRow("higher bits") << 0x10U << QByteArrayList{"0", "0", "0", "0"};
    QTest::newRow("FF") << 0xFFU << QByteArrayList{"255", "255", "255", "255"};
}

void TestIndicators::statusLeds()
{
    QFETCH(uint, mask);
    writeLeds({"ready", "armed", "trouble", "ac", "home", "buzzer"});
    setStatusLeds(m_folder->board(), mask);
    QTEST((QByteArrayList{led("ready"), led("armed"), led("trouble"), led("ac")}), "stored");
    QCOMPARE(led("home"), QByteArray("-"));
    QCOMPARE(led("buzzer"), QByteArray("-"));
}

void TestIndicators::missingStatusLed()
{
    writeLeds({"ready", "armed", "ac"});
    LogCatcher log;
    setStatusLeds(m_folder->board(), 0x0F);
    QCOMPARE(log.lines(), QStringList("warning: Failed to open LED file"));
    QCOMPARE(led("ready"), QByteArray("255"));
    QCOMPARE(led("armed"), QByteArray("255"));
    QCOMPARE(led("ac"), QByteArray("255"));
}

void TestIndicators::allLeds()
{
    writeLeds({"ready", "home", "mmc0::", "buzzer", "buzzer2", "Buzzer"});
    m_folder->write("/sys/class/leds/a-file", "-");
    setAllLeds(m_folder->board(), true);
    QCOMPARE(led("ready"), QByteArray("255"));
    QCOMPARE(led("home"), QByteArray("255"));
    QCOMPARE(led("mmc0::"), QByteArray("255"));
    QCOMPARE(led("buzzer2"), QByteArray("255"));
    QCOMPARE(led("Buzzer"), QByteArray("255"));
    QCOMPARE(led("buzzer"), QByteArray("-"));
    QCOMPARE(m_folder->read("/sys/class/leds/a-file"), QByteArray("-"));
    setAllLeds(m_folder->board(), false);
    QCOMPARE(led("ready"), QByteArray("0"));
    QCOMPARE(led("home"), QByteArray("0"));
    QCOMPARE(led("buzzer"), QByteArray("-"));
}

void TestIndicators::allLedsWithoutFolder()
{
    LogCatcher log;
    setAllLeds(m_folder->board(), true);
    QCOMPARE(log.lines(), QStringList());
}

void TestIndicators::allLedsWithoutBrightness()
{
    writeLeds({"ready"});
    m_folder->makeFolder("/sys/class/leds/broken/brightness");
    LogCatcher log;
    setAllLeds(m_folder->board(), true);
    QCOMPARE(log.lines(), QStringList("warning: Failed to open led file '" +
                                      m_folder->at(ledPath("broken")) + "'"));
    QCOMPARE(led("ready"), QByteArray("255"));
}

void TestIndicators::buzzerLevel_data()
{
    QTest::addColumn<uint>("level");
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("0") << 0U << QByteArray("0");
    QTest::newRow("1") << 1U << QByteArray("0");
    QTest::newRow("2") << 2U << QByteArray("1");
    QTest::newRow("200") << 200U << QByteArray("100");
    QTest::newRow("255") << 255U << QByteArray("127");
}

void TestIndicators::buzzerLevel()
{
    QFETCH(uint, level);
    writeLeds({"buzzer"});
    setBuzzerLevel(m_folder->board(), level);
    QTEST(led("buzzer"), "stored");
}

void TestIndicators::buzzerLevelMissing()
{
    LogCatcher log;
    setBuzzerLevel(m_folder->board(), 1);
    QCOMPARE(log.lines(), QStringList("warning: Failed to open buzzer file"));
}

void TestIndicators::soundThroughOpenFile()
{
    writeLeds({"buzzer"});
    QFile file(m_folder->at(ledPath("buzzer")));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    soundBuzzer(&file, true);
    QCOMPARE(led("buzzer"), QByteArray("185"));
    soundBuzzer(&file, false);
    QCOMPARE(led("buzzer"), QByteArray("1850")); // a plain file keeps both stores
}

void TestIndicators::soundThroughClosedFile()
{
    QFile file(m_folder->at(ledPath("buzzer")));
    LogCatcher log;
    soundBuzzer(&file, true);
    QCOMPARE(log.lines(), QStringList());
    QVERIFY(!m_folder->exists(ledPath("buzzer")));
}

void TestIndicators::homeLed_data()
{
    QTest::addColumn<uint>("percent");
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("0") << 0U << QByteArray("0");
    QTest::newRow("1") << 1U << QByteArray("3");
    QTest::newRow("10, a half rounds down") << 10U << QByteArray("25");
    QTest::newRow("30, a half rounds down") << 30U << QByteArray("76");
    QTest::newRow("33") << 33U << QByteArray("84");
    QTest::newRow("50, the middle") << 50U << QByteArray("128");
    QTest::newRow("70, a half rounds down") << 70U << QByteArray("178");
    QTest::newRow("99") << 99U << QByteArray("252");
    QTest::newRow("100") << 100U << QByteArray("255");
    QTest::newRow("not clamped") << 255U << QByteArray("650");
}

void TestIndicators::homeLed()
{
    QFETCH(uint, percent);
    writeLeds({"home"});
    setHomeLedLevel(m_folder->board(), percent);
    QTEST(led("home"), "stored");
}

void TestIndicators::homeLedMissing()
{
    LogCatcher log;
    setHomeLedLevel(m_folder->board(), 1);
    QCOMPARE(log.lines(), QStringList("warning: Failed to open home file"));
}

void TestIndicators::biasOnExportedPin_data()
{
    QTest::addColumn<uint>("level");
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("off") << 0U << QByteArray("0");
    QTest::newRow("on") << 1U << QByteArray("1");
    QTest::newRow("any other level is on") << 5U << QByteArray("1");
}

void TestIndicators::biasOnExportedPin()
{
    QFETCH(uint, level);
    m_folder->write("/sys/class/gpio/export", "-");
    for (const char *file : {"active_low", "direction", "value"})
        m_folder->write(QString(gpio62) + file, "-");
    LogCatcher log;
    setBiasPower(m_folder->board(), level);
    QCOMPARE(m_folder->read("/sys/class/gpio/export"), QByteArray("-"));
    QCOMPARE(m_folder->read(QString(gpio62) + "active_low"), QByteArray("0"));
    QCOMPARE(m_folder->read(QString(gpio62) + "direction"), QByteArray("out"));
    QTEST(m_folder->read(QString(gpio62) + "value"), "value");
    QCOMPARE(
        log.lines(),
        QStringList("debug: In ATE Mode---, LCD Bias Power manipulation, was successfully done!"));
}

void TestIndicators::biasExportsFirst()
{
    // The pin's folder is there but its value file is not: it is exported, and
    // nobody looks for the value file again.
    m_folder->write("/sys/class/gpio/export", "-");
    m_folder->makeFolder(gpio62);
    LogCatcher log;
    setBiasPower(m_folder->board(), 1);
    QCOMPARE(m_folder->read("/sys/class/gpio/export"), QByteArray("62"));
    QCOMPARE(log.lines(),
             QStringList({"debug: In ATE Mode---,gpio62 folder (value file) is not exist, need to "
                          "be created",
                          "debug: In ATE Mode---, export pin number to generate gpio62 folder, and "
                          "value file",
                          "debug: In ATE Mode---, LCD Bias Power manipulation, was successfully "
                          "done!"}));
}

void TestIndicators::biasWithoutExportFile()
{
    LogCatcher log;
    setBiasPower(m_folder->board(), 1);
    QCOMPARE(log.lines(),
             QStringList({"debug: In ATE Mode---,gpio62 folder (value file) is not exist, need to "
                          "be created",
                          "debug: In ATE Mode---, could not export pin62, fro LCD Bias Power "
                          "manipulation"}));
    QVERIFY(!m_folder->exists(gpio62));
}

void TestIndicators::biasFailsAtAStep_data()
{
    QTest::addColumn<QString>("broken");
    QTest::addColumn<QByteArrayList>("stored"); // active_low, direction, value
    QTest::newRow("active_low") << "active_low" << QByteArrayList{"(missing)", "-", "-"};
    QTest::newRow("direction") << "direction" << QByteArrayList{"0", "(missing)", "-"};
    QTest::newRow("value") << "value" << QByteArrayList{"0", "out", "(missing)"};
}

void TestIndicators::biasFailsAtAStep()
{
    QFETCH(QString, broken);
    for (const char *file : {"active_low", "direction", "value"}) {
        if (file == broken)
            m_folder->makeFolder(QString(gpio62) + file);
        else
            m_folder->write(QString(gpio62) + file, "-");
    }
    LogCatcher log;
    setBiasPower(m_folder->board(), 1);
    QCOMPARE(log.lines(), QStringList("debug: In ATE Mode---, could not open/write into " + broken +
                                      " file, for LCD Bias Power manipulation"));
    QTEST((QByteArrayList{m_folder->read(QString(gpio62) + "active_low"),
                          m_folder->read(QString(gpio62) + "direction"),
                          m_folder->read(QString(gpio62) + "value")}),
          "stored");
}

MFTOOL_TEST(TestIndicators, EventLoop)
#include "tst_indicators.moc"
