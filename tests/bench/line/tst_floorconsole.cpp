#include "bench/line/floorconsole.h"

#include "tests/bench/line/otherside.h"
#include "tests/bench/line/samplerecord.h"
#include "tests/support/testprogram.h"

#include <QJsonDocument>
#include <QTest>

#include <cctype>
#include <tuple>

#include <poll.h>
#include <pty.h>
#include <unistd.h>

namespace
{

const int LongMs = 60000;

Plan samplePlan()
{
    Plan plan;
    plan.title = QStringLiteral("Test of units");
    for (const char *name : {"Volts", "Light"}) {
        Plan::Step step;
        step.name = QString::fromLatin1(name);
        plan.steps.append(step);
    }
    return plan;
}

QJsonObject json(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

const QStringList Names = {QStringLiteral("left"), QStringLiteral("the right")};

/// What the console told the fixtures: "0 {...}".
class Said
{
public:
    explicit Said(FloorConsole *console)
    {
        console->say = [this](int fixture, const QJsonObject &line) {
            lines.append(QByteArray::number(fixture) + ' ' +
                         QJsonDocument(line).toJson(QJsonDocument::Compact));
        };
        console->hangUp = [this] { ++hangUps; };
    }

    QList<QByteArray> lines;
    int hangUps = 0;
};

/// Output to a file, answers from a program.
struct OnPaper : OtherSide {
    FloorConsole console{answers(), questions(), false};
    Said said{&console};

    OnPaper() { console.begin(samplePlan(), Names, 3); }
};

/// Without spaces at the ends of lines.
QStringList trimmed(QStringList lines)
{
    for (QString &line : lines) {
        while (line.endsWith(QLatin1Char(' ')))
            line.chop(1);
    }
    return lines;
}

/// A terminal with what a person sees on it, and types there.
class Screen
{
public:
    Screen(unsigned short rows, unsigned short columns) : m_columns(columns)
    {
        winsize size = {rows, columns, 0, 0};
        if (openpty(&m_keyboard, &m_terminal, nullptr, nullptr, &size) != 0)
            qFatal("no terminal");
        m_out = fdopen(dup(m_terminal), "w");
    }
    ~Screen()
    {
        std::fclose(m_out);
        close(m_terminal);
        close(m_keyboard);
    }
    Q_DISABLE_COPY(Screen)

    int terminal() const { return m_terminal; }
    FILE *out() const { return m_out; }

    void type(const QByteArray &text) const
    {
        if (write(m_keyboard, text.constData(), static_cast<size_t>(text.size())) != text.size())
            qFatal("cannot type");
    }

    QStringList shown()
    {
        QCoreApplication::processEvents();
        char bytes[4096];
        pollfd output = {m_keyboard, POLLIN, 0};
        while (poll(&output, 1, 0) > 0) {
            const ssize_t count = read(m_keyboard, bytes, sizeof bytes);
            if (count <= 0)
                break;
            m_unread.append(bytes, static_cast<int>(count));
        }
        while (takeOne()) {
        }
        QStringList lines;
        for (const QByteArray &line : m_lines)
            lines.append(QString::fromLatin1(line));
        lines = trimmed(lines);
        while (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        return lines;
    }

private:
    /// A character, or an order to the terminal. @return false when there is no whole one
    bool takeOne()
    {
        if (m_unread.isEmpty() || (m_unread.at(0) == '\033' && m_unread.size() < 2))
            return false;
        int length = 1;
        if (m_unread.at(0) != '\033') {
            put(m_unread.at(0));
        } else if (m_unread.at(1) == '7' || m_unread.at(1) == '8') {
            length = 2;
            if (m_unread.at(1) == '7')
                m_saved = {m_row, m_column};
            else
                std::tie(m_row, m_column) = m_saved;
        } else {
            length = 2;
            while (length < m_unread.size() && !isalpha(m_unread.at(length)))
                ++length;
            if (length == m_unread.size())
                return false;
            obey(m_unread.at(length), m_unread.mid(2, length - 2).toInt());
            ++length;
        }
        m_unread.remove(0, length);
        return true;
    }

    void put(char character)
    {
        if (character == '\r') {
            m_column = 0;
        } else if (character == '\n') {
            ++m_row;
        } else {
            if (m_column == m_columns) {
                ++m_row;
                m_column = 0;
            }
            line(m_row).replace(m_column++, 1, QByteArray(1, character));
        }
    }

    void obey(char order, int number)
    {
        if (order == 'A') {
            m_row -= number;
            if (m_row < 0)
                qFatal("above the screen");
        } else if (order == 'K') {
            line(m_row).truncate(m_column);
        } else if (order == 'J') {
            line(m_row).truncate(m_column);
            m_lines = m_lines.mid(0, m_row + 1);
        }
    }

    QByteArray &line(int row)
    {
        while (m_lines.size() <= row)
            m_lines.append(QByteArray());
        QByteArray &line = m_lines[row];
        if (line.size() < m_column)
            line = line.leftJustified(m_column);
        return line;
    }

    const int m_columns;
    int m_keyboard = -1;
    int m_terminal = -1;
    FILE *m_out = nullptr;
    QByteArray m_unread;
    QList<QByteArray> m_lines;
    int m_row = 0;
    int m_column = 0;
    std::pair<int, int> m_saved;
};

/// Everything on one terminal.
struct OnScreen : Screen {
    FloorConsole console{terminal(), out(), true};
    Said said{&console};

    explicit OnScreen(unsigned short rows = 24, unsigned short columns = 80) : Screen(rows, columns)
    {
        console.begin(samplePlan(), Names, 3);
    }
};

} // namespace

#define TRY_SHOWN(screen, ...)                                                                     \
    QTRY_VERIFY2_WITH_TIMEOUT((screen).shown() == trimmed(QStringList(__VA_ARGS__)),               \
                              qPrintable((screen).shown().join(QLatin1Char('\n'))), LongMs)

class TestFloorConsole : public QObject
{
    Q_OBJECT

private slots:
    void writesALineForWhatAFileNeeds();
    void asksOneQuestionAfterAnother();
    void takesAnswersAsTheyAreMeant_data();
    void takesAnswersAsTheyAreMeant();
    void asksTheSameFixtureAgainFirst();
    void asksOthersOnceAFixtureIsIdle();
    void withdrawsQuestions();
    void forgetsAFixtureThatIsIdle();
    void tellsThatNobodyAnswers();
    void noticesThatNobodyReads();
    void hasARowForEachFixture();
    void keepsWhatIsBeingTyped();
    void cutsRowsAtTheEdge();
    void erasesAQuestionOfTwoLines();
    void leavesRoomForTheAnswer();
    void hasNoRowsWhereTheyWouldScrollAway();
};

void TestFloorConsole::writesALineForWhatAFileNeeds()
{
    OnPaper paper;
    paper.console.heard(0, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    paper.console.heard(
        1, json(R"({"event":"unit begun","unit":2,"steps":2,"serial_number":"KP-2"})"));
    paper.console.heard(0, json(R"({"event":"step started","step":1,"name":"Volts"})"));
    paper.console.heard(0, json(R"({"event":"progress","text":"12 %"})"));
    for (const char *outcome : {"pass", "not run", "fail"})
        paper.console.heard(0, {{QStringLiteral("event"), QStringLiteral("step ended")},
                                {QStringLiteral("step"), 1},
                                {QStringLiteral("name"), QStringLiteral("Volts")},
                                {QStringLiteral("outcome"), QString::fromLatin1(outcome)},
                                {QStringLiteral("reason"), QStringLiteral("too low")}});
    UnitRecord record = sampleRecord();
    record.conclude();
    paper.console.heard(0, {{QStringLiteral("event"), QStringLiteral("unit ended")},
                            {QStringLiteral("record"), toJson(record)}});
    paper.console.heard(1, json(R"({"event":"told","text":"Touch it."})"));
    paper.console.heard(1, json(R"({"event":"note","about":"after","text":"no paper"})"));
    paper.console.told(QStringLiteral("store"), QStringLiteral("there"));
    QCOMPARE(paper.heard(),
             QByteArray("Test of units: 2 steps, 3 units at 2 fixtures\n"
                        "left       unit 1 begins\n"
                        "the right  unit 2 KP-2 begins\n"
                        "left       FAIL        unit 1 step 1 \"Volts\": too low\n"
                        "left       ERROR       unit 1 in 12.3 s  step 4 \"Died\": the "
                        "tool crashed\n"
                        "the right  >> Touch it.\n"
                        "the right  after: no paper\n"
                        "Store:   there\n"));
}

void TestFloorConsole::asksOneQuestionAfterAnother()
{
    OnPaper paper;
    paper.console.heard(1, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    paper.console.heard(1, json(R"({"event":"question","id":7,"kind":"yes/no","text":"Lit?"})"));
    paper.console.heard(0, json(R"({"event":"question","id":1,"kind":"confirm","text":"Do."})"));
    QCOMPARE(paper.said.lines, (QList<QByteArray>{"1 {\"shown\":7}", "0 {\"waits\":1}"}));
    QVERIFY(paper.heard().endsWith("\n  >> the right: Lit? [y/n]\n"));
    paper.say("y\n");
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.size(), 4, LongMs);
    QCOMPARE(paper.said.lines.at(2), QByteArray("1 {\"answer\":7,\"reply\":\"yes\"}"));
    QCOMPARE(paper.said.lines.at(3), QByteArray("0 {\"shown\":1}"));
    QVERIFY(paper.heard().endsWith("\n  >> left: Do.  Then press Enter:\n"));
}

void TestFloorConsole::takesAnswersAsTheyAreMeant_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("typed");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("prompts");
    const auto row = [](const char *name, const char *kind, const char *typed, const char *reply,
                        int prompts) {
        QTest::newRow(name) << QString::fromLatin1(kind) << QByteArray(typed) << QByteArray(reply)
                            << prompts;
    };
    row("Enter", "confirm", "\n", "yes", 1);
    row("a word and Enter", "confirm", "done\n", "yes", 1);
    row("y", "yes/no", "y\n", "yes", 1);
    row("No", "yes/no", " No \n", "no", 1);
    row("Enter alone does not answer", "yes/no", "\ny\n", "yes", 2);
    row("perhaps does not answer", "yes/no", "perhaps\nn\n", "no", 2);
    row("what a scanner sends", "text", " KP-0042 \r\n", "KP-0042", 1);
    row("nothing", "text", "\n", "", 1);
    row("not only ASCII", "text", "J\xc3\xb6rg\n", "J\xc3\xb6rg", 1);
}

void TestFloorConsole::takesAnswersAsTheyAreMeant()
{
    QFETCH(QString, kind);
    QFETCH(QByteArray, typed);
    QFETCH(QByteArray, reply);
    QFETCH(int, prompts);
    OnPaper paper;
    paper.console.heard(0, {{QStringLiteral("event"), QStringLiteral("question")},
                            {QStringLiteral("id"), 1},
                            {QStringLiteral("kind"), kind},
                            {QStringLiteral("text"), QStringLiteral("Well")}});
    paper.say(typed);
    const QByteArray answer = "0 {\"answer\":1,\"reply\":\"" + reply + "\"}";
    QTRY_VERIFY_WITH_TIMEOUT(paper.said.lines.contains(answer), LongMs);
    QCOMPARE(paper.heard().count("  >> left: Well"), prompts);
}

/// Who scans a number again that was refused does not look whose turn it is.
void TestFloorConsole::asksTheSameFixtureAgainFirst()
{
    OnPaper paper;
    paper.console.heard(0, json(R"({"event":"question","id":1,"kind":"text","text":"Number"})"));
    paper.console.heard(1, json(R"({"event":"question","id":1,"kind":"text","text":"Other"})"));
    paper.say("XX\nn\nKP-1\nKP-2\n");
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.last(),
                              QByteArray("0 {\"answer\":1,\"reply\":\"XX\"}"), LongMs);
    paper.console.heard(0, json(R"({"event":"question over","id":1})"));
    paper.console.heard(0, json(R"({"event":"told","text":"XX is none."})"));
    QVERIFY(!paper.heard().contains("Other"));
    paper.console.heard(0, json(R"({"event":"question","id":2,"kind":"yes/no","text":"Again?"})"));
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.last(),
                              QByteArray("0 {\"answer\":2,\"reply\":\"no\"}"), LongMs);
    paper.console.heard(0, json(R"({"event":"question over","id":2})"));
    paper.console.heard(0, json(R"({"event":"question","id":3,"kind":"text","text":"Number"})"));
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.last(),
                              QByteArray("0 {\"answer\":3,\"reply\":\"KP-1\"}"), LongMs);
    paper.console.heard(0, json(R"({"event":"question over","id":3})"));
    QVERIFY(!paper.heard().contains("Other"));
    paper.console.heard(0, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.last(),
                              QByteArray("1 {\"answer\":1,\"reply\":\"KP-2\"}"), LongMs);
    QVERIFY(paper.heard().contains("\n  >> the right: Other:\n"));
}

void TestFloorConsole::asksOthersOnceAFixtureIsIdle()
{
    OnPaper paper;
    paper.console.heard(0, json(R"({"event":"question","id":1,"kind":"text","text":"Number"})"));
    paper.say("KP-1\n");
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.last(),
                              QByteArray("0 {\"answer\":1,\"reply\":\"KP-1\"}"), LongMs);
    paper.console.heard(1, json(R"({"event":"question","id":1,"kind":"text","text":"Other"})"));
    QCOMPARE(paper.said.lines.last(), QByteArray("1 {\"waits\":1}"));
    paper.console.idle(0);
    QCOMPARE(paper.said.lines.last(), QByteArray("1 {\"shown\":1}"));
}

void TestFloorConsole::withdrawsQuestions()
{
    OnPaper paper;
    for (const char *question : {R"({"event":"question","id":1,"kind":"text","text":"One"})",
                                 R"({"event":"question","id":2,"kind":"text","text":"Two"})",
                                 R"({"event":"question","id":3,"kind":"text","text":"Three"})"})
        paper.console.heard(0, json(question));
    // Of another fixture, of one that waits, of the one that is asked.
    paper.console.heard(1, json(R"({"event":"question over","id":1})"));
    paper.console.heard(0, json(R"({"event":"question over","id":2})"));
    QVERIFY(!paper.said.lines.contains("0 {\"shown\":3}"));
    paper.console.heard(0, json(R"({"event":"question over","id":1})"));
    QVERIFY(paper.said.lines.contains("0 {\"shown\":3}"));
    QVERIFY(!paper.heard().contains("Two"));
}

void TestFloorConsole::forgetsAFixtureThatIsIdle()
{
    OnPaper paper;
    for (const char *question : {R"({"event":"question","id":1,"kind":"text","text":"One"})",
                                 R"({"event":"question","id":2,"kind":"text","text":"Two"})"})
        paper.console.heard(0, json(question));
    paper.console.heard(1, json(R"({"event":"question","id":1,"kind":"text","text":"Mine"})"));
    paper.console.idle(0);
    QVERIFY(paper.heard().endsWith("\n  >> the right: Mine:\n"));
    QVERIFY(!paper.heard().contains("Two"));
    paper.say("answer\n");
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.lines.last(),
                              QByteArray("1 {\"answer\":1,\"reply\":\"answer\"}"), LongMs);
}

void TestFloorConsole::tellsThatNobodyAnswers()
{
    OnPaper paper;
    paper.hangUp();
    paper.console.heard(0, json(R"({"event":"question","id":1,"kind":"text","text":"One"})"));
    QTRY_COMPARE_WITH_TIMEOUT(paper.said.hangUps, 1, LongMs);
}

void TestFloorConsole::noticesThatNobodyReads()
{
    OtherSide other;
    int ends[2] = {-1, -1};
    QCOMPARE(pipe(ends), 0);
    FILE *out = fdopen(ends[1], "w");
    close(ends[0]);
    Interrupt interrupt;
    interrupt.followSignals(); // the pipe's signal would end the test
    FloorConsole console(other.answers(), out, false, &interrupt);
    console.begin(samplePlan(), Names, 2);
    QCOMPARE(interrupt.reason(), QStringLiteral("interrupted: nobody reads the output"));
    std::fclose(out);
}

void TestFloorConsole::hasARowForEachFixture()
{
    OnScreen screen;
    const QString first = QStringLiteral("Test of units: 2 steps, 3 units at 2 fixtures");
    screen.console.heard(0, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    screen.console.heard(1, json(R"({"event":"unit begun","unit":2,"steps":2})"));
    screen.console.heard(0, json(R"({"event":"step started","step":1,"name":"Volts"})"));
    screen.console.heard(0, json(R"({"event":"progress","text":"12 %"})"));
    TRY_SHOWN(screen, {first, QStringLiteral("left       unit 1    1/2 Volts  12 %"),
                       QStringLiteral("the right  unit 2")});
    screen.console.heard(1, json(R"({"event":"step started","step":2,"name":"Light"})"));
    screen.console.heard(1, json(R"({"event":"step ended","step":2,"name":"Light",)"
                                 R"("outcome":"time-out","reason":"no answer"})"));
    UnitRecord record = sampleRecord();
    record.steps.clear();
    record.outcome = Outcome::Pass;
    record.ended = true;
    screen.console.heard(0, {{QStringLiteral("event"), QStringLiteral("unit ended")},
                             {QStringLiteral("record"), toJson(record)}});
    TRY_SHOWN(screen,
              {first, QStringLiteral("the right  TIME-OUT    unit 2 step 2 \"Light\": no answer"),
               QStringLiteral("left       PASS        unit 1 in 12.3 s"),
               QStringLiteral("left       unit 1  PASS"),
               QStringLiteral("the right  unit 2    2/2 Light")});
    screen.console.told(QStringLiteral("store"), QStringLiteral("there"));
    TRY_SHOWN(screen,
              {first, QStringLiteral("the right  TIME-OUT    unit 2 step 2 \"Light\": no answer"),
               QStringLiteral("left       PASS        unit 1 in 12.3 s"),
               QStringLiteral("Store:   there"), QStringLiteral("left       unit 1  PASS"),
               QStringLiteral("the right  unit 2    2/2 Light")});
}

/// Rows change meanwhile; verdicts wait until the line is typed.
void TestFloorConsole::keepsWhatIsBeingTyped()
{
    OnScreen screen;
    const QString first = QStringLiteral("Test of units: 2 steps, 3 units at 2 fixtures");
    screen.console.heard(0, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    screen.console.heard(0, json(R"({"event":"question","id":1,"kind":"text","text":"Number"})"));
    TRY_SHOWN(screen, {first, QStringLiteral("left       unit 1"), QStringLiteral("the right"),
                       QStringLiteral("  >> left: Number:")});
    screen.type("KP");
    TRY_SHOWN(screen, {first, QStringLiteral("left       unit 1"), QStringLiteral("the right"),
                       QStringLiteral("  >> left: Number: KP")});
    screen.console.heard(1, json(R"({"event":"unit begun","unit":2,"steps":2})"));
    screen.console.heard(1, json(R"({"event":"told","text":"Touch it."})"));
    TRY_SHOWN(screen,
              {first, QStringLiteral("left       unit 1"), QStringLiteral("the right  unit 2"),
               QStringLiteral("  >> left: Number: KP")});
    screen.type("-1\n");
    TRY_SHOWN(screen, {first, QStringLiteral("the right  >> Touch it."),
                       QStringLiteral("  >> left: Number: KP-1"),
                       QStringLiteral("left       unit 1"), QStringLiteral("the right  unit 2")});
    QCOMPARE(screen.said.lines.last(), QByteArray("0 {\"answer\":1,\"reply\":\"KP-1\"}"));
}

void TestFloorConsole::cutsRowsAtTheEdge()
{
    OnScreen screen(24, 50);
    screen.console.heard(0, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    screen.console.heard(
        0, json(R"({"event":"step started","step":1,"name":"A name that is much too long"})"));
    TRY_SHOWN(screen, {QStringLiteral("Test of units: 2 steps, 3 units at 2 fixtures"),
                       QStringLiteral("left       unit 1    1/2 A name that is much too"),
                       QStringLiteral("the right")});
}

void TestFloorConsole::erasesAQuestionOfTwoLines()
{
    OnScreen screen(24, 32);
    screen.console.heard(
        0, json(R"({"event":"question","id":1,"kind":"text","text":"The number on the label"})"));
    const QStringList first = {QStringLiteral("Test of units: 2 steps, 3 units "),
                               QStringLiteral("at 2 fixtures")};
    const QStringList rows = {QStringLiteral("left"), QStringLiteral("the right")};
    const QStringList question = {QStringLiteral("  >> left: The number on the lab"),
                                  QStringLiteral("el:")};
    TRY_SHOWN(screen, first + rows + question);
    // What is typed may fill a third one.
    screen.type("KP-00000000000000000000000001");
    const QStringList answered = {
        question.first(), QStringLiteral("el: KP-0000000000000000000000000"), QStringLiteral("1")};
    TRY_SHOWN(screen, first + rows + answered);
    screen.type("\n");
    TRY_SHOWN(screen, first + answered + rows);
}

/// What is typed must not reach the edge: rows could not be drawn again meanwhile.
void TestFloorConsole::leavesRoomForTheAnswer()
{
    OnScreen screen(24, 50);
    screen.console.heard(
        0, json(R"({"event":"question","id":1,"kind":"text","text":"The number on the label"})"));
    const QStringList first = {QStringLiteral("Test of units: 2 steps, 3 units at 2 fixtures")};
    TRY_SHOWN(screen, first + QStringList({QStringLiteral("left"), QStringLiteral("the right"),
                                           QStringLiteral("  >> left: The number on the label:")}));
    screen.type("KP-000000000001");
    TRY_SHOWN(screen, first + QStringList({QStringLiteral("left"), QStringLiteral("the right"),
                                           QStringLiteral("  >> left: The number on the label:"),
                                           QStringLiteral("     KP-000000000001")}));
    screen.console.heard(1, json(R"({"event":"unit begun","unit":2,"steps":2})"));
    TRY_SHOWN(screen,
              first + QStringList({QStringLiteral("left"), QStringLiteral("the right  unit 2"),
                                   QStringLiteral("  >> left: The number on the label:"),
                                   QStringLiteral("     KP-000000000001")}));
    screen.type("\n");
    TRY_SHOWN(screen, first + QStringList({QStringLiteral("  >> left: The number on the label: "
                                                          "KP-00000000000"),
                                           QStringLiteral("1"), QStringLiteral("left"),
                                           QStringLiteral("the right  unit 2")}));
}

void TestFloorConsole::hasNoRowsWhereTheyWouldScrollAway()
{
    OnScreen screen(5, 80);
    screen.console.heard(0, json(R"({"event":"unit begun","unit":1,"steps":2})"));
    screen.console.heard(0, json(R"({"event":"step started","step":1,"name":"Volts"})"));
    TRY_SHOWN(screen, {QStringLiteral("Test of units: 2 steps, 3 units at 2 fixtures"),
                       QStringLiteral("left       unit 1 begins")});
}

MFTOOL_TEST(TestFloorConsole, EventLoop)
#include "tst_floorconsole.moc"
