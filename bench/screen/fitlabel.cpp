#include "bench/screen/fitlabel.h"

#include "bench/screen/colours.h"

#include <QFontMetrics>
#include <QPainter>
#include <QTextLayout>

#include <algorithm>

namespace
{

QFont sized(QFont font, int px)
{
    font.setPixelSize(px);
    return font;
}

/// The lines of the text; the last one holds all the rest.
QStringList wrapped(const QString &text, const QFont &font, int width, int most)
{
    QStringList lines;
    QTextLayout layout(text, font);
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        const bool isLast = lines.size() == most - 1;
        lines.append(
            (isLast ? text.mid(line.textStart()) : text.mid(line.textStart(), line.textLength()))
                .trimmed());
        if (isLast)
            break;
    }
    layout.endLayout();
    return lines;
}

bool fits(const QStringList &lines, const QFont &font, const QSize &size)
{
    const QFontMetrics metrics(font);
    return lines.size() * metrics.height() <= size.height() &&
           std::all_of(lines.begin(), lines.end(), [&](const QString &line) {
               return metrics.horizontalAdvance(line) <= size.width();
           });
}

} // namespace

FittedText FittedText::fit(const QString &text, const QFont &font, const QSize &size, int lines,
                           int smallestPx, int largestPx)
{
    const QString plain = text.simplified();
    int good = smallestPx;
    int bad = std::max(smallestPx, largestPx) + 1;
    while (bad - good > 1) {
        const int px = (good + bad) / 2;
        const QFont tried = sized(font, px);
        if (fits(wrapped(plain, tried, size.width(), lines), tried, size))
            good = px;
        else
            bad = px;
    }
    FittedText fitted;
    fitted.font = sized(font, good);
    const QFontMetrics metrics(fitted.font);
    const int room = std::max(1, std::min(lines, size.height() / metrics.height()));
    fitted.lines = wrapped(plain, fitted.font, size.width(), room);
    for (QString &line : fitted.lines) {
        if (metrics.horizontalAdvance(line) > size.width())
            line = metrics.elidedText(line, Qt::ElideRight, size.width());
    }
    return fitted;
}

void FittedText::paint(QPainter *painter, const QRect &place, int alignment) const
{
    painter->setFont(font);
    painter->drawText(place, alignment, lines.join(QLatin1Char('\n')));
}

FitLabel::FitLabel(QWidget *parent) : QWidget(parent), m_colour(Colours::Ink) {}

void FitLabel::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    update();
}

void FitLabel::setColour(const QColor &colour)
{
    if (colour == m_colour)
        return;
    m_colour = colour;
    update();
}

void FitLabel::setBold(bool bold)
{
    m_isBold = bold;
    update();
}

void FitLabel::setAlignment(int alignment)
{
    m_alignment = alignment;
    update();
}

void FitLabel::setLines(int lines)
{
    m_lines = lines;
    update();
}

void FitLabel::setSizes(int smallestPx, int largestPx)
{
    m_smallestPx = smallestPx;
    m_largestPx = largestPx;
    update();
}

FittedText FitLabel::fitted() const
{
    QFont bold = font();
    bold.setBold(m_isBold);
    return FittedText::fit(m_text, bold, size(), m_lines, m_smallestPx, m_largestPx);
}

void FitLabel::paintEvent(QPaintEvent *)
{
    if (m_text.isEmpty())
        return;
    QPainter painter(this);
    painter.setPen(m_colour);
    fitted().paint(&painter, rect(), m_alignment);
}
