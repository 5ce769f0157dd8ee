#include "bench/screen/verdictbox.h"

#include "bench/screen/colours.h"
#include "bench/screen/fitlabel.h"

#include <QPainter>

#include <algorithm>

namespace
{

const int SmallestPx = 10;
const int LargestPx = 600;

/// In a square from (0, 0) to (1, 1).
void paintSign(QPainter *painter, Sign sign)
{
    painter->setPen(QPen(painter->pen().color(), 0.17, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    switch (sign) {
    case Sign::Tick: {
        const QPointF corners[] = {{0.12, 0.55}, {0.4, 0.83}, {0.88, 0.2}};
        painter->drawPolyline(corners, 3);
        break;
    }
    case Sign::Cross:
        painter->drawLine(QPointF(0.17, 0.17), QPointF(0.83, 0.83));
        painter->drawLine(QPointF(0.83, 0.17), QPointF(0.17, 0.83));
        break;
    case Sign::Exclamation:
        painter->drawLine(QPointF(0.5, 0.12), QPointF(0.5, 0.58));
        painter->drawPoint(QPointF(0.5, 0.88));
        break;
    case Sign::Bar:
        painter->drawLine(QPointF(0.17, 0.5), QPointF(0.83, 0.5));
        break;
    case Sign::None:
        break;
    }
}

} // namespace

VerdictBox::VerdictBox(QWidget *parent) : QWidget(parent) {}

void VerdictBox::setVerdict(const Verdict &verdict, double share)
{
    if (verdict.word == m_verdict.word && qFuzzyCompare(1 + share, 1 + m_share))
        return;
    m_verdict = verdict;
    m_share = share;
    update();
}

void VerdictBox::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double radius = std::min(width(), height()) * 0.06;
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_verdict.colour);
    painter.drawRoundedRect(rect(), radius, radius);
    const bool hasSign = m_verdict.sign != Sign::None;
    QRect place = rect().adjusted(width() / 20, height() / 12, -width() / 20, -height() / 12);
    if (m_share >= 0) {
        const int thickness = std::max(4, height() / 14);
        const QRect track(place.left(), place.bottom() - thickness, place.width(), thickness);
        painter.setBrush(QColor(Colours::Card));
        painter.drawRoundedRect(track, thickness / 2.0, thickness / 2.0);
        QRect done = track;
        done.setWidth(static_cast<int>(m_share * track.width()));
        painter.setBrush(QColor(Colours::Done));
        painter.drawRoundedRect(done, thickness / 2.0, thickness / 2.0);
        place.setBottom(track.top() - 1);
    }
    QFont bold = font();
    bold.setBold(true);
    painter.setPen(QColor(hasSign ? Colours::White : Colours::Ink));
    painter.setBrush(Qt::NoBrush);
    // The sign is as high as the word and gets the width of an M. Capitals do not need the
    // whole height of a line.
    FittedText word = FittedText::fit((hasSign ? QStringLiteral("M") : QString()) + m_verdict.word,
                                      bold, QSize(place.width(), place.height() * 6 / 5), 1,
                                      SmallestPx, hasSign ? LargestPx : place.height() * 2 / 3);
    word.lines = QStringList(m_verdict.word);
    const int wide = QFontMetrics(word.font).horizontalAdvance(m_verdict.word);
    const int high = hasSign ? word.font.pixelSize() * 7 / 10 : 0;
    const int gap = high / 3;
    const int left = place.left() + (place.width() - high - gap - wide) / 2;
    word.paint(&painter, QRect(left + high + gap, place.top(), wide, place.height()),
               Qt::AlignCenter | Qt::TextDontClip);
    painter.translate(left, place.center().y() - high / 2.0);
    painter.scale(high, high);
    paintSign(&painter, m_verdict.sign);
}
