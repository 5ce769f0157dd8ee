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

private Q_SLOTS:
    void sizes();
    void bars();
    void grey();
    void checkerboard();
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

void TestPictures::bars()
{
    const QImage image = draw("bars.png");
    QCOMPARE(image.pixel(0, 0), 0xffffffffU);
    QCOMPARE(image.pixel(99, 479), 0xffffffffU);
    QCOMPARE(image.pixel(100, 0), 0xffffff00U);
    QCOMPARE(image.pixel(799, 479), 0xff000000U);
}

void TestPictures::grey()
{
    const QImage image = draw("grey.png");
    QCOMPARE(image.pixel(0, 0), 0xff000000U);
    QCOMPARE(image.pixel(799, 239), 0xffffffffU);
    QCOMPARE(image.pixel(0, 240), 0xff000000U);
    QCOMPARE(image.pixel(410, 420), 0xff888888U);
    QCOMPARE(image.pixel(799, 479), 0xffffffffU);
}

void TestPictures::checkerboard()
{
    const QImage image = draw("checkerboard.png");
    QCOMPARE(image.pixel(0, 0), 0xff000000U);
    QCOMPARE(image.pixel(40, 0), 0xffffffffU);
    QCOMPARE(image.pixel(40, 40), 0xff000000U);
    QCOMPARE(image.pixel(400, 240), 0xff000000U);
    QCOMPARE(image.pixel(401, 240), 0xffffffffU);
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
