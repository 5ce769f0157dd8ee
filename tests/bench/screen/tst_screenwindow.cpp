#include "bench/screen/screenwindow.h"

#include "bench/screen/fitlabel.h"
#include "bench/screen/fixturetile.h"
#include "bench/screen/verdictbox.h"
#include "tests/support/testprogram.h"

#include <QJsonDocument>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>

namespace
{

const int Never = 3600 * 1000; // ms
const int LongMs = 30000;      ///< for an event that comes at once, on a machine that is busy

const char *const LongName = "Compare the pattern on the screen with the reference picture of the "
                             "glass, all of its corners and edges";
const char *const LongQuestion =
    "Does the screen show the factory logo in the middle, with a white frame of one pixel around "
    "the whole screen, no missing rows or columns, no flicker, and the four corners in red, green, "
    "blue and white, clockwise from the top left?";

/// What a line with these fixtures says, one object after the other.
class Line
{
public:
    explicit Line(const QStringList &fixtures, int units) : m_fixtures(fixtures)
    {
        text = "{\"event\":\"run begun\",\"title\":\"Production test\",\"units\":" +
               QByteArray::number(units) + ",\"fixtures\":[";
        for (const QString &fixture : fixtures)
            text += (text.endsWith('[') ? "\"" : ",\"") + fixture.toUtf8() + '"';
        text += "]}\n";
    }

    Line &say(const QByteArray &event, const QByteArray &rest, int fixture = 0)
    {
        text += "{\"event\":\"" + event + "\"," + rest;
        if (!m_fixtures.isEmpty())
            text += ",\"fixture\":\"" + m_fixtures.at(fixture).toUtf8() + '"';
        text += "}\n";
        return *this;
    }

    Line &begin(int unit, const char *serial, int fixture = 0)
    {
        return say("unit begun",
                   "\"unit\":" + QByteArray::number(unit) +
                       ",\"attempt\":1,\"steps\":57,\"serial_number\":\"" + serial + '"',
                   fixture);
    }

    Line &step(int number, const char *name, int fixture = 0)
    {
        return say("step started",
                   "\"step\":" + QByteArray::number(number) + ",\"name\":\"" + name + '"', fixture);
    }

    Line &ask(int id, const char *kind, const char *question, int fixture = 0)
    {
        return say("question",
                   "\"id\":" + QByteArray::number(id) + ",\"kind\":\"" + kind + "\",\"text\":\"" +
                       question + '"',
                   fixture);
    }

    Line &end(int unit, const char *outcome, const char *reason, int fixture = 0)
    {
        return say("unit ended",
                   "\"unit\":" + QByteArray::number(unit) + ",\"outcome\":\"" + outcome +
                       "\",\"reason\":\"" + reason + "\",\"record\":{\"seconds\":27.31}",
                   fixture);
    }

    QByteArray text;

private:
    const QStringList m_fixtures;
};

class Screen
{
public:
    explicit Screen(const QSize &size = QSize(800, 480))
        : window(Pauses{0, 0, Never}), said(&window, SIGNAL(said(QJsonObject))),
          interrupted(&window, SIGNAL(interrupted())), left(&window, SIGNAL(left()))
    {
        window.resize(size);
        window.show();
    }

    void read(const Line &line)
    {
        window.read(line.text);
        QCoreApplication::processEvents();
    }

    /// The text of a label on the screen, or on a tile.
    QString text(const char *name, int tile = -1) const
    {
        const QWidget *parent = &window;
        if (tile >= 0)
            parent = tiles().at(tile);
        const FitLabel *label = parent->findChild<FitLabel *>(name);
        return label == nullptr || !label->isVisible() ? QString() : label->text();
    }

    QList<FixtureTile *> tiles() const { return window.findChildren<FixtureTile *>(); }

    QString verdict(int tile = 0) const
    {
        return tiles().at(tile)->findChild<VerdictBox *>()->verdict().word;
    }

    bool asks() const { return window.findChild<QuestionPanel *>()->isVisible(); }

    void type(const QString &keys)
    {
        settle();
        QWidget *focused = window.focusWidget();
        QTest::keyClicks(focused != nullptr ? focused : &window, keys);
        settle();
    }

    void press(Qt::Key key)
    {
        settle();
        QWidget *focused = window.focusWidget();
        QTest::keyClick(focused != nullptr ? focused : &window, key);
        settle();
    }

    /// Waits until pauses of 0 ms are over.
    void settle()
    {
        const QPushButton *yes = window.findChild<QPushButton *>("yes");
        for (int i = 0; i < 10 || (yes->isVisible() && !yes->isEnabled()); ++i)
            QCoreApplication::processEvents();
    }

    /// What the line was told since the last call.
    QStringList answers()
    {
        QStringList lines;
        while (!said.isEmpty())
            lines.append(QString::fromUtf8(QJsonDocument(said.takeFirst().at(0).toJsonObject())
                                               .toJson(QJsonDocument::Compact)));
        return lines;
    }

    ScreenWindow window;
    QSignalSpy said;
    QSignalSpy interrupted;
    QSignalSpy left;
};

QStringList names(int count)
{
    QStringList names;
    for (int i = 0; i < count; ++i)
        names.append(QStringLiteral("ttyUSB%1").arg(i));
    return names;
}

} // namespace

class TestScreenWindow : public QObject
{
    Q_OBJECT

private slots:
    void aRunIsShown();
    void aStepThatFailedIsTold();
    void anInstructionIsShown();
    void aVerdictIsShown_data();
    void aVerdictIsShown();
    void theBatchIsCounted();
    void oneUnitIsNotCounted();
    void eachFixtureHasATile();
    void questionsComeOneAfterAnother();
    void enterAnswersNoLook();
    void aSerialNumberIsScanned();
    void aNumberThatIsScannedTwiceAnswersOneFixture();
    void aRefusedNumberIsScannedAgain();
    void aQuestionThatIsOverGoesAway();
    void escapeAsksBeforeItEnds();
    void theRunIsEnded_data();
    void theRunIsEnded();
    void endingItAtOnceIsAskedForToo();
    void theVerdictStaysUntilTheScreenIsClosed();
    void nothingIsAskedAfterTheEnd();
    void aLineThatBreaksOffIsTold();
    void whatCouldNotBeDoneIsTold();
    void theScreensOwnQuestionFits();
    void itFits_data();
    void itFits();
    void tilesKeepTheirPlaces();
    void aLongNameIsElided();
};

void TestScreenWindow::aRunIsShown()
{
    Screen screen;
    screen.read(Line({}, 20).begin(3, "KP-0042").step(12, "Light"));
    QCOMPARE(screen.text("title"), QString("Production test"));
    QCOMPARE(screen.text("name", 0), QString("KP-0042"));
    QCOMPARE(screen.verdict(), QString("TESTING"));
    QCOMPARE(screen.text("text", 0), QString("12 of 57 \u00b7 Light"));
    screen.read(Line({}, 20).say("progress", "\"text\":\"43 %\""));
    QCOMPARE(screen.text("text", 0), QString("12 of 57 \u00b7 Light \u00b7 43 %"));
    QVERIFY(!screen.asks());
}

void TestScreenWindow::aStepThatFailedIsTold()
{
    Screen screen;
    screen.read(Line({}, 20)
                    .begin(3, "KP-0042")
                    .say("step ended", "\"outcome\":\"fail\"")
                    .step(13, "Touch"));
    QCOMPARE(screen.text("text", 0), QString("1 failed \u00b7 13 of 57 \u00b7 Touch"));
}

void TestScreenWindow::anInstructionIsShown()
{
    Screen screen;
    screen.read(
        Line({}, 1).begin(1, "").step(1, "Start").say("told", "\"text\":\"Switch it on.\""));
    QCOMPARE(screen.text("text", 0), QString("Switch it on."));
    QCOMPARE(screen.text("name", 0), QString("Unit 1"));
}

void TestScreenWindow::aVerdictIsShown_data()
{
    QTest::addColumn<QByteArray>("outcome");
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("text");
    QTest::newRow("pass") << QByteArray("pass") << "PASS"
                          << "57 steps in 27.3 s";
    QTest::newRow("fail") << QByteArray("fail") << "FAIL"
                          << "it is dark";
    QTest::newRow("error") << QByteArray("error") << "ERROR"
                           << "it is dark";
}

void TestScreenWindow::aVerdictIsShown()
{
    QFETCH(QByteArray, outcome);
    QFETCH(QString, word);
    QFETCH(QString, text);
    Screen screen;
    screen.read(
        Line({}, 20).begin(3, "KP-0042").end(3, outcome, outcome == "pass" ? "" : "it is dark"));
    QCOMPARE(screen.verdict(), word);
    QCOMPARE(screen.text("text", 0), text);
    // A good part of the screen has its colour.
    const VerdictBox *box = screen.window.findChild<VerdictBox *>();
    QVERIFY(box->width() * box->height() * 4 > 800 * 480);
    const QPoint edge = box->mapTo(&screen.window, QPoint(box->width() / 2, 3));
    QCOMPARE(screen.window.grab().toImage().pixelColor(edge), box->verdict().colour);
}

void TestScreenWindow::theBatchIsCounted()
{
    Screen screen;
    Line line({}, 20);
    screen.read(line);
    QCOMPARE(screen.text("count"), QString("0 of 20 tested"));
    screen.read(line.begin(1, "")
                    .end(1, "pass", "")
                    .begin(2, "")
                    .end(2, "fail", "dark")
                    .begin(3, "")
                    .end(3, "pass", ""));
    QCOMPARE(screen.text("count"), QString("3 of 20 tested \u00b7 2 passed \u00b7 yield 66.7 %"));
    // At the end the units that were never tested count, too.
    line.say("summary", "\"units\":[{\"unit\":1,\"outcome\":\"pass\"},{\"unit\":2,\"outcome\":"
                        "\"fail\"},{\"unit\":3,\"outcome\":\"pass\"}]");
    screen.read(line);
    QCOMPARE(screen.text("count"), QString("3 of 20 tested \u00b7 2 passed \u00b7 yield 10.0 %"));
}

void TestScreenWindow::oneUnitIsNotCounted()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").end(1, "pass", ""));
    QCOMPARE(screen.text("count"), QString());
}

void TestScreenWindow::eachFixtureHasATile()
{
    Screen screen;
    screen.read(Line({"left", "right"}, 4)
                    .begin(2, "KP-2", 1)
                    .step(5, "Touch", 1)
                    .begin(1, "KP-1", 0)
                    .end(1, "fail", "dark", 0));
    QCOMPARE(screen.tiles().size(), 2);
    QCOMPARE(screen.text("name", 0), QString("left"));
    QCOMPARE(screen.text("serial", 0), QString("KP-1"));
    QCOMPARE(screen.verdict(0), QString("FAIL"));
    QCOMPARE(screen.text("text", 0), QString("dark"));
    QCOMPARE(screen.text("name", 1), QString("right"));
    QCOMPARE(screen.text("serial", 1), QString("KP-2"));
    QCOMPARE(screen.verdict(1), QString("TESTING"));
    QCOMPARE(screen.text("text", 1), QString("5 of 57 \u00b7 Touch"));
}

void TestScreenWindow::questionsComeOneAfterAnother()
{
    Screen screen;
    screen.read(Line({"left", "right"}, 2)
                    .begin(1, "KP-1", 0)
                    .begin(2, "KP-2", 1)
                    .ask(1, "yes/no", "Is it bright?", 1)
                    .ask(2, "yes/no", "Is it dark?", 0));
    QCOMPARE(screen.answers(), (QStringList{"{\"shown\":1}", "{\"waits\":2}"}));
    QCOMPARE(screen.text("who"), QString("right \u00b7 KP-2"));
    QCOMPARE(screen.text("question"), QString("Is it bright?"));
    QCOMPARE(screen.text("others"), QString("1 more question"));
    QCOMPARE(screen.tiles().at(0)->asking(), FixtureTile::Waits);
    QCOMPARE(screen.text("name", 0), QString("left  ?"));
    QCOMPARE(screen.tiles().at(1)->asking(), FixtureTile::Asks);
    // The other one goes on.
    screen.read(Line({"left", "right"}, 2).step(7, "Touch", 0));
    QCOMPARE(screen.text("text", 0), QString("7 of 57 \u00b7 Touch"));
    QCOMPARE(screen.text("question"), QString("Is it bright?"));

    screen.type("n");
    QTRY_COMPARE_WITH_TIMEOUT(screen.text("who"), QString("left \u00b7 KP-1"), LongMs);
    QCOMPARE(screen.answers(), (QStringList{"{\"answer\":1,\"reply\":\"no\"}", "{\"shown\":2}"}));
    QCOMPARE(screen.text("others"), QString());
    QCOMPARE(screen.tiles().at(1)->asking(), FixtureTile::Nothing);
    screen.type("y");
    QTRY_VERIFY_WITH_TIMEOUT(!screen.asks(), LongMs);
    QCOMPARE(screen.answers(), QStringList{"{\"answer\":2,\"reply\":\"yes\"}"});
}

void TestScreenWindow::enterAnswersNoLook()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").ask(1, "yes/no", "Is it bright?"));
    screen.answers();
    screen.press(Qt::Key_Return);
    screen.press(Qt::Key_Enter);
    screen.press(Qt::Key_Space);
    QCOMPARE(screen.answers(), QStringList());
    QVERIFY(screen.asks());
    screen.type("n");
    QTRY_VERIFY_WITH_TIMEOUT(!screen.asks(), LongMs);
    QCOMPARE(screen.answers(), QStringList{"{\"answer\":1,\"reply\":\"no\"}"});
}

void TestScreenWindow::aSerialNumberIsScanned()
{
    Screen screen;
    screen.read(Line({}, 1).ask(1, "text", "Serial number of unit 1 of 1"));
    screen.answers();
    screen.type("KP-0042\r");
    QCOMPARE(screen.answers(), QStringList{"{\"answer\":1,\"reply\":\"KP-0042\"}"});
    QVERIFY(!screen.asks());
    // What is scanned twice answers nothing.
    screen.type("KP-0042\r");
    QCOMPARE(screen.answers(), QStringList());
}

void TestScreenWindow::aNumberThatIsScannedTwiceAnswersOneFixture()
{
    Screen screen;
    const QStringList fixtures = {"left", "right"};
    screen.read(Line(fixtures, 2)
                    .ask(1, "text", "Serial number of unit 1 of 2", 0)
                    .ask(2, "text", "Serial number of unit 2 of 2", 1));
    screen.answers();
    const int height = screen.tiles().at(0)->height();
    screen.type("KP-1\rKP-1\r");
    QCOMPARE(screen.answers(), QStringList{"{\"answer\":1,\"reply\":\"KP-1\"}"});
    QVERIFY(!screen.asks());
    QVERIFY(screen.tiles().at(0)->height() > height); // there is no gap where it was
    QCOMPARE(screen.tiles().at(0)->asking(), FixtureTile::Nothing);
    QCOMPARE(screen.tiles().at(1)->asking(), FixtureTile::Waits);
    screen.read(Line(fixtures, 2).say("question over", "\"id\":1", 0).begin(1, "KP-1", 0));
    QCOMPARE(screen.answers(), QStringList{"{\"shown\":2}"});
    QCOMPARE(screen.text("who"), QString("right"));
    QCOMPARE(screen.tiles().at(1)->asking(), FixtureTile::Asks);
    QCOMPARE(screen.window.findChild<QLineEdit *>("field")->text(), QString());
    screen.type("KP-2\r");
    QCOMPARE(screen.answers(), QStringList{"{\"answer\":2,\"reply\":\"KP-2\"}"});
}

void TestScreenWindow::aRefusedNumberIsScannedAgain()
{
    Screen screen;
    const QStringList fixtures = {"left", "right"};
    screen.read(Line(fixtures, 2)
                    .ask(1, "text", "Serial number of unit 1 of 2", 0)
                    .ask(2, "text", "Serial number of unit 2 of 2", 1));
    screen.type("KP-BAD\r");
    screen.read(Line(fixtures, 2)
                    .say("question over", "\"id\":1", 0)
                    .say("told", "\"text\":\"KP-BAD is none.\"", 0));
    QCOMPARE(screen.text("text", 0), QString("KP-BAD is none."));
    QVERIFY(!screen.asks());
    screen.read(Line(fixtures, 2).ask(3, "text", "Serial number of unit 1 of 2", 0));
    QCOMPARE(screen.text("who"), QString("left"));
    QCOMPARE(screen.text("others"), QString("1 more question"));
    screen.answers();
    screen.type("KP-1\r");
    QCOMPARE(screen.answers(), QStringList{"{\"answer\":3,\"reply\":\"KP-1\"}"});
    // The process of the unit dies.
    screen.read(Line(fixtures, 2).end(1, "error", "killed", 0));
    QCOMPARE(screen.answers(), QStringList{"{\"shown\":2}"});
    QCOMPARE(screen.text("who"), QString("right"));
}

void TestScreenWindow::aQuestionThatIsOverGoesAway()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").ask(1, "yes/no", "Is it bright?"));
    QVERIFY(screen.asks());
    screen.read(Line({}, 1).say("question over", "\"id\":1"));
    QVERIFY(!screen.asks());
}

void TestScreenWindow::escapeAsksBeforeItEnds()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").ask(1, "text", "Serial number"));
    screen.answers();
    screen.type("KP-");
    screen.press(Qt::Key_Escape);
    QVERIFY(screen.text("question").startsWith("End the run?"));
    QCOMPARE(screen.answers(), QStringList{"{\"waits\":1}"});
    screen.press(Qt::Key_Return); // neither yes nor no
    screen.press(Qt::Key_Escape);
    QVERIFY(screen.text("question").startsWith("End the run?"));
    screen.type("n");
    QTRY_COMPARE_WITH_TIMEOUT(screen.text("question"), QString("Serial number"), LongMs);
    QCOMPARE(screen.interrupted.size(), 0);
    QCOMPARE(screen.left.size(), 0);
    QCOMPARE(screen.answers(), QStringList{"{\"shown\":1}"});
}

void TestScreenWindow::theRunIsEnded_data()
{
    QTest::addColumn<QString>("way");
    QTest::newRow("Escape") << "escape";
    QTest::newRow("the window is closed") << "close";
    QTest::newRow("the button") << "button";
}

void TestScreenWindow::theRunIsEnded()
{
    QFETCH(QString, way);
    Screen screen;
    screen.read(Line({}, 1).begin(1, ""));
    if (way == "escape")
        screen.press(Qt::Key_Escape);
    else if (way == "close")
        QVERIFY(!screen.window.close());
    else
        QTest::mouseClick(screen.window.findChild<QPushButton *>("leave"), Qt::LeftButton);
    QVERIFY(screen.window.isVisible());
    screen.type("y");
    QTRY_COMPARE_WITH_TIMEOUT(screen.interrupted.size(), 1, LongMs);
    QCOMPARE(screen.text("note"), QString("The run is being ended."));
    QCOMPARE(screen.left.size(), 0); // the line writes its record first
    screen.read(Line({}, 1).end(1, "interrupted", "interrupted"));
    QCOMPARE(screen.verdict(), QString("INTERRUPTED"));
    screen.window.end();
    QCOMPARE(screen.left.size(), 1);
}

void TestScreenWindow::endingItAtOnceIsAskedForToo()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, ""));
    for (int times = 1; times <= 2; ++times) {
        screen.press(Qt::Key_Escape);
        QCOMPARE(screen.text("question").contains("at once"), times == 2);
        screen.type("y");
        QTRY_COMPARE_WITH_TIMEOUT(screen.interrupted.size(), times, LongMs);
    }
}

void TestScreenWindow::theVerdictStaysUntilTheScreenIsClosed()
{
    Screen screen;
    screen.read(
        Line({}, 1).begin(1, "").end(1, "pass", "").say("end", "\"status\":0,\"error\":\"\""));
    screen.window.end();
    QCOMPARE(screen.verdict(), QString("PASS"));
    QCOMPARE(screen.text("note"), QString("The run is over."));
    QCOMPARE(screen.window.findChild<QPushButton *>("leave")->text(), QString("Close (Esc)"));
    screen.type("y KP-0042\r"); // of a scanner that is not needed any more
    QCOMPARE(screen.left.size(), 0);
    screen.press(Qt::Key_Escape);
    QCOMPARE(screen.left.size(), 1);
    QCOMPARE(screen.interrupted.size(), 0);
}

void TestScreenWindow::nothingIsAskedAfterTheEnd()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").ask(1, "yes/no", "Is it bright?"));
    screen.window.end();
    QVERIFY(!screen.asks());
}

void TestScreenWindow::aLineThatBreaksOffIsTold()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").say("note", "\"about\":\"store\",\"text\":\"waits\""));
    QCOMPARE(screen.text("note"), QString("store: waits"));
    screen.window.end();
    QCOMPARE(screen.text("note"), QString("The run has broken off."));
    QCOMPARE(screen.window.grab().toImage().pixelColor(400, 478).name(), QString("#b3201f"));
}

void TestScreenWindow::whatCouldNotBeDoneIsTold()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").say("end", "\"status\":4,\"error\":\"the disk is full\""));
    screen.window.end();
    QCOMPARE(screen.text("note"), QString("the disk is full"));
    QCOMPARE(screen.window.grab().toImage().pixelColor(400, 478).name(), QString("#b3201f"));
}

void TestScreenWindow::theScreensOwnQuestionFits()
{
    Screen screen;
    screen.read(Line({}, 1).begin(1, "").ask(1, "yes/no", "Is it bright?"));
    screen.press(Qt::Key_Escape);
    QCOMPARE(screen.text("others"), QString("1 more question"));
    const FitLabel *question = screen.window.findChild<FitLabel *>("question");
    const FitLabel *others = screen.window.findChild<FitLabel *>("others");
    QVERIFY(!question->geometry().intersects(others->geometry()));
    QCOMPARE(question->shownLines().join(' '), question->text());
}

void TestScreenWindow::itFits_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("fixtures");
    for (const QSize &size : {QSize(800, 480), QSize(1280, 800), QSize(1920, 1080)}) {
        for (const int fixtures : {1, 2, 8, 32})
            QTest::addRow("%d fixtures on %dx%d", fixtures, size.width(), size.height())
                << size << fixtures;
    }
}

void TestScreenWindow::itFits()
{
    QFETCH(QSize, size);
    QFETCH(int, fixtures);
    Screen screen(size);
    Line line(names(fixtures), fixtures);
    for (int i = 0; i < fixtures; ++i)
        line.begin(i + 1, "KP-0042", i).step(12, LongName, i);
    line.ask(1, "yes/no", LongQuestion, fixtures - 1);
    screen.read(line);
    QCOMPARE(screen.tiles().size(), fixtures);
    const QStringList question = screen.window.findChild<FitLabel *>("question")->shownLines();
    QCOMPARE(question.join(' '), QString(LongQuestion));
    QCOMPARE(screen.window.findChild<FitLabel *>("who")->shownLines(),
             QStringList{QString("ttyUSB%1 \u00b7 KP-0042").arg(fixtures - 1)});
    // No widget covers another one or is cut off.
    QList<QWidget *> parents = screen.window.findChildren<QWidget *>();
    parents.append(&screen.window);
    for (const QWidget *parent : parents) {
        QList<QRect> places;
        for (const QObject *child : parent->children()) {
            const QWidget *widget = qobject_cast<const QWidget *>(child);
            if (widget == nullptr || !widget->isVisible() || parent->inherits("QLineEdit"))
                continue;
            QVERIFY2(parent->rect().contains(widget->geometry()), qPrintable(widget->objectName()));
            for (const QRect &other : places)
                QVERIFY2(!other.intersects(widget->geometry()), qPrintable(widget->objectName()));
            places.append(widget->geometry());
        }
    }
}

void TestScreenWindow::tilesKeepTheirPlaces()
{
    Screen screen;
    const QStringList fixtures = names(4); // with less height they would fit better in one row
    screen.read(Line(fixtures, 4));
    const auto columns = [&screen] {
        QStringList places;
        for (const FixtureTile *tile : screen.tiles())
            places.append(QString::number(tile->x()));
        return places;
    };
    const QStringList before = columns();
    screen.read(Line(fixtures, 4).ask(1, "yes/no", "Is it bright?", 3));
    QVERIFY(screen.asks());
    QCOMPARE(columns(), before);
}

void TestScreenWindow::aLongNameIsElided()
{
    Screen screen;
    Line line(names(8), 8);
    line.begin(1, "KP-0042").step(12, LongName).ask(1, "yes/no", "Is it bright?");
    screen.read(line);
    const QStringList shown = screen.tiles().at(0)->findChild<FitLabel *>("text")->shownLines();
    QVERIFY2(shown.first().startsWith("12 of 57"), qPrintable(shown.first()));
    QVERIFY2(shown.last().endsWith(QChar(0x2026)), qPrintable(shown.last()));
}

MFTOOL_TEST(TestScreenWindow, Widgets)
#include "tst_screenwindow.moc"
