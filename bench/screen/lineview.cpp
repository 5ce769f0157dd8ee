#include "bench/screen/lineview.h"

#include "bench/screen/verdict.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <iterator>

namespace
{

QString textIn(const QJsonObject &event, const char *key)
{
    return event.value(QLatin1String(key)).toString();
}

int numberIn(const QJsonObject &event, const char *key, int otherwise = 0)
{
    return event.value(QLatin1String(key)).toInt(otherwise);
}

} // namespace

void LineView::read(const QByteArray &bytes)
{
    m_pending += bytes;
    for (auto end = m_pending.indexOf('\n'); end >= 0; end = m_pending.indexOf('\n')) {
        const QJsonDocument line = QJsonDocument::fromJson(m_pending.left(end));
        m_pending.remove(0, end + 1);
        if (line.isObject())
            take(line.object());
    }
}

void LineView::take(const QJsonObject &event)
{
    struct Row {
        const char *event;
        void (LineView::*take)(const QJsonObject &);
    };
    static const Row rows[] = {
        {"run begun", &LineView::beginRun},
        {"unit begun", &LineView::beginUnit},
        {"step started", &LineView::beginStep},
        {"progress", &LineView::noteProgress},
        {"step ended", &LineView::endStep},
        {"told", &LineView::instruct},
        {"question", &LineView::ask},
        {"question over", &LineView::withdraw},
        {"unit ended", &LineView::endUnit},
        {"summary", &LineView::sumUp},
        {"note", &LineView::tell},
        {"end", &LineView::end},
    };
    const QString name = textIn(event, "event");
    const auto row = std::find_if(std::begin(rows), std::end(rows), [&name](const Row &known) {
        return name == QLatin1String(known.event);
    });
    if (row == std::end(rows))
        return;
    (this->*row->take)(event);
    emit changed();
}

/// A fixture that was not announced is added at the end.
FixtureView &LineView::fixtureOf(const QJsonObject &event)
{
    const QString name = textIn(event, "fixture");
    for (FixtureView &fixture : m_fixtures) {
        if (fixture.name == name)
            return fixture;
    }
    FixtureView fixture;
    fixture.name = name;
    m_fixtures.append(fixture);
    return m_fixtures.last();
}

void LineView::beginRun(const QJsonObject &event)
{
    m_title = textIn(event, "title");
    m_units = numberIn(event, "units");
    const QJsonArray names = event.value(QStringLiteral("fixtures")).toArray();
    for (const QJsonValue &name : names)
        fixtureOf({{QStringLiteral("fixture"), name}});
    if (names.isEmpty())
        fixtureOf(event);
}

void LineView::beginUnit(const QJsonObject &event)
{
    m_units = numberIn(event, "units", m_units);
    FixtureView &fixture = fixtureOf(event);
    FixtureView next;
    next.name = fixture.name;
    next.unit = numberIn(event, "unit");
    next.attempt = numberIn(event, "attempt", 1);
    next.serialNumber = textIn(event, "serial_number");
    next.steps = numberIn(event, "steps");
    next.isTesting = true;
    fixture = next;
    emit wentOn(next.name);
}

void LineView::beginStep(const QJsonObject &event)
{
    FixtureView &fixture = fixtureOf(event);
    fixture.step = numberIn(event, "step");
    fixture.stepName = textIn(event, "name");
    fixture.progress.clear();
    fixture.instruction.clear();
}

void LineView::noteProgress(const QJsonObject &event)
{
    fixtureOf(event).progress = textIn(event, "text");
}

void LineView::endStep(const QJsonObject &event)
{
    FixtureView &fixture = fixtureOf(event);
    fixture.progress.clear();
    fixture.instruction.clear();
    const QString outcome = textIn(event, "outcome");
    if (outcome != QLatin1String("pass") && outcome != QLatin1String("not run"))
        ++fixture.failedSteps;
}

void LineView::instruct(const QJsonObject &event)
{
    fixtureOf(event).instruction = textIn(event, "text");
}

/// A question of an unknown kind is ignored: it could not be answered.
void LineView::ask(const QJsonObject &event)
{
    static const char *const kinds[] = {"confirm", "yes/no", "text"}; // as in Question::Kind
    const QString kind = textIn(event, "kind");
    const auto known = std::find_if(std::begin(kinds), std::end(kinds), [&kind](const char *name) {
        return kind == QLatin1String(name);
    });
    Question question;
    question.id = numberIn(event, "id");
    if (known == std::end(kinds) || question.id <= 0)
        return;
    question.kind = static_cast<Question::Kind>(known - std::begin(kinds));
    question.fixture = textIn(event, "fixture");
    question.text = textIn(event, "text");
    fixtureOf(event).instruction.clear();
    emit asked(question);
}

void LineView::withdraw(const QJsonObject &event)
{
    emit withdrawn(numberIn(event, "id"));
}

void LineView::endUnit(const QJsonObject &event)
{
    FixtureView &fixture = fixtureOf(event);
    fixture.isTesting = false;
    fixture.progress.clear();
    fixture.instruction.clear();
    fixture.outcome = textIn(event, "outcome");
    fixture.reason = textIn(event, "reason");
    fixture.seconds = event.value(QStringLiteral("record"))
                          .toObject()
                          .value(QStringLiteral("seconds"))
                          .toDouble();
    m_outcomes.insert(numberIn(event, "unit"), fixture.outcome);
    emit wentOn(fixture.name);
}

/// Units that were not tested are only in the summary. The last attempt at a unit comes last.
void LineView::sumUp(const QJsonObject &event)
{
    m_isSummedUp = true;
    const QJsonArray units = event.value(QStringLiteral("units")).toArray();
    for (const QJsonValue &unit : units)
        m_outcomes.insert(numberIn(unit.toObject(), "unit"), textIn(unit.toObject(), "outcome"));
}

void LineView::tell(const QJsonObject &event)
{
    m_note = textIn(event, "about") + QStringLiteral(": ") + textIn(event, "text");
    const QString fixture = textIn(event, "fixture");
    if (!fixture.isEmpty())
        m_note.prepend(fixture + QStringLiteral(", "));
}

void LineView::end(const QJsonObject &event)
{
    m_hasEnded = true;
    m_error = textIn(event, "error");
}

LineView::Count LineView::count() const
{
    Count count;
    count.units = std::max(m_units, static_cast<int>(m_outcomes.size()));
    for (const QString &outcome : m_outcomes) {
        if (outcome != QLatin1String("not run"))
            ++count.tested;
        if (verdictOf(outcome).isPass)
            ++count.passed;
    }
    count.counted = m_isSummedUp ? count.units : count.tested;
    return count;
}
