#include "bench/screen/fixturetile.h"

#include "bench/screen/colours.h"
#include "bench/screen/fitlabel.h"
#include "bench/screen/verdictbox.h"

#include <QPainter>

#include <algorithm>

namespace
{

const int SmallestPx = 11; ///< smaller type cannot be read
const int NoticePx = 4;    ///< margin beside an instruction
const int TinyPx = 84;     ///< a lower tile has no room for the step

QString unitText(const FixtureView &fixture)
{
    if (fixture.unit == 0)
        return QString();
    QString text = fixture.serialNumber;
    if (text.isEmpty())
        text = QStringLiteral("Unit %1").arg(fixture.unit);
    if (fixture.attempt > 1)
        text += QStringLiteral(", attempt %1").arg(fixture.attempt);
    return text;
}

Verdict stateOf(const FixtureView &fixture)
{
    if (!fixture.outcome.isEmpty())
        return verdictOf(fixture.outcome);
    return {fixture.isTesting ? QStringLiteral("TESTING") : QStringLiteral("READY"), Sign::None,
            Colours::Testing, false};
}

double shareOf(const FixtureView &fixture)
{
    if (!fixture.isTesting)
        return -1;
    if (fixture.steps <= 0)
        return 0;
    return std::clamp((fixture.step - 1.0) / fixture.steps, 0.0, 1.0);
}

QString stepsText(const FixtureView &fixture)
{
    return QStringLiteral("%1 step%2")
        .arg(fixture.steps)
        .arg(QLatin1String(fixture.steps == 1 ? "" : "s"));
}

QString stepText(const FixtureView &fixture)
{
    if (fixture.step == 0)
        return stepsText(fixture);
    QStringList parts = {QStringLiteral("%1 of %2").arg(fixture.step).arg(fixture.steps),
                         fixture.stepName, fixture.progress};
    if (fixture.failedSteps > 0)
        parts.prepend(QStringLiteral("%1 failed").arg(fixture.failedSteps));
    parts.removeAll(QString());
    return parts.join(QStringLiteral(" \u00b7 "));
}

QString textOf(const FixtureView &fixture)
{
    if (!fixture.instruction.isEmpty())
        return fixture.instruction;
    if (!fixture.outcome.isEmpty())
        return fixture.reason.isEmpty()
                   ? stepsText(fixture) + QStringLiteral(" in %1 s").arg(fixture.seconds, 0, 'f', 1)
                   : fixture.reason;
    return fixture.isTesting ? stepText(fixture) : QString();
}

} // namespace

FixtureTile::FixtureTile(QWidget *parent)
    : QWidget(parent), m_name(new FitLabel(this)), m_serial(new FitLabel(this)),
      m_verdict(new VerdictBox(this)), m_text(new FitLabel(this))
{
    m_name->setObjectName(QStringLiteral("name"));
    m_name->setBold(true);
    m_serial->setObjectName(QStringLiteral("serial"));
    m_serial->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_verdict->setObjectName(QStringLiteral("verdict"));
    m_text->setObjectName(QStringLiteral("text"));
    m_text->setAlignment(Qt::AlignCenter);
    setFixture(FixtureView());
}

void FixtureTile::setFixture(const FixtureView &fixture)
{
    m_fixture = fixture;
    showHeading();
    m_verdict->setVerdict(stateOf(fixture), shareOf(fixture));
    m_text->setText(textOf(fixture));
    arrange();
    update();
}

void FixtureTile::setAsking(Asking asking)
{
    if (asking == m_asking)
        return;
    m_asking = asking;
    showHeading();
    update();
}

/// A single fixture has no name, so the unit takes its place.
void FixtureTile::showHeading()
{
    const QString name = m_fixture.name.isEmpty() ? unitText(m_fixture) : m_fixture.name;
    m_name->setText(m_asking == Waits ? name + QStringLiteral("  ?") : name);
    m_serial->setText(m_fixture.name.isEmpty() ? QString() : unitText(m_fixture));
}

void FixtureTile::resizeEvent(QResizeEvent *)
{
    arrange();
}

void FixtureTile::arrange()
{
    const bool isTiny = height() < TinyPx;
    m_serial->setVisible(!isTiny);
    m_text->setVisible(!isTiny);
    if (isTiny)
        arrangeTiny();
    else
        arrangeWhole();
}

void FixtureTile::arrangeWhole()
{
    const int margin = std::max(8, std::min(width(), height()) / 22);
    const QRect inner = rect().adjusted(margin + 2, margin, -margin - 2, -margin);
    const int heading = std::max(18, inner.height() / 6);
    // A unit that passed needs no reason.
    const bool isBrief = verdictOf(m_fixture.outcome).isPass;
    const int text = inner.height() * (isBrief ? 20 : 32) / 100;
    const int nameWidth = m_fixture.name.isEmpty() ? inner.width() : inner.width() * 45 / 100;
    m_name->setGeometry(inner.left(), inner.top(), nameWidth, heading);
    m_serial->setGeometry(inner.left() + nameWidth + margin, inner.top(),
                          std::max(0, inner.width() - nameWidth - margin), heading);
    m_verdict->setGeometry(inner.left(), inner.top() + heading + margin / 2, inner.width(),
                           inner.height() - heading - text - margin);
    m_text->setGeometry(inner.left() + NoticePx, inner.bottom() - text + 1,
                        inner.width() - 2 * NoticePx, text);
    m_name->setSizes(SmallestPx, heading * 3 / 4);
    m_serial->setSizes(SmallestPx, heading * 3 / 4);
    m_text->setLines(std::clamp(text / 16, 1, 4));
    m_text->setSizes(SmallestPx, std::max(12, text * (isBrief ? 50 : 36) / 100));
}

/// Only name and verdict.
void FixtureTile::arrangeTiny()
{
    const QRect inner = rect().adjusted(6, 4, -6, -4);
    const int half = inner.width() / 2;
    m_name->setGeometry(inner.left(), inner.top(), half - 4, inner.height());
    m_verdict->setGeometry(inner.left() + half, inner.top(), inner.width() - half, inner.height());
    m_name->setSizes(SmallestPx, std::max(SmallestPx, inner.height() / 2));
}

void FixtureTile::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const bool isAsking = m_asking == Asks;
    const double frame = isAsking ? 4 : 0;
    painter.setPen(isAsking ? QPen(QColor(Colours::Wanted), frame) : QPen(Qt::NoPen));
    painter.setBrush(QColor(Colours::Card));
    painter.drawRoundedRect(QRectF(rect()).adjusted(frame / 2, frame / 2, -frame / 2, -frame / 2),
                            6, 6);
    if (m_fixture.instruction.isEmpty() || !m_text->isVisible())
        return;
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(Colours::Notice));
    painter.drawRoundedRect(m_text->geometry().adjusted(-NoticePx, 0, NoticePx, 0), 4, 4);
}
