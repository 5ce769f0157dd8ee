// Which picture a name means.
#include "hardware/testimage.h"

#include <QtTest>

#include "tests/support/boardfolder.h"
#include "tests/support/testprogram.h"

class TestTestImage : public QObject
{
    Q_OBJECT

private slots:
    void look_data();
    void look();
    void missingFolder();
};

void TestTestImage::look_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("folders");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("found"); // in the folder of the images unless it begins with "="
    const auto row = [](const char *title, const QStringList &files, const QStringList &folders,
                        const QString &name, const QString &found) {
        QTest::newRow(title) << files << folders << name << found;
    };
    const QStringList bars{"bars1.png", "bars2.png"};
    const QStringList none;
    row("last match by name", bars, none, "bars", "bars2.png");
    row("exact name first", QStringList{"bars", "bars1.png"}, none, "bars", "bars");
    row("exact with ending", bars, none, "bars1.png", "bars1.png");
    row("middle of a name", bars, none, "rs1", "bars1.png");
    row("another case", bars, none, "BARS1", "bars1.png");
    row("no match keeps the name", bars, none, "grey", "=grey");
    row("absolute", bars, none, "/bars1.png", "=/bars1.png");
    row("a folder does not match", bars, QStringList{"bars"}, "bars", "bars2.png");
    row("only a folder", none, QStringList{"bars"}, "bars", "=bars");
    row("wildcard in the name", bars, none, "b*1", "bars1.png");
    row("any one character", bars, none, "ar?1", "bars1.png");
    row("set of characters", bars, none, "bars[1x]", "bars1.png");
    row("set of characters left out", bars, none, "bars[^2]", "bars1.png");
    row("exclamation mark in a set", QStringList{"bars!.png", "bars3.png"}, none, "bars[!]",
        "bars!.png");
    row("not a pattern", bars, none, "[", "=[");
    row("upper case sorts first", QStringList{"Zebra bars", "a bars"}, none, "bars", "a bars");
}

void TestTestImage::look()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, folders);
    QFETCH(QString, name);
    QFETCH(QString, found);
    BoardFolder folder;
    for (const QString &file : files)
        folder.write("/images/" + file, "x");
    for (const QString &sub : folders)
        folder.makeFolder("/images/" + sub);
    folder.makeFolder("/images");
    const QString expected = found.startsWith('=') ? found.mid(1) : folder.at("/images/" + found);
    QCOMPARE(findTestImage(folder.at("/images"), name), expected);
}

void TestTestImage::missingFolder()
{
    BoardFolder folder;
    QCOMPARE(findTestImage(folder.at("/images"), "bars"), QString("bars"));
}

MFTOOL_TEST(TestTestImage, NoApplication)
#include "tst_testimage.moc"
