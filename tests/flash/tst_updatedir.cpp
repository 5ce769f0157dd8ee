#include "flash/updatedir.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/testprogram.h"

class TestUpdateDir : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void nothingAskedFor_data();
    void nothingAskedFor();
    void nothingAskedForAndNoBase();
    void baseItselfIsMadeAbsolute();
    void askedFor_data();
    void askedFor();
    void askedForAndNoBase_data();
    void askedForAndNoBase();

private:
    void populate(const QStringList &entries);

    QTemporaryDir *m_root = nullptr;
    QString m_base;
};

void TestUpdateDir::init()
{
    m_root = new QTemporaryDir;
    m_base = m_root->filePath("boot");
    QVERIFY(QDir().mkpath(m_base));
    // Where the links of the tests lead; never in the base itself.
    QVERIFY(QDir().mkpath(m_root->filePath("elsewhere")));
    QFile file(m_root->filePath("image"));
    QVERIFY(file.open(QIODevice::WriteOnly));
}

void TestUpdateDir::cleanup()
{
    delete m_root;
    m_root = nullptr;
}

/// Puts entries into the base: "name/" is a folder, "name@" a link to a
/// folder, "name#" a link to a file, "name!" a link to nothing, any other a file.
void TestUpdateDir::populate(const QStringList &entries)
{
    for (const QString &entry : entries) {
        const QString path = m_base + '/' + entry.left(entry.size() - 1);
        switch (entry.back().toLatin1()) {
        case '/':
            QVERIFY(QDir().mkpath(path));
            break;
        case '@':
            QVERIFY(QFile::link(m_root->filePath("elsewhere"), path));
            break;
        case '#':
            QVERIFY(QFile::link(m_root->filePath("image"), path));
            break;
        case '!':
            QVERIFY(QFile::link(m_root->filePath("nowhere"), path));
            break;
        default: {
            QFile file(m_base + '/' + entry);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        }
    }
}

void TestUpdateDir::nothingAskedFor_data()
{
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QString>("chosen"); // below the base; empty is the base itself

    QTest::newRow("base is empty") << QStringList() << "";
    QTest::newRow("files only") << QStringList{"uImage", "zImage"} << "";
    QTest::newRow("one folder") << QStringList{"fw/"} << "/fw";
    QTest::newRow("greatest name") << QStringList{"fw-b/", "fw-c/", "fw-a/"} << "/fw-c";
    QTest::newRow("files among the folders")
        << QStringList{"aaa", "fw-1/", "fw-2/", "zzz"} << "/fw-2";
    QTest::newRow("names, not numbers") << QStringList{"fw-9/", "fw-10/"} << "/fw-9";
    QTest::newRow("longer name is greater") << QStringList{"fw/", "fw-1/"} << "/fw-1";
    QTest::newRow("lower case is greater") << QStringList{"a/", "B/", "Z/"} << "/a";
    QTest::newRow("letter beyond ASCII is greatest")
        << QStringList{"z/", QString::fromUtf8("\xC3\xA4/")} << QString::fromUtf8("/\xC3\xA4");
    QTest::newRow("blank in the name") << QStringList{"fw 1/", "fw 2/"} << "/fw 2";
    QTest::newRow("link to a folder") << QStringList{"fw-1/", "newest@"} << "/newest";
    QTest::newRow("link to a file") << QStringList{"fw-1/", "newest#"} << "/fw-1";
    QTest::newRow("link to nothing") << QStringList{"fw-1/", "newest!"} << "/fw-1";
    QTest::newRow("hidden folder only") << QStringList{".hidden/"} << "";
    QTest::newRow("hidden folder among others") << QStringList{"-fw/", ".zzz/"} << "/-fw";
    QTest::newRow("folders within folders") << QStringList{"a/", "a/zzz/", "b/"} << "/b";
}

void TestUpdateDir::nothingAskedFor()
{
    QFETCH(QStringList, entries);
    QFETCH(QString, chosen);

    populate(entries);
    QCOMPARE(chooseUpdateDir(m_base, QString()), m_base + chosen);
    QCOMPARE(chooseUpdateDir(m_base, QString("")), m_base + chosen);
}

void TestUpdateDir::nothingAskedForAndNoBase()
{
    QCOMPARE(chooseUpdateDir("/there/is/no/such/boot", QString()),
             QString("/there/is/no/such/boot"));
}

void TestUpdateDir::baseItselfIsMadeAbsolute()
{
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(m_root->path()));
    const QString chosen = chooseUpdateDir("boot", QString());
    const QString absolute = QDir::currentPath() + "/boot";
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(chosen, absolute);
}

void TestUpdateDir::askedFor_data()
{
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QString>("dir");
    QTest::addColumn<QString>("chosen"); // "BASE" stands for the base
    const auto row = [](const char *name, const QStringList &entries, const QString &dir,
                        const QString &chosen) { QTest::newRow(name) << entries << dir << chosen; };

    const QStringList beta{"fw-alpha/", "fw-beta-a/", "fw-beta-b/", "fw-gamma/"};

    // Absolute: used as it is, whether it exists or not.
    row("absolute", beta, "/data/fw", "/data/fw");
    row("absolute with a slash at its end", beta, "/data/fw/", "/data/fw/");
    row("the root", beta, "/", "/");
    row("absolute, same name in the base", QStringList{"fw/"}, "/fw", "/fw");

    // An entry of just that name, of whatever kind.
    row("a folder of that name", QStringList{"beta/", "fw-beta-b/"}, "beta", "BASE/beta");
    row("a file of that name", QStringList{"beta", "fw-beta-b/"}, "beta", "BASE/beta");
    row("a link to a folder of that name", QStringList{"beta@", "fw-beta-b/"}, "beta", "BASE/beta");
    row("a link to a file of that name", QStringList{"beta#", "fw-beta-b/"}, "beta", "BASE/beta");
    row("a hidden folder of that name", QStringList{".beta/", "fw.beta/"}, ".beta", "BASE/.beta");
    row("a folder within a folder", QStringList{"a/", "a/b/"}, "a/b", "BASE/a/b");
    row("the parent", beta, "..", "BASE/..");
    row("a name that is a pattern too", QStringList{"fw*/", "fw-z/"}, "fw*", "BASE/fw*");
    row("a name with a colon first", QStringList{":fw/"}, ":fw", "BASE/:fw");

    // Otherwise the last folder whose name contains it.
    row("part of two names", beta, "beta", "BASE/fw-beta-b");
    row("part of one name", beta, "gam", "BASE/fw-gamma");
    row("whole name in another case", QStringList{"BETA/"}, "beta", "BASE/BETA");
    row("part in another case", beta, "BETA", "BASE/fw-beta-b");
    row("names in another case, greatest name", QStringList{"FW-BETA-C/", "fw-Beta-a/"}, "beta",
        "BASE/fw-Beta-a");
    row("beyond ASCII in another case", QStringList{QString::fromUtf8("fw-\xC3\x84/")},
        QString::fromUtf8("\xC3\xA4"), QString::fromUtf8("BASE/fw-\xC3\x84"));
    row("files do not match", QStringList{"fw-beta-a/", "fw-beta-b"}, "beta", "BASE/fw-beta-a");
    row("hidden folders do not match", QStringList{".beta-z/", "-beta/"}, "beta", "BASE/-beta");
    row("links to folders match", QStringList{"fw-beta-a/", "fw-beta-z@"}, "beta",
        "BASE/fw-beta-z");
    row("link of that name leads to nothing", QStringList{"beta!", "fw-beta-a/"}, "beta",
        "BASE/fw-beta-a");
    row("dot is a dot", QStringList{"fw-1.2/", "fw-1x2/"}, "1.2", "BASE/fw-1.2");
    row("blank is a blank", QStringList{"fw 1/", "fw-1/"}, "w 1", "BASE/fw 1");
    row("plus, bracket, bar are themselves", QStringList{"fw+(1|2)/", "fww12/"}, "+(1|2",
        "BASE/fw+(1|2)");

    // What is asked for may hold wildcards.
    row("any text", beta, "a*a", "BASE/fw-gamma");
    row("any letter", beta, "b?ta", "BASE/fw-beta-b");
    row("any letter is one letter", QStringList{"ab/", "acb/", "adxb/"}, "a?b", "BASE/acb");
    row("set of letters", beta, "beta-[ax]", "BASE/fw-beta-a");
    row("set of letters left out", QStringList{"fw-ab/", "fw-xb/"}, "-[^x]b", "BASE/fw-ab");
    row("exclamation mark in a set is itself", QStringList{"fw-!b/", "fw-ab/"}, "-[!]b",
        "BASE/fw-!b");
    row("everything", beta, "*", "BASE/fw-gamma");

    // Nothing fits: the name itself.
    row("matches nothing", beta, "delta", "delta");
    row("matches nothing, base empty", QStringList(), "delta", "delta");
    row("matches nothing, keeps its case and blanks", beta, " Delta ", " Delta ");
    row("path that matches nothing", beta, "data/fw", "data/fw");
    row("matches files only", QStringList{"fw-beta"}, "beta", "beta");
    row("matches hidden folders only", QStringList{".fw-beta/"}, "beta", "beta");
    row("not a pattern", beta, "[", "[");
}

void TestUpdateDir::askedFor()
{
    QFETCH(QStringList, entries);
    QFETCH(QString, dir);
    QFETCH(QString, chosen);

    populate(entries);
    QCOMPARE(chooseUpdateDir(m_base, dir), chosen.replace("BASE", m_base));
}

void TestUpdateDir::askedForAndNoBase_data()
{
    QTest::addColumn<QString>("dir");

    QTest::newRow("relative") << "beta";
    QTest::newRow("absolute") << "/data/fw";
}

void TestUpdateDir::askedForAndNoBase()
{
    QFETCH(QString, dir);
    QCOMPARE(chooseUpdateDir("/there/is/no/such/boot", dir), dir);
}

MFTOOL_TEST(TestUpdateDir, EventLoop)
#include "tst_updatedir.moc"
