/// What the operator sees: the main screen to the pixel, the corner targets
/// under a finger, and the test images that cover it all.
#include "tests/support/testprogram.h"
#include "tests/whole/rig.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>

namespace
{

const int width = 800;
const int height = 480;
const int rowHeight = 44;   // of the corner targets
const int stackHeight = 81; // of button and status line
const int margin = 11;      // around the progress bars
const int gap = 3;          // between them

const QRgb white = 0xffffffff;

/// The corner targets, 22 by 22 pixels.
const QRect corners[] = {QRect(20, 20, 22, 22), QRect(756, 20, 22, 22), QRect(20, 436, 22, 22),
                         QRect(756, 436, 22, 22)};

/// The smallest rectangle around everything in @p area that is not white.
QRect inked(const QImage &screen, const QRect &area)
{
    QRect found;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            if (screen.pixel(x, y) != white)
                found |= QRect(x, y, 1, 1);
        }
    }
    return found;
}

/// Frames drawn across column @p x between two rows, top and bottom edge of each.
QList<QPair<int, int>> frames(const QImage &screen, int x, int top, int bottom)
{
    QList<int> edges;
    for (int y = top; y <= bottom; ++y) {
        if (qGray(screen.pixel(x, y)) < 200)
            edges << y;
    }
    QList<QPair<int, int>> found;
    for (int i = 0; i + 1 < edges.size(); i += 2)
        found << qMakePair(edges.at(i), edges.at(i + 1));
    return found;
}

bool isMarked(const QImage &screen, const QRect &corner)
{
    // The frame is 14 pixels wide and starts at the left, in the middle of the height.
    const QRect inside(corner.left() + 3, corner.top() + 7, 8, 8);
    for (int y = inside.top(); y <= inside.bottom(); ++y) {
        for (int x = inside.left(); x <= inside.right(); ++x) {
            if (qGray(screen.pixel(x, y)) < 160)
                return true;
        }
    }
    return false;
}

QString differs(const char *what, int is, int expected)
{
    return is == expected ? QString()
                          : QStringLiteral("%1 is %2, not %3. ")
                                .arg(QLatin1String(what))
                                .arg(is)
                                .arg(expected);
}

/// The colour panel: three bars that fade from black on the left.
QString checkColours(const QImage &screen, int top, int bottom)
{
    QString wrong;
    const int share = (bottom + 1 - top) / 3;
    const struct {
        int shift;
        const char *name;
    } bars[] = {{0, "blue"}, {8, "green"}, {16, "red"}};
    int y = top;
    for (const auto &bar : bars) {
        const auto isBar = [&](int row) {
            return (screen.pixel(width - 1, row) & 0xffffff) == 0xffu << bar.shift;
        };
        const int start = y;
        while (y <= bottom && isBar(y))
            ++y;
        if (qAbs(y - start - share) > 1)
            wrong += QStringLiteral("The %1 bar is %2 rows high. ")
                         .arg(QLatin1String(bar.name))
                         .arg(y - start);
        for (int x = 0; x < width && y > start; x += 7) {
            const QRgb colour = screen.pixel(x, (start + y) / 2) & 0xffffff;
            const int value = int(colour >> bar.shift & 0xff);
            if ((colour & ~(0xffu << bar.shift)) != 0 || qAbs(value - x * 255 / width) > 2)
                wrong += QStringLiteral("%1 at %2 is %3. ")
                             .arg(QLatin1String(bar.name))
                             .arg(x)
                             .arg(colour, 6, 16, QLatin1Char('0'));
        }
    }
    return wrong + differs("Row below the colours", y, bottom + 1);
}

QString checkButton(const QImage &screen, int stackTop)
{
    // The middle third, 6 pixels from the top and the bottom of its place.
    const QRect button = inked(screen, QRect(0, stackTop, width, stackHeight));
    return differs("The button's top", button.top(), stackTop + 6) +
           differs("The button's height", button.height(), stackHeight - 12) +
           differs("Its distance from the left", button.left(), width - 1 - button.right()) +
           (qAbs(button.width() - width / 3) > 2 ? differs("Its width", button.width(), width / 3)
                                                 : QString());
}

QString checkBars(const QImage &screen, int top, int bottom)
{
    const QList<QPair<int, int>> bars = frames(screen, 600, top, bottom);
    if (bars.size() != 4)
        return differs("The number of progress bars", int(bars.size()), 4);
    QString wrong = differs("The first bar's top", bars.first().first, top + margin) +
                    differs("The last bar's bottom", bars.last().second, bottom - margin);
    int captionEnd = 0;
    for (int i = 0; i < 4; ++i) {
        const int y = bars.at(i).first;
        const int rows = bars.at(i).second - y;
        wrong += differs("A bar's height", rows, bars.first().second - bars.first().first);
        if (i > 0)
            wrong += differs("The gap above a bar", y - bars.at(i - 1).second - 1, gap);
        const QRect row = inked(screen, QRect(0, y, width, rows + 1));
        wrong += differs("A bar's right edge", row.right(), width - margin - 1);
        // The frame's corners are round; captions are to the left of it and aligned at
        // their ends.
        int barLeft = 600;
        while (barLeft > 0 && qGray(screen.pixel(barLeft - 1, y)) < 200)
            --barLeft;
        const QRect caption = inked(screen, QRect(0, y, barLeft - gap, rows + 1));
        if (!caption.isValid() || caption.left() < margin)
            wrong += QStringLiteral("Caption %1 is not in its place. ").arg(i);
        if (i == 0) {
            captionEnd = caption.right();
            // The widest of them; its first letter may leave a pixel free.
            if (caption.left() > margin + 1)
                wrong += differs("The captions' left edge", caption.left(), margin);
        }
        wrong += differs("A caption's right edge", caption.right(), captionEnd);
        if (qAbs(caption.center().y() - (y + rows / 2)) > rows / 4)
            wrong += QStringLiteral("Caption %1 is not in the middle. ").arg(i);
    }
    return wrong;
}

/// What is wrong with the main screen as it is before a flash; empty when nothing.
QString checkMainScreen(const QImage &screen)
{
    if (screen.size() != QSize(width, height))
        return QStringLiteral("There is no whole screen. ");
    QString wrong;
    // The targets, with nothing else in their rows.
    for (const QRect &corner : corners) {
        const int rowTop = corner.top() < height / 2 ? 0 : height - rowHeight;
        const QRect half(corner.left() < width / 2 ? 0 : width / 2, rowTop, width / 2, rowHeight);
        const QRect mark = inked(screen, half);
        if (!corner.contains(mark) || mark.left() != corner.left() ||
            qAbs(mark.center().y() - corner.center().y()) > 1)
            wrong += QStringLiteral("A target is at %1,%2, not %3,%4. ")
                         .arg(mark.left())
                         .arg(mark.top())
                         .arg(corner.left())
                         .arg(corner.top());
    }
    // The colour panel takes the space that the others leave.
    int stackTop = rowHeight;
    while (stackTop < height && screen.pixel(width - 1, stackTop) != white)
        ++stackTop;
    wrong += checkColours(screen, rowHeight, stackTop - 1);
    wrong += checkButton(screen, stackTop);
    return wrong + checkBars(screen, stackTop + stackHeight, height - rowHeight - 1);
}

/// A picture of one colour with a frame of another, as bytes of a file.
QByteArray picture(int pictureWidth, int pictureHeight, QRgb colour, QRgb frame,
                   const char *format = "PNG")
{
    QImage image(pictureWidth, pictureHeight, QImage::Format_RGB32);
    image.fill(frame);
    for (int y = 1; y < pictureHeight - 1; ++y) {
        for (int x = 1; x < pictureWidth - 1; ++x)
            image.setPixel(x, y, colour);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes;
}

KeypadOptions onScreen()
{
    KeypadOptions options;
    options.display.kind = KeypadDisplay::Xvfb;
    options.workingDirectory = QStringLiteral("/run");
    return options;
}

} // namespace

class TestMainScreen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void logoFirst();
    void numbers();
    void targetsToggle();
    void coveredTargetsCannotBeReached();
    void imageIsUnscaledAndCentred();
    void largerImageIsCut();
    void imageStaysWhenTheNextCannotBeLoaded_data();
    void imageStaysWhenTheNextCannotBeLoaded();
    void nextImageReplaces();
    void emptyNameRemoves();
    void names_data();
    void names();

private:
    bool write(const QString &path, const QByteArray &bytes);
    bool removeImage();

    QScopedPointer<Rig> m_rig;
};

void TestMainScreen::initTestCase()
{
    SKIP_UNLESS_SCREENS_RUN();
    m_rig.reset(new Rig(onScreen()));
    QVERIFY2(m_rig->startReady(), qPrintable(m_rig->why()));
}

void TestMainScreen::init()
{
    QVERIFY(m_rig->keypad.isRunning());
}

bool TestMainScreen::write(const QString &path, const QByteArray &bytes)
{
    return m_rig->keypad.writeFile(path, bytes);
}

/// Back to the main screen, with the pointer where nothing lights up under it.
bool TestMainScreen::removeImage()
{
    return m_rig->keypad.move(200, 10) && m_rig->request(0x7000).line == QStringList("0004") &&
           Patience::waitUntil(
               [this] { return checkMainScreen(m_rig->keypad.screen()).isEmpty(); });
}

void TestMainScreen::logoFirst()
{
    QImage logo;
    QVERIFY(logo.loadFromData(m_rig->keypad.readFile("/home/default/tarnwick.png")));
    AWAIT_VERIFY(m_rig->keypad.screen().convertToFormat(QImage::Format_RGB32) ==
                 logo.convertToFormat(QImage::Format_RGB32));
    // Nothing of the screen below it can be reached.
    for (const QRect &corner : corners)
        QVERIFY(m_rig->keypad.touch(corner.left() + 6, corner.center().y()));
    m_rig->settle();
    QVERIFY(removeImage());
    for (const QRect &corner : corners)
        QVERIFY(!isMarked(m_rig->keypad.screen(), corner));
}

void TestMainScreen::numbers()
{
    QVERIFY(m_rig->keypad.move(200, 10));
    QCOMPARE(m_rig->request(0x7000).line, QStringList("0004"));
    AWAIT_COMPARE(checkMainScreen(m_rig->keypad.screen()), QString());
}

void TestMainScreen::targetsToggle()
{
    QVERIFY(removeImage());
    RigKeypad &keypad = m_rig->keypad;
    m_rig->settle();
    m_rig->forget();
    for (const bool marked : {true, false}) {
        for (const QRect &corner : corners) {
            QVERIFY(keypad.touch(corner.left() + 6, corner.center().y()));
            AWAIT_COMPARE(isMarked(keypad.screen(), corner), marked);
        }
    }
    // Only the operator has seen it.
    const Outcome outcome = m_rig->settle();
    QCOMPARE(outcome.line, QStringList());
    QCOMPARE(outcome.log, QStringList());
    QCOMPARE(outcome.stores, QStringList());

    // Only its own box toggles it.
    const QRect corner = corners[0];
    QVERIFY(keypad.touch(corner.left() - 3, corner.center().y()));
    QVERIFY(keypad.touch(corner.center().x(), corner.top() - 3));
    QVERIFY(keypad.touch(corner.right() + 4, corner.center().y()));
    QVERIFY(keypad.touch(corners[1].left() + 6, corners[1].center().y()));
    AWAIT_VERIFY(isMarked(keypad.screen(), corners[1]));
    QVERIFY(!isMarked(keypad.screen(), corner));
    QVERIFY(keypad.touch(corners[1].left() + 6, corners[1].center().y()));
    AWAIT_VERIFY(!isMarked(keypad.screen(), corners[1]));
}

/// Also under a picture that leaves the corners uncovered to the eye.
void TestMainScreen::coveredTargetsCannotBeReached()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(write("/home/default/small.png", picture(100, 50, 0xffff8000, 0xff008080)));
    for (const char *name : {"bars.png", "small.png"}) {
        QCOMPARE(m_rig->request(0x7000, name).line, QStringList("0004"));
        for (const QRect &corner : corners)
            QVERIFY(keypad.touch(corner.left() + 6, corner.center().y()));
        QVERIFY(keypad.touch(width / 2, 230)); // the start button's place
        m_rig->settle();
        QVERIFY(removeImage());
        for (const QRect &corner : corners)
            QVERIFY(!isMarked(keypad.screen(), corner));
        QCOMPARE(checkMainScreen(keypad.screen()), QString());
    }
    QCOMPARE(keypad.standinCalls().size(), 0);
}

void TestMainScreen::imageIsUnscaledAndCentred()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(removeImage());
    const QImage before = keypad.screen();
    QVERIFY(write("/home/default/small.png", picture(100, 50, 0xffff8000, 0xff008080)));
    QCOMPARE(m_rig->request(0x7000, "small.png").line, QStringList("0004"));
    QVERIFY(keypad.waitForPixel(400, 240, 0xffff8000));

    QImage expected = before;
    QPainter painter(&expected);
    painter.fillRect(350, 215, 100, 50, QColor(0, 0x80, 0x80));
    painter.fillRect(351, 216, 98, 48, QColor(0xff, 0x80, 0));
    painter.end();
    AWAIT_VERIFY(keypad.screen() == expected);
}

void TestMainScreen::largerImageIsCut()
{
    RigKeypad &keypad = m_rig->keypad;
    QImage large(1000, 600, QImage::Format_RGB32);
    for (int y = 0; y < large.height(); ++y) {
        for (int x = 0; x < large.width(); ++x)
            large.setPixel(x, y, qRgb(x / 4, y / 4, (x + y) % 256));
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    large.save(&buffer, "PNG");
    QVERIFY(write("/home/default/large.png", bytes));
    QCOMPARE(m_rig->request(0x7000, "large.png").line, QStringList("0004"));
    const QImage expected = large.copy(100, 60, width, height);
    AWAIT_VERIFY(keypad.screen().convertToFormat(QImage::Format_RGB32) == expected);
}

void TestMainScreen::imageStaysWhenTheNextCannotBeLoaded_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("content"); // null: there is no such file
    QTest::newRow("missing") << QByteArray("nowhere.png") << QByteArray();
    QTest::newRow("a text") << QByteArray("text.png") << QByteArray("no picture at all\n");
    QTest::newRow("empty") << QByteArray("empty.png") << QByteArray("");
    QTest::newRow("half a picture")
        << QByteArray("half.png") << picture(100, 50, 0xffff8000, 0xff008080).left(40);
    QTest::newRow("a folder") << QByteArray("/home/default") << QByteArray();
    QTest::newRow("a device") << QByteArray("/dev/zero") << QByteArray();
    QTest::newRow("a pipe") << QByteArray("/tmp/sdstat") << QByteArray();
}

void TestMainScreen::imageStaysWhenTheNextCannotBeLoaded()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, content);
    RigKeypad &keypad = m_rig->keypad;
    QString path = QString::fromLatin1(name);
    if (!content.isNull()) {
        path = "/home/default/" + path;
        QVERIFY(write(path, content));
    }
    QCOMPARE(m_rig->request(0x7000, "checkerboard.png").line, QStringList("0004"));
    QVERIFY(keypad.waitForPixel(799, 0, white));
    QVERIFY(keypad.waitForPixel(0, 0, 0xff000000));
    const QImage before = keypad.screen();

    const Outcome outcome = m_rig->request(0x7000, name);
    QCOMPARE(outcome.line, QStringList("0005"));
    QCOMPARE(outcome.log, QStringList({QStringLiteral("debug: Using test pattern '%1'").arg(path),
                                       "warning: Failed to open test pattern file"}));
    QVERIFY(keypad.screen() == before);
}

void TestMainScreen::nextImageReplaces()
{
    RigKeypad &keypad = m_rig->keypad;
    QVERIFY(removeImage());
    const QImage bare = keypad.screen();
    QVERIFY(write("/home/default/small.png", picture(100, 50, 0xffff8000, 0xff008080)));
    QCOMPARE(m_rig->request(0x7000, "bars.png").line, QStringList("0004"));
    QVERIFY(keypad.waitForPixel(0, 0, white));
    QVERIFY(keypad.waitForPixel(150, 100, 0xffffff00));
    QCOMPARE(m_rig->request(0x7000, "small.png").line, QStringList("0004"));
    QVERIFY(keypad.waitForPixel(400, 240, 0xffff8000));
    // Beside the smaller one nothing of the larger one is left.
    AWAIT_COMPARE(keypad.screen().pixel(150, 100), bare.pixel(150, 100));

    // A file that has changed since is loaded anew.
    QVERIFY(write("/home/default/small.png", picture(100, 50, 0xff123456, 0xff008080)));
    QCOMPARE(m_rig->request(0x7000, "small.png").line, QStringList("0004"));
    QVERIFY(keypad.waitForPixel(400, 240, 0xff123456));
}

void TestMainScreen::emptyNameRemoves()
{
    RigKeypad &keypad = m_rig->keypad;
    QCOMPARE(m_rig->request(0x7000, "bars.png").line, QStringList("0004"));
    QVERIFY(keypad.waitForPixel(150, 100, 0xffffff00));
    const Outcome removed = m_rig->request(0x7000);
    QCOMPARE(removed.line, QStringList("0004")); // one reply, not two
    QCOMPARE(removed.log, QStringList());
    AWAIT_COMPARE(checkMainScreen(keypad.screen()), QString());
    QCOMPARE(m_rig->request(0x7000).line, QStringList("0004"));
}

void TestMainScreen::names_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("path");
    QTest::newRow("last match") << QByteArray("bars") << "/home/default/bars2.png";
    QTest::newRow("working directory") << QByteArray("loose.png") << "loose.png";
    QTest::newRow("by its content") << QByteArray("odd.jpg") << "/home/default/odd.jpg";
    QTest::newRow("another format") << QByteArray("photo") << "/home/default/photo.bmp";
    QTest::newRow("bytes above 7F")
        << QByteArray("b\xC3\xA4r") << QString::fromUtf8("/home/default/b\xC3\xA4r.png");
    QTest::newRow("in a folder below")
        << QByteArray("sub.png/inner.png") << "/home/default/sub.png/inner.png";
}

void TestMainScreen::names()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, path);
    const QByteArray png = picture(20, 20, 0xff102030, 0xff405060);
    for (const char *file : {"bars1.png", "bars2.png", "odd.jpg", "b\xC3\xA4r.png"})
        QVERIFY(write("/home/default/" + QString::fromUtf8(file), png));
    QVERIFY(write("/home/default/photo.bmp", picture(20, 20, 0xff102030, 0xff405060, "BMP")));
    QVERIFY(m_rig->keypad.makeDir("/home/default/sub.png"));
    QVERIFY(write("/home/default/sub.png/inner.png", png));
    QVERIFY(write("/run/loose.png", png));

    const Outcome outcome = m_rig->request(0x7000, name);
    QCOMPARE(outcome.line, QStringList("0004"));
    QCOMPARE(outcome.log, QStringList(QStringLiteral("debug: Using test pattern '%1'").arg(path)));
}

MFTOOL_TEST(TestMainScreen, EventLoop)
#include "tst_mainscreen.moc"
