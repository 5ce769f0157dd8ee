/// Names and data with bytes above 0x7F, whatever language the login has: names
/// are UTF-8 on the line and in the file system, and data are bytes.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

namespace
{

/// Names of one file: "Prüfbild.png" as UTF-8, and a name that is not UTF-8.
const char umlaut[] = "Pr\xC3\xBC"
                      "fbild.png";
const char noUtf8[] = "Gr\xFC"
                      "n.png";

} // namespace

class TestLocale : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void testImage_data();
    void testImage();
    void dataAreBytes_data() { locales(); }
    void dataAreBytes();
    void cardFolder_data() { locales(); }
    void cardFolder();
    void updateFolder_data() { locales(); }
    void updateFolder();

private:
    static void locales();
    /// A tool that runs in the locale of the data row; each runs once.
    Rig *rig(const QByteArray &locale);

    QMap<QByteArray, QSharedPointer<Rig>> m_rigs;
};

void TestLocale::initTestCase()
{
    SKIP_UNLESS_KEYPADS_RUN();
}

void TestLocale::locales()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::newRow("C") << QByteArray("C");
    QTest::newRow("C.UTF-8") << QByteArray("C.UTF-8");
    QTest::newRow("one that is not installed") << QByteArray("xx_YY.ISO-8859-1");
}

Rig *TestLocale::rig(const QByteArray &locale)
{
    QSharedPointer<Rig> &found = m_rigs[locale];
    if (found)
        return found.data();
    KeypadOptions options;
    options.environment.insert("LC_ALL", QString::fromLatin1(locale));
    found.reset(new Rig(options));
    if (!found->startReady())
        qWarning("%s", qPrintable(found->why()));
    return found.data();
}

void TestLocale::testImage_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("shown");
    const QString path = QString::fromUtf8("/home/default/Pr\xC3\xBC"
                                           "fbild.png");
    for (const char *locale : {"C", "C.UTF-8", "xx_YY.ISO-8859-1"}) {
        const auto row = [locale](const char *what) -> QTestData & {
            return QTest::newRow(qPrintable(QStringLiteral("%1: %2").arg(locale, what)))
                   << QByteArray(locale);
        };
        row("exact name") << QByteArray(umlaut) << path << true;
        row("a piece") << QByteArray("\xC3\xBC"
                                     "fb")
                       << path << true;
        row("a piece in upper case") << QByteArray("\xC3\x9C"
                                                   "FB")
                                     << path << true;
        row("absolute") << QByteArray("/home/default/") + umlaut << path << true;
        // As Latin-1 it is another name, and Qt names no file that is not UTF-8.
        row("as Latin-1") << QByteArray("Pr\xFC"
                                        "fbild.png")
                          << QString::fromUtf8("Pr\xEF\xBF\xBD"
                                               "fbild.png")
                          << false;
        row("file that is no UTF-8")
            << QByteArray(noUtf8) << QString::fromUtf8("Gr\xEF\xBF\xBDn.png") << false;
    }
}

void TestLocale::testImage()
{
    QFETCH(QByteArray, locale);
    QFETCH(QByteArray, name);
    QFETCH(QString, path);
    QFETCH(bool, shown);
    Rig *const tool = rig(locale);
    QVERIFY(tool->keypad.isRunning());
    // By the shell, which passes bytes to the file system as they are.
    const char script[] =
        "cd /home/default && cp bars.png \"$(printf 'Pr\\303\\274fbild.png')\" && "
        "cp bars.png \"$(printf 'Gr\\374n.png')\"";
    QCOMPARE(tool->keypad.run("sh", {"-c", QString::fromLatin1(script)}).code, 0);

    const Outcome outcome = tool->request(0x7000, name);
    QCOMPARE(outcome.line, QStringList(shown ? "0004" : "0005"));
    QStringList log(QStringLiteral("debug: Using test pattern '%1'").arg(path));
    if (!shown)
        log << "warning: Failed to open test pattern file";
    QCOMPARE(outcome.log, log);
}

void TestLocale::dataAreBytes()
{
    QFETCH(QByteArray, locale);
    Rig *const tool = rig(locale);
    const QByteArray data("\xC3\xBC\xFC\x80\xFF");
    RigStation &station = tool->station;
    tool->forget();
    QVERIFY(station.send(0x6002, data));
    QVERIFY2(station.expect(0x6003, data), qPrintable(station.errorString()));

    QCOMPARE(tool->request(0x7040, "01").line, QStringList("0004"));
    QVERIFY(station.send(0x7041, data));
    QVERIFY2(station.expectLine(data), qPrintable(station.errorString()));
    QVERIFY2(station.expect(0x0004), qPrintable(station.errorString()));
    QCOMPARE(tool->request(0x7040, "00").line, QStringList("0004"));
}

void TestLocale::cardFolder()
{
    QFETCH(QByteArray, locale);
    Rig *const tool = rig(locale);
    RigKeypad &keypad = tool->keypad;
    const QString folder = QString::fromUtf8("/media/gro\xC3\x9F");
    QVERIFY(keypad.makeDir(folder));
    tool->forget();
    QVERIFY(keypad.insertCard(folder));
    QVERIFY(tool->waitForLog("debug: In ATE Mode--->, SD Mount to m_sdCardMountPath=" + folder));
    const Outcome outcome = tool->request(0x6161, "010502");
    QCOMPARE(outcome.line.size(), 1);
    QCOMPARE(outcome.line.first().left(13), QString("6162 01050200"));
    QCOMPARE(keypad.listDir(folder), QStringList("ateTestFileOnSdCard.txt"));
}

void TestLocale::updateFolder()
{
    QFETCH(QByteArray, locale);
    Rig *const tool = rig(locale);
    RigKeypad &keypad = tool->keypad;
    const QString folder = QString::fromUtf8("/run/f\xC3\xBCr 1.3");
    QVERIFY(keypad.makeDir(folder));
    QVERIFY(keypad.writeFile(folder + "/imx28_ivt_linux.sb", QByteArray(1024, 'x')));
    tool->forget();
    QCOMPARE(tool->request(0x7050, folder.toUtf8()).line.first(), QString("0004"));
    QVERIFY(tool->waitForLog(QStringLiteral("debug: Using firmware update dir '%1'").arg(folder)));
    AWAIT_VERIFY(!keypad.standinCalls().isEmpty());
    const VirtualKeypad::StandinCall call = keypad.standinCalls().first();
    QVERIFY2(call.workingDirectory == folder || call.arguments.join(' ').contains(folder),
             qPrintable(call.workingDirectory + ' ' + call.arguments.join(' ')));
}

MFTOOL_TEST(TestLocale, EventLoop)
#include "tst_locale.moc"
