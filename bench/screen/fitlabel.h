/// Text in the largest type that fits its place, to be read from two metres. It is wrapped
/// into a few lines, and elided if even the smallest type does not fit.
#ifndef BENCH_SCREEN_FITLABEL_H
#define BENCH_SCREEN_FITLABEL_H

#include <QColor>
#include <QStringList>
#include <QWidget>

class QPainter;

/// A text and the font in which it fits a rectangle.
struct FittedText {
    QFont font;
    QStringList lines;

    /// @param font   its size does not matter
    /// @param lines  at most so many
    static FittedText fit(const QString &text, const QFont &font, const QSize &size, int lines,
                          int smallestPx, int largestPx);
    void paint(QPainter *painter, const QRect &place, int alignment) const;
};

class FitLabel : public QWidget
{
    Q_OBJECT

public:
    explicit FitLabel(QWidget *parent = nullptr);

    QString text() const { return m_text; }
    void setText(const QString &text);
    void setColour(const QColor &colour);
    void setBold(bool bold);
    void setAlignment(int alignment);
    /// @param lines  at most so many
    void setLines(int lines);
    void setSizes(int smallestPx, int largestPx);
    /// What is shown, line by line; an elided line ends with "…".
    QStringList shownLines() const { return fitted().lines; }

    QSize sizeHint() const override { return {0, 0}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    FittedText fitted() const;

    QString m_text;
    QColor m_colour;
    bool m_isBold = false;
    int m_alignment = Qt::AlignLeft | Qt::AlignVCenter;
    int m_lines = 1;
    int m_smallestPx = 12;
    int m_largestPx = 48;
};

#endif
