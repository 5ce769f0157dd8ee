#include "bench/keypad/pictures.h"

#include <QImage>
#include <QtTest>

#include "tests/support/testprogram.h"

namespace
{

QImage draw(const QString &name)
{
    return QImage::fromData(Pictures::png(name)).convertToFormat(QImage::Format_RGB32);
}

} // namespace

class TestPictures : public QObject
{
    Q_OBJECT

private slots:
    void sizes();
    void pixels_data();
    void pixels();
    void plainColours();
    void logoShowsSomething();
    void unknownName();
};

void TestPictures::sizes()
{
    const QStringList names = Pictures::names();
    QCOMPARE(names, QStringList({"tarnwick.png", "bars.png", "grey.png", "checkerboard.png",
                                 "white.png", "black.png", "red.png", "green.png", "blue.png"}));
    for (const QString &name : names) {
        const QImage image = QImage::fromData(Pictures::png(name));
        QCOMPARE(image.size(), QSize(800, 480));
        QVERIFY(Pictures::png(name).startsWith("\x89PNG\r\n"));
    }
}

void TestPictures::pixels_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QPoint>("at");
    QTest::addColumn<QRgb>("colour");
    const auto row = [](const char *name, int x, int y, QRgb colour) {
        QTest::addRow("%s at %d,%d", name, x, y) << QString(name) << QPoint(x, y) << colour;
    };
    row("bars.png", 0, 0, 0xffffffff);
    row("bars.png", 99, 479, 0xffffffff);
    row("bars.png", 100, 0, 0xffffff00);
    row("bars.png", 799, 479, 0xff000000);
    row("grey.png", 0, 0, 0xff000000);
    row("grey.png", 799, 239, 0xffffffff);
    row("grey.png", 0, 240, 0xff000000);
    row("grey.png", 410, 420, 0xff888888);
    row("grey.png", 799, 479, 0xffffffff);
    row("checkerboard.png", 0, 0, 0xff000000);
    row("checkerboard.png", 40, 0, 0xffffffff);
    row("checkerboard.png", 40, 40, 0xff000000);
    row("checkerboard.png", 400, 240, 0xff000000);
    row("checkerboard.png", 401, 240, 0xffffffff);
}

void TestPictures::pixels()
{
    QFETCH(QString, name);
    QFETCH(QPoint, at);
    QTEST(draw(name).pixel(at), "colour");
}

void TestPictures::plainColours()
{
    const QHash<QString, QRgb> colours = {{"white.png", 0xffffffffU},
                                          {"black.png", 0xff000000U},
                                          {"red.png", 0xffff0000U},
                                          {"green.png", 0xff00ff00U},
                                          {"blue.png", 0xff0000ffU}};
    for (auto it = colours.cbegin(); it != colours.cend(); ++it) {
        QImage whole(800, 480, QImage::Format_RGB32);
        whole.fill(it.value());
        QCOMPARE(draw(it.key()), whole);
    }
}

void TestPictures::logoShowsSomething()
{
    const QImage image = draw("tarnwick.png");
    QSet<QRgb> colours;
    for (int x = 0; x < image.width(); ++x) {
        for (int y = 0; y < image.height(); ++y)
            colours.insert(image.pixel(x, y));
    }
    QVERIFY(colours.size() > 4);
    // What the production plan looks at.
    QCOMPARE(image.pixel(20, 20), 0xff102a43U);
}

void TestPictures::unknownName()
{
    QCOMPARE(Pictures::png("none.png"), QByteArray());
}

MFTOOL_TEST(TestPictures, NoApplication)
#include "tst_pictures.moc"
