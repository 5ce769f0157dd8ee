#include "bench/keypad/pictures.h"

#include <QBuffer>
#include <QHash>
#include <QPainter>
#include <QPainterPath>

namespace
{

const int width = 800;
const int height = 480;

/// The eight colours of a television test picture.
QImage bars()
{
    QImage image(width, height, QImage::Format_RGB32);
    const QRgb colours[] = {0xffffffff, 0xffffff00, 0xff00ffff, 0xff00ff00,
                            0xffff00ff, 0xffff0000, 0xff0000ff, 0xff000000};
    QPainter painter(&image);
    for (int i = 0; i < 8; ++i)
        painter.fillRect(i * width / 8, 0, width / 8, height, QColor(colours[i]));
    return image;
}

/// Sixteen steps from black to white above, white to black below.
QImage grey()
{
    QImage image(width, height, QImage::Format_RGB32);
    QPainter painter(&image);
    for (int i = 0; i < 16; ++i) {
        const int level = i * 17;
        painter.fillRect(i * width / 16, 0, width / 16, height / 2, QColor(level, level, level));
        painter.fillRect(width - (i + 1) * width / 16, height / 2, width / 16, height / 2,
                         QColor(level, level, level));
    }
    return image;
}

/// Squares of 20 pixels, the top left one black.
QImage checkerboard()
{
    QImage image(width, height, QImage::Format_RGB32);
    const int side = 20;
    QPainter painter(&image);
    for (int y = 0; y < height; y += side) {
        for (int x = 0; x < width; x += side)
            painter.fillRect(x, y, side, side, (x + y) / side % 2 == 0 ? Qt::black : Qt::white);
    }
    return image;
}

/// One colour all over, which shows dead pixels.
QImage plain(Qt::GlobalColor colour)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

/// Letters of five columns and seven rows, so that the logo looks the same
/// whatever fonts a PC has.
struct Letter {
    char character;
    const char *rows[7];
};

const Letter letters[] = {
    {'T', {"#####", "..#..", "..#..", "..#..", "..#..", "..#..", "..#.."}},
    {'A', {".###.", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {'R', {"####.", "#...#", "#...#", "####.", "#.#..", "#..#.", "#...#"}},
    {'N', {"#...#", "##..#", "#.#.#", "#..##", "#...#", "#...#", "#...#"}},
    {'W', {"#...#", "#...#", "#...#", "#.#.#", "#.#.#", "##.##", "#...#"}},
    {'I', {".###.", "..#..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'C', {".####", "#....", "#....", "#....", "#....", "#....", ".####"}},
    {'K', {"#...#", "#..#.", "#.#..", "##...", "#.#..", "#..#.", "#...#"}},
};

void drawWord(QPainter &painter, const char *word, int left, int top, int dot)
{
    for (; *word != '\0'; ++word, left += 6 * dot) {
        for (const Letter &letter : letters) {
            for (int i = 0; letter.character == *word && i < 35; ++i) {
                if (letter.rows[i / 5][i % 5] == '#')
                    painter.drawRoundedRect(left + i % 5 * dot, top + i / 5 * dot, dot - 2, dot - 2,
                                            3, 3);
            }
        }
    }
}

/// Two hills with a tarn between them, and the name.
QImage logo()
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor(16, 32, 56));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);

    QPainterPath far(QPointF(190, 270));
    far.cubicTo(290, 60, 340, 60, 450, 270);
    painter.fillPath(far, QColor(70, 110, 140));
    QPainterPath near(QPointF(360, 270));
    near.cubicTo(450, 110, 520, 110, 610, 270);
    painter.fillPath(near, QColor(110, 160, 180));
    painter.setBrush(QColor(220, 235, 240));
    painter.drawEllipse(QRectF(310, 250, 180, 26));
    painter.drawRect(QRectF(190, 284, 420, 4));

    const int dot = 10;
    drawWord(painter, "TARNWICK", (width - (8 * 6 - 1) * dot) / 2, 322, dot);
    return image;
}

} // namespace

QStringList Pictures::names()
{
    return {QStringLiteral("tarnwick.png"), QStringLiteral("bars.png"),
            QStringLiteral("grey.png"),     QStringLiteral("checkerboard.png"),
            QStringLiteral("white.png"),    QStringLiteral("black.png"),
            QStringLiteral("red.png"),      QStringLiteral("green.png"),
            QStringLiteral("blue.png")};
}

QImage Pictures::draw(const QString &name)
{
    switch (names().indexOf(name)) {
    case 0:
        return logo();
    case 1:
        return bars();
    case 2:
        return grey();
    case 3:
        return checkerboard();
    case 4:
        return plain(Qt::white);
    case 5:
        return plain(Qt::black);
    case 6:
        return plain(Qt::red);
    case 7:
        return plain(Qt::green);
    case 8:
        return plain(Qt::blue);
    default:
        return QImage();
    }
}

QByteArray Pictures::png(const QString &name)
{
    static QHash<QString, QByteArray> drawn;
    QByteArray &bytes = drawn[name];
    if (bytes.isEmpty()) {
        QBuffer buffer(&bytes);
        buffer.open(QIODevice::WriteOnly);
        draw(name).save(&buffer, "PNG");
    }
    return bytes;
}
