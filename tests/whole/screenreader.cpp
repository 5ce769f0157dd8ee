#include "tests/whole/screenreader.h"

#include "tests/whole/patience.h"

#include <QLabel>
#include <QMap>

#include <cstdlib>
#include <limits>

namespace
{

const int barCount = 4;
/// Crosses the right end of every bar.
const int barColumn = 770;
const QRect barArea(0, 306, 800, 130);
/// Above the bar's text.
const int aboveText = 3;
/// The button, or the status line.
const QRect statusArea(0, 225, 800, 76);

const int buttonFont = 20; // px
const int statusFont = 30; // px

/// What stands out from a white ground.
typedef QList<QList<bool>> Shape;

bool isDark(QRgb pixel)
{
    return qGray(pixel) < 128;
}

bool isWhite(QRgb pixel)
{
    return qGray(pixel) > 245;
}

/// The dark pixels of @p image, cut to the smallest rectangle that holds them.
Shape shapeOf(const QImage &image)
{
    QRect box;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (isDark(image.pixel(x, y)))
                box |= QRect(x, y, 1, 1);
        }
    }
    Shape shape;
    for (int y = box.top(); y <= box.bottom(); ++y) {
        QList<bool> row;
        for (int x = box.left(); x <= box.right(); ++x)
            row.append(isDark(image.pixel(x, y)));
        shape.append(row);
    }
    return shape;
}

Shape shapeOfText(const QString &text, int pixelSize)
{
    QLabel label(text);
    label.setStyleSheet(
        QStringLiteral("background: white; color: black; font-size: %1px;").arg(pixelSize));
    label.resize(statusArea.size());
    return shapeOf(label.grab().toImage());
}

/// Every text that can be there.
const QMap<QString, Shape> &knownTexts()
{
    static const QMap<QString, Shape> texts = [] {
        QMap<QString, Shape> shapes;
        shapes.insert(QStringLiteral("Flash NAND"),
                      shapeOfText(QStringLiteral("Flash NAND"), buttonFont));
        const char *const statusTexts[] = {
            "Flashing...",         "Complete!",         "Failed: Failed to Start",
            "Failed: Crashed",     "Failed: Timed Out", "Failed: Read Error",
            "Failed: Write Error", "Failed: Unknown",   "Failed: Finished with Error"};
        for (const char *text : statusTexts)
            shapes.insert(QLatin1String(text), shapeOfText(QLatin1String(text), statusFont));
        return shapes;
    }();
    return texts;
}

bool at(const Shape &shape, int x, int y)
{
    return y >= 0 && y < shape.size() && x >= 0 && x < shape.at(y).size() && shape.at(y).at(x);
}

/// In how many pixels two shapes differ when @p a is moved.
int difference(const Shape &a, const QPoint &moved, const Shape &b)
{
    int different = 0;
    const int height = int(qMax(a.size(), b.size()));
    const int width = int(qMax(a.constFirst().size(), b.constFirst().size()));
    for (int y = -1; y <= height; ++y) {
        for (int x = -1; x <= width; ++x)
            different += at(a, x - moved.x(), y - moved.y()) != at(b, x, y) ? 1 : 0;
    }
    return different;
}

/// How much two shapes differ: 0 not at all, 1 in as many pixels as @p b has.
/// Another smoothing of the letters moves an edge by a pixel.
double difference(const Shape &a, const Shape &b)
{
    int dark = 0;
    for (const QList<bool> &row : b)
        dark += int(row.count(true));
    int least = std::numeric_limits<int>::max();
    for (int dx = -1; dx <= 1; ++dx) {
        for (int dy = -1; dy <= 1; ++dy)
            least = qMin(least, difference(a, QPoint(dx, dy), b));
    }
    return dark == 0 ? 1 : double(least) / dark;
}

} // namespace

KeypadOptions onScreen()
{
    KeypadOptions options;
    options.display.kind = KeypadDisplay::Xvfb;
    return options;
}

bool ScreenReader::findBars()
{
    m_bars.clear();
    const QImage screen = m_keypad.screen();
    if (screen.isNull())
        return false;
    // Down the column white turns to the frame and back, twice a bar.
    QList<int> frames;
    for (int y = barArea.top() + 1; y <= barArea.bottom(); ++y) {
        if (isWhite(screen.pixel(barColumn, y - 1)) && !isWhite(screen.pixel(barColumn, y)))
            frames.append(y);
    }
    if (frames.size() != 2 * barCount)
        return false;
    for (int i = 0; i < barCount; ++i) {
        QRect bar(barColumn, frames.at(2 * i) + 1, 1, frames.at(2 * i + 1) - frames.at(2 * i) - 1);
        const int y = bar.top() + aboveText;
        while (bar.left() > 0 && isWhite(screen.pixel(bar.left() - 1, y)))
            bar.setLeft(bar.left() - 1);
        while (bar.right() < screen.width() - 1 && isWhite(screen.pixel(bar.right() + 1, y)))
            bar.setRight(bar.right() + 1);
        m_bars.append(bar);
    }
    return true;
}

int ScreenReader::filled(const QImage &screen, const QRect &bar) const
{
    int count = 0;
    for (int x = bar.left(); x <= bar.right(); ++x) {
        const QRgb pixel = screen.pixel(x, bar.top() + aboveText);
        // The style's highlight is blue.
        if (qBlue(pixel) > qRed(pixel) + 30)
            ++count;
    }
    return (100 * count + bar.width() / 2) / bar.width();
}

QString ScreenReader::bars()
{
    const QImage screen = m_keypad.screen();
    QStringList percents;
    for (const QRect &bar : qAsConst(m_bars))
        percents.append(QString::number(filled(screen, bar)));
    return percents.join(QLatin1Char(' '));
}

bool ScreenReader::waitForBars(const QList<int> &percents)
{
    return m_bars.size() == percents.size() && Patience::waitUntil([&] {
               const QImage screen = m_keypad.screen();
               for (int i = 0; i < percents.size(); ++i) {
                   if (std::abs(filled(screen, m_bars.at(i)) - percents.at(i)) > 1)
                       return false;
               }
               return true;
           });
}

QString ScreenReader::status()
{
    const Shape shown = shapeOf(m_keypad.screen().copy(statusArea));
    if (shown.isEmpty())
        return QString();
    QString best = QStringLiteral("(unknown)");
    double least = 0.5; // any other text differs in more than all of its pixels
    const QMap<QString, Shape> &texts = knownTexts();
    for (auto it = texts.begin(); it != texts.end(); ++it) {
        const double found = difference(shown, it.value());
        if (found < least) {
            least = found;
            best = it.key();
        }
    }
    return best;
}

bool ScreenReader::waitForStatus(const QString &text)
{
    return Patience::waitUntil([&] { return status() == text; });
}
