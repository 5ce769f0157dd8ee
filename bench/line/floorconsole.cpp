#include "bench/line/floorconsole.h"

#include "bench/common/jsonvalues.h"
#include "bench/line/recordreader.h"

#include <QJsonObject>

#include <algorithm>

#include <sys/ioctl.h>

namespace
{

const int LinesBeside = 4; ///< of the terminal, for a question and what was last said
const int AnswerWidth = 24;

} // namespace

FloorConsole::FloorConsole(int answers, FILE *out, bool isTerminal, Interrupt *interrupt)
    : m_out(out), m_isTerminal(isTerminal), m_interrupt(interrupt),
      m_console(out, isTerminal, interrupt), m_answers(answers)
{
    connect(&m_answers, SIGNAL(line(QByteArray)), SLOT(take(QByteArray)));
    connect(&m_answers, SIGNAL(closed()), SLOT(nobodyAnswers()));
}

void FloorConsole::begin(const Plan &plan, const QStringList &fixtures, int units)
{
    for (const QString &name : fixtures) {
        Row row;
        row.name = name;
        m_rows.push_back(row);
        m_nameWidth = std::max(m_nameWidth, static_cast<int>(name.size()));
    }
    winsize size = {};
    if (ioctl(fileno(m_out), TIOCGWINSZ, &size) == 0)
        m_width = size.ws_col;
    // Rows that have scrolled away could not be erased.
    if (size.ws_row > 0 && fixtures.size() + LinesBeside > size.ws_row)
        m_isTerminal = false;
    print(QStringLiteral("%1: %2 steps, %3 unit%4 at %5 fixtures")
              .arg(plan.title)
              .arg(plan.steps.size())
              .arg(units)
              .arg(QLatin1String(units == 1 ? "" : "s"))
              .arg(fixtures.size()));
}

void FloorConsole::heard(int fixture, const QJsonObject &event)
{
    const QString name = textIn(event, "event");
    Row &row = m_rows.at(static_cast<size_t>(fixture));
    if (name == QLatin1String("unit begun")) {
        row.unit = QStringLiteral("unit %1").arg(event.value(QStringLiteral("unit")).toInt());
        if (!textIn(event, "serial_number").isEmpty())
            row.unit += QLatin1Char(' ') + textIn(event, "serial_number");
        row.steps = event.value(QStringLiteral("steps")).toInt();
        row.isTesting = true;
        row.doing.clear();
        row.progress.clear();
        if (!m_isTerminal)
            log(fixture, row.unit + QStringLiteral(" begins"));
    } else if (name == QLatin1String("step started")) {
        row.progress.clear();
        row.doing = QStringLiteral("%1/%2 %3")
                        .arg(event.value(QStringLiteral("step")).toInt(), 3)
                        .arg(row.steps)
                        .arg(textIn(event, "name"));
    } else if (name == QLatin1String("progress")) {
        row.progress = textIn(event, "text");
    } else if (name == QLatin1String("step ended")) {
        stepEnded(fixture, event);
    } else if (name == QLatin1String("unit ended")) {
        unitEnded(fixture, event);
    } else if (name == QLatin1String("told")) {
        log(fixture, QStringLiteral(">> ") + textIn(event, "text"));
    } else if (name == QLatin1String("note")) {
        log(fixture, textIn(event, "about") + QStringLiteral(": ") + textIn(event, "text"));
    } else if (name == QLatin1String("question")) {
        ask(fixture, event);
    } else if (name == QLatin1String("question over")) {
        withdraw(fixture, event.value(QStringLiteral("id")).toInt());
    }
    // What is told of an answer is followed by the question that it leads to.
    if (name != QLatin1String("question over") && name != QLatin1String("told"))
        goOnAfter(fixture);
    refresh();
}

void FloorConsole::idle(int fixture)
{
    m_rows.at(static_cast<size_t>(fixture)).isTesting = false;
    withdraw(fixture, 0);
    goOnAfter(fixture);
}

void FloorConsole::told(const QString &about, const QString &text)
{
    erase();
    m_console.told(about, text);
    draw();
}

void FloorConsole::stepEnded(int fixture, const QJsonObject &event)
{
    const Outcome outcome = outcomeFromName(textIn(event, "outcome"));
    if (outcome == Outcome::Pass || outcome == Outcome::NotRun)
        return;
    log(fixture, QStringLiteral("%1 %2 step %3 \"%4\": %5")
                     .arg(m_console.shown(outcome), m_rows.at(static_cast<size_t>(fixture)).unit)
                     .arg(event.value(QStringLiteral("step")).toInt())
                     .arg(textIn(event, "name"), textIn(event, "reason")));
}

void FloorConsole::unitEnded(int fixture, const QJsonObject &event)
{
    Row &row = m_rows.at(static_cast<size_t>(fixture));
    const UnitRecord unit = recordFromJson(event.value(QStringLiteral("record")).toObject());
    row.isTesting = false;
    row.doing = outcomeName(unit.outcome).toUpper();
    row.progress.clear();
    log(fixture, QStringLiteral("%1 %2 in %3  %4")
                     .arg(m_console.shown(unit.outcome), row.unit, shownSeconds(unit.seconds()),
                          unit.reason));
}

void FloorConsole::summary(const QList<UnitRecord> &units, const QString &files)
{
    erase();
    m_rows.clear();
    m_answers.listen(false);
    m_console.summary(units, files);
}

void FloorConsole::ask(int fixture, const QJsonObject &event)
{
    Question question;
    question.fixture = fixture;
    question.id = event.value(QStringLiteral("id")).toInt();
    question.kind = textIn(event, "kind");
    question.text = textIn(event, "text");
    if (fixture == m_answered) {
        m_questions.push_front(question);
        goOnAfter(fixture);
        return;
    }
    m_questions.push_back(question);
    if (m_isAsking || m_answered >= 0)
        say(fixture, {{QStringLiteral("waits"), question.id}});
    else
        put();
}

/// The fixture has done with the line that was typed for it: others may ask.
void FloorConsole::goOnAfter(int fixture)
{
    if (fixture != m_answered)
        return;
    m_answered = -1;
    put();
}

/// Asks the next question, if there is one.
void FloorConsole::put()
{
    erase(); // rows without a question below them
    m_isAsking = !m_questions.empty();
    m_answers.listen(m_isAsking);
    if (m_isAsking) {
        m_answers.forgetTypedAhead();
        say(m_questions.front().fixture, {{QStringLiteral("shown"), m_questions.front().id}});
        if (!m_isTerminal)
            write(promptOf(m_questions.front()) + QLatin1Char('\n'));
    }
    draw();
}

/// The question on the screen is over.
void FloorConsole::close()
{
    erase();
    m_isAsking = false;
    const QStringList held = m_held;
    m_held.clear();
    for (const QString &line : held)
        write(line + QLatin1Char('\n'));
}

/// @param id  0 for all questions of the fixture
void FloorConsole::withdraw(int fixture, int id)
{
    const auto isMeant = [=](const Question &question) {
        return question.fixture == fixture && (id == 0 || question.id == id);
    };
    const bool isAsked = m_isAsking && isMeant(m_questions.front());
    m_questions.erase(std::remove_if(m_questions.begin(), m_questions.end(), isMeant),
                      m_questions.end());
    if (!isAsked)
        return;
    close();
    put();
}

QString FloorConsole::promptOf(const Question &question) const
{
    const char *ending = ":";
    if (question.kind == QLatin1String("confirm"))
        ending = "  Then press Enter:";
    else if (question.kind == QLatin1String("yes/no"))
        ending = " [y/n]";
    return QStringLiteral("  >> %1: %2%3")
        .arg(m_rows.at(static_cast<size_t>(question.fixture)).name, question.text,
             QLatin1String(ending));
}

/// The question, with room for the answer: if typing went on in another line, the rows
/// could not be redrawn meanwhile.
QString FloorConsole::shownPrompt() const
{
    const QString prompt = promptOf(m_questions.front()) + QLatin1Char(' ');
    const auto room = m_width - prompt.size() % std::max(1, m_width);
    return m_width == 0 || room >= AnswerWidth ? prompt : prompt + QStringLiteral("\n     ");
}

/// How many lines of the terminal begin after the first one.
int FloorConsole::linesAbove(const QString &text) const
{
    int lines = 0;
    const QStringList parts = text.split(QLatin1Char('\n'));
    for (const QString &part : parts)
        lines += 1 + (m_width > 0 ? static_cast<int>(part.size()) / m_width : 0);
    return lines - 1;
}

void FloorConsole::take(const QByteArray &line)
{
    const Question question = m_questions.front();
    QString reply = QString::fromUtf8(line).trimmed();
    if (question.kind == QLatin1String("confirm"))
        reply = QStringLiteral("yes");
    if (question.kind == QLatin1String("yes/no")) {
        const QString word = reply.toLower();
        reply.clear();
        if (word == QLatin1String("y") || word == QLatin1String("yes"))
            reply = QStringLiteral("yes");
        else if (word == QLatin1String("n") || word == QLatin1String("no"))
            reply = QStringLiteral("no");
    }
    // Typing may have filled lines, and Enter has moved the cursor.
    m_above =
        static_cast<int>(m_rows.size()) + 1 + linesAbove(shownPrompt() + QString::fromUtf8(line));
    close();
    if (m_isTerminal) // it stays, with its answer
        write(promptOf(question) + QLatin1Char(' ') + QString::fromUtf8(line).trimmed() +
              QLatin1Char('\n'));
    if (question.kind != QLatin1String("yes/no") || !reply.isEmpty()) {
        m_questions.pop_front();
        // Between units a question may lead to another one: a number that is refused is scanned
        // again without a look at the screen, and must not go to another fixture.
        if (!m_rows.at(static_cast<size_t>(question.fixture)).isTesting)
            m_answered = question.fixture;
        say(question.fixture,
            {{QStringLiteral("answer"), question.id}, {QStringLiteral("reply"), reply}});
    }
    if (m_answered < 0) {
        put();
        return;
    }
    m_answers.listen(false);
    draw();
}

void FloorConsole::nobodyAnswers()
{
    hangUp();
}

void FloorConsole::log(int fixture, const QString &text)
{
    print(QStringLiteral("%1  %2")
              .arg(m_rows.at(static_cast<size_t>(fixture)).name, -m_nameWidth)
              .arg(text));
}

void FloorConsole::print(const QString &text)
{
    if (m_isAsking && m_isTerminal) {
        m_held.append(text);
        return;
    }
    erase();
    write(text + QLatin1Char('\n'));
    draw();
}

void FloorConsole::write(const QString &text)
{
    std::fputs(text.toUtf8().constData(), m_out);
    flush();
}

void FloorConsole::flush()
{
    if (m_interrupt != nullptr)
        m_interrupt->flush(m_out);
    else
        std::fflush(m_out);
}

QString FloorConsole::shown(const Row &row) const
{
    const QString text = QStringLiteral("%1  %2  %3  %4")
                             .arg(row.name, -m_nameWidth)
                             .arg(row.unit, row.doing, row.progress)
                             .trimmed();
    return m_width > 0 ? text.left(m_width - 1) : text;
}

void FloorConsole::writeRows()
{
    for (const Row &row : m_rows)
        std::fprintf(m_out, "\r%s\033[K\n", shown(row).toUtf8().constData());
}

void FloorConsole::erase()
{
    if (!m_isDrawn)
        return;
    std::fprintf(m_out, "\r\033[%dA\033[J", m_above);
    m_isDrawn = false;
}

void FloorConsole::draw()
{
    if (!m_isTerminal || m_isDrawn || m_rows.empty())
        return;
    m_isDrawn = true;
    m_above = static_cast<int>(m_rows.size());
    writeRows();
    if (m_isAsking) {
        m_above += linesAbove(shownPrompt());
        std::fputs(shownPrompt().toUtf8().constData(), m_out);
    }
    flush();
}

/// Shows what the fixtures are doing; what is being typed stays where it is.
void FloorConsole::refresh()
{
    if (!m_isDrawn)
        return;
    std::fprintf(m_out, "\0337\033[%dA", m_above);
    writeRows();
    std::fputs("\0338", m_out);
    flush();
}
