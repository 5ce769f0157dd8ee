#include "bench/line/virtualunit.h"

#include "bench/line/fault.h"
#include "bench/station/station.h"
#include "tests/support/testprogram.h"

#include <QTest>

namespace
{

const QString Light = QStringLiteral("/sys/class/backlight/mxs-bl/brightness");

Plan::Operation operation(Plan::Action::Kind kind, bool on)
{
    Plan::Operation operation;
    operation.ask = QStringLiteral("Do it.");
    Plan::Action action;
    action.kind = kind;
    action.on = on;
    operation.actions.append(action);
    return operation;
}

Plan::Check check(Plan::Check::Kind kind, const QString &path = QString(),
                  const std::optional<QString> &text = std::nullopt)
{
    Plan::Check check;
    check.kind = kind;
    check.path = path;
    check.text = text;
    return check;
}

Plan::Check storing(const QStringList &texts)
{
    Plan::Check stores = check(Plan::Check::Stores);
    for (const QString &text : texts)
        stores.stores.append({Light, text});
    return stores;
}

} // namespace

#define COMPARE_FINDING(unit, wantedCheck, wanted)                                                 \
    do {                                                                                           \
        Unit::Difference difference;                                                               \
        QCOMPARE(int((unit).check(wantedCheck, &difference)), int(Unit::wanted));                  \
        found = difference.found;                                                                  \
    } while (false)

/// One unit, running, on a display that cannot be looked at.
class TestVirtualUnit : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void isOffUntilItIsSwitchedOn();
    void comparesStoresInOrder();
    void looksOnlyAtStoresOfTheStep();
    void noticesARefusedStore();
    void readsAttributes();
    void readsFiles();
    void readsTheLog();
    void tellsHowTheToolEnded();
    void cannotLookWithoutADisplay();
    void movesTheCard();
    void movesTheHomeKeyUntilTheToolHasSeenIt();
    void knowsItsFaults();
    void tellsAFaultThatNeverCame_data();
    void tellsAFaultThatNeverCame();
    void injectsALateFaultOnceTheToolRuns();

private:
    bool switchOn();
    bool store(const char *level);

    QScopedPointer<Station> m_station;
    QScopedPointer<VirtualUnit> m_unit;
    QString found;
};

void TestVirtualUnit::init()
{
    if (!VirtualKeypad::whyNot().isEmpty())
        QSKIP(qPrintable(VirtualKeypad::whyNot()));
    QString error;
    m_station.reset(new Station);
    m_unit.reset(new VirtualUnit(VirtualUnitOptions()));
    QVERIFY2(m_unit->attach(m_station.data(), &error), qPrintable(error));
}

void TestVirtualUnit::cleanup()
{
    m_station.reset();
    m_unit.reset();
}

bool TestVirtualUnit::switchOn()
{
    QString error;
    m_unit->beginStep();
    return m_unit->operate(operation(Plan::Action::Power, true), false, 0, &error) ==
               Unit::Performed &&
           m_station->waitForReady(30000);
}

bool TestVirtualUnit::store(const char *level)
{
    return m_station->request(QStringLiteral("backlight %1").arg(QLatin1String(level))).ok();
}

void TestVirtualUnit::isOffUntilItIsSwitchedOn()
{
    QVERIFY(m_station->expectSilence(200));
    QCOMPARE(m_unit->end(), QString()); // it has not ended, it has not begun
    QVERIFY(switchOn());
    QCOMPARE(m_unit->end(), QString());
}

void TestVirtualUnit::comparesStoresInOrder()
{
    QVERIFY(switchOn());
    m_unit->beginStep();
    const QStringList both = {QStringLiteral("10"), QStringLiteral("2?")};
    COMPARE_FINDING(*m_unit, storing(both), NotYet);
    QCOMPARE(found, QStringLiteral("none"));
    QVERIFY(store("10"));
    COMPARE_FINDING(*m_unit, storing(both), NotYet);
    QVERIFY(store("20"));
    COMPARE_FINDING(*m_unit, storing(both), Holds);
    COMPARE_FINDING(*m_unit, storing({QStringLiteral("20"), QStringLiteral("10")}), Broken);
    QCOMPARE(found, QStringLiteral("10 to %1").arg(Light));
    QVERIFY(store("30")); // one too many
    COMPARE_FINDING(*m_unit, storing(both), Broken);
}

void TestVirtualUnit::looksOnlyAtStoresOfTheStep()
{
    QVERIFY(switchOn());
    QVERIFY(store("10"));
    m_unit->beginStep();
    QVERIFY(store("20"));
    QVERIFY(m_station->request(QStringLiteral("home-led 50")).ok()); // another path
    COMPARE_FINDING(*m_unit, storing({QStringLiteral("20")}), Holds);
}

void TestVirtualUnit::noticesARefusedStore()
{
    QVERIFY(switchOn());
    QVERIFY(m_station->request(QStringLiteral("leds 00")).ok());
    m_unit->beginStep();
    VirtualUnitOptions options;
    options.faults = {Fault::byName(QStringLiteral("backlight-dead"))};
    Station station;
    VirtualUnit dead(options);
    QString error;
    QVERIFY2(dead.attach(&station, &error), qPrintable(error));
    dead.beginStep();
    QCOMPARE(int(dead.operate(operation(Plan::Action::Power, true), false, 0, &error)),
             int(Unit::Performed));
    QVERIFY(station.waitForReady(30000));
    QVERIFY(station.request(QStringLiteral("backlight 10")).ok()); // the tool does not notice
    COMPARE_FINDING(dead, storing({QStringLiteral("10")}), Broken);
    QCOMPARE(found, QStringLiteral("10 (refused) to %1").arg(Light));
}

void TestVirtualUnit::readsAttributes()
{
    QVERIFY(switchOn());
    QVERIFY(store("10"));
    COMPARE_FINDING(*m_unit, check(Plan::Check::Attribute, Light, QStringLiteral("10")), Holds);
    COMPARE_FINDING(*m_unit, check(Plan::Check::Attribute, Light, QStringLiteral("11")), NotYet);
    QCOMPARE(found, QStringLiteral("'10'"));
    COMPARE_FINDING(*m_unit,
                    check(Plan::Check::Attribute, QStringLiteral("/sys/class/gpio/gpio62/value"),
                          QStringLiteral("1")),
                    NotYet);
    QCOMPARE(found, QStringLiteral("no such attribute"));
}

void TestVirtualUnit::readsFiles()
{
    const QString version = QStringLiteral("/usr/lib/panel/version");
    const QString none = QStringLiteral("/mnt/etc/pointercal");
    COMPARE_FINDING(*m_unit, check(Plan::Check::File, version), Holds);
    COMPARE_FINDING(*m_unit, check(Plan::Check::File, version, QStringLiteral("20140101 1.2")),
                    Holds);
    COMPARE_FINDING(*m_unit, check(Plan::Check::File, version, QStringLiteral("2014* 1.3")),
                    NotYet);
    QCOMPARE(found, QStringLiteral("'20140101 1.2'"));
    COMPARE_FINDING(*m_unit, check(Plan::Check::File, none), NotYet);
    QCOMPARE(found, QStringLiteral("no such file"));
    Plan::Check absent = check(Plan::Check::File, none);
    absent.exists = false;
    COMPARE_FINDING(*m_unit, absent, Holds);
    absent.path = version;
    COMPARE_FINDING(*m_unit, absent, NotYet);
    QCOMPARE(found, QStringLiteral("it exists"));
}

void TestVirtualUnit::readsTheLog()
{
    QVERIFY(switchOn());
    const Plan::Check power =
        check(Plan::Check::Log, QString(), QStringLiteral("SD card Detection Enabled"));
    COMPARE_FINDING(*m_unit, power, Holds);
    m_unit->beginStep();
    COMPARE_FINDING(*m_unit, power, NotYet); // that was before
    QVERIFY(m_unit->log().contains("debug    In ATE Mode --->, SD card Detection Enabled\n"));
}

void TestVirtualUnit::tellsHowTheToolEnded()
{
    Plan::Check good = check(Plan::Check::Exit);
    COMPARE_FINDING(*m_unit, good, NotYet);
    QCOMPARE(found, QStringLiteral("it has not been started"));
    QVERIFY(switchOn());
    COMPARE_FINDING(*m_unit, good, NotYet);
    QCOMPARE(found, QStringLiteral("it still runs"));
    QVERIFY(m_station->request(QStringLiteral("exit")).acked);
    QTRY_COMPARE_WITH_TIMEOUT(m_unit->end(), QStringLiteral("the tool ended with exit status 0"),
                              30000);
    COMPARE_FINDING(*m_unit, good, Holds);
    good.status = 3;
    COMPARE_FINDING(*m_unit, good, Broken);

    QVERIFY(switchOn());
    QString error;
    QCOMPARE(int(m_unit->operate(operation(Plan::Action::Power, false), false, 0, &error)),
             int(Unit::Performed));
    COMPARE_FINDING(*m_unit, check(Plan::Check::Exit), Broken);
    QCOMPARE(found, QStringLiteral("the tool was ended by signal 9"));
}

void TestVirtualUnit::cannotLookWithoutADisplay()
{
    Plan::Check pixel = check(Plan::Check::Pixel);
    pixel.point = QPoint(1, 1);
    pixel.colour = Qt::black;
    COMPARE_FINDING(*m_unit, pixel, CannotLook);
    QVERIFY(m_unit->screen().isNull());
    QString error;
    Plan::Operation touch = operation(Plan::Action::Touch, true);
    QCOMPARE(int(m_unit->operate(touch, false, 0, &error)), int(Unit::Impossible));
    QVERIFY2(error.startsWith(QStringLiteral("\"Do it.\" could not be done")), qPrintable(error));
}

void TestVirtualUnit::movesTheCard()
{
    QVERIFY(switchOn());
    const auto status = [this] {
        const Station::Answer answer = m_station->request(QStringLiteral("sdread 5 2"));
        return answer.data(wire::SdReadReply).mid(6, 2);
    };
    QString error;
    QCOMPARE(status(), QByteArray("01"));
    QCOMPARE(int(m_unit->operate(operation(Plan::Action::Card, true), true, 0, &error)),
             int(Unit::Performed));
    QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("00"), 30000);
    QCOMPARE(int(m_unit->operate(operation(Plan::Action::Card, false), true, 0, &error)),
             int(Unit::Performed));
    QTRY_COMPARE_WITH_TIMEOUT(status(), QByteArray("01"), 30000);
}

void TestVirtualUnit::movesTheHomeKeyUntilTheToolHasSeenIt()
{
    QVERIFY(switchOn());
    QString error;
    for (int i = 0; i < 20; ++i) {
        m_unit->beginStep();
        const bool down = i % 2 == 0;
        QCOMPARE(int(m_unit->operate(operation(Plan::Action::Home, down), false, 0, &error)),
                 int(Unit::Performed));
        Plan::Check buzzer = check(Plan::Check::Stores);
        buzzer.stores.append({QStringLiteral("/sys/class/leds/buzzer/brightness"),
                              down ? QStringLiteral("185") : QStringLiteral("0")});
        COMPARE_FINDING(*m_unit, buzzer, Holds); // at once
    }
}

void TestVirtualUnit::knowsItsFaults()
{
    QVERIFY(!Fault::byName(QStringLiteral("rust")));
    const Fault *sticks = Fault::byName(QStringLiteral("home-sticks"));
    QVERIFY(sticks);
    QVERIFY(sticks->homeSticks);
    QVERIFY(Fault::help().contains(QStringLiteral("the home key stays down once pressed\n")));
}

void TestVirtualUnit::tellsAFaultThatNeverCame_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("missed");
    const QString late = QStringLiteral("no step from the fourth on began while the tool ran");
    QTest::newRow("dies") << "dies" << late;
    QTest::newRow("hangs") << "hangs" << late;
    QTest::newRow("home-sticks") << "home-sticks"
                                 << "the home key was never released";
    QTest::newRow("card-unreadable") << "card-unreadable"
                                     << "no card was put in";
    QTest::newRow("voltage-low") << "voltage-low"
                                 << ""; // it has it from the start
}

void TestVirtualUnit::tellsAFaultThatNeverCame()
{
    QFETCH(QString, name);
    QFETCH(QString, missed);
    VirtualUnitOptions options;
    options.faults = {Fault::byName(name)};
    VirtualUnit unit(options);
    for (int step = 1; step <= 5; ++step) // the tool is off: nothing can die
        unit.beginStep();
    QCOMPARE(unit.missedFault(),
             missed.isEmpty()
                 ? QString()
                 : QStringLiteral("the fault \"%1\" was never injected: %2").arg(name, missed));
}

void TestVirtualUnit::injectsALateFaultOnceTheToolRuns()
{
    VirtualUnitOptions options;
    options.faults = {Fault::byName(QStringLiteral("dies")),
                      Fault::byName(QStringLiteral("home-sticks")),
                      Fault::byName(QStringLiteral("card-unreadable"))};
    Station station;
    VirtualUnit unit(options);
    QString error;
    QVERIFY2(unit.attach(&station, &error), qPrintable(error));
    for (int step = 1; step <= 4; ++step)
        unit.beginStep();
    const auto operate = [&](Plan::Action::Kind kind, bool on) {
        return unit.operate(operation(kind, on), false, 0, &error) == Unit::Performed;
    };
    QVERIFY2(operate(Plan::Action::Power, true), qPrintable(error));
    QVERIFY(station.waitForReady(30000));
    QVERIFY2(operate(Plan::Action::Card, true), qPrintable(error));
    QVERIFY(operate(Plan::Action::Home, true));
    QVERIFY(operate(Plan::Action::Home, false));
    QVERIFY(unit.missedFault().contains(QStringLiteral("\"dies\"")));
    unit.beginStep();
    QCOMPARE(unit.missedFault(), QString());
    QTRY_COMPARE_WITH_TIMEOUT(unit.end(), QStringLiteral("the tool was ended by signal 9"), 30000);
}

MFTOOL_TEST(TestVirtualUnit, EventLoop)
#include "tst_virtualunit.moc"
