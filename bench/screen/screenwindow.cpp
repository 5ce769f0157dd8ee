#include "bench/screen/screenwindow.h"

#include "bench/screen/colours.h"
#include "bench/screen/fitlabel.h"
#include "bench/screen/fixturetile.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QPushButton>

#include <algorithm>

namespace
{

const char *const LeaveStyle =
    "QPushButton { background: #44545f; color: white; border: none; border-radius: 4px; }"
    "QPushButton:pressed { background: #3b6ea0; }";

const double TileShape = 1.3; ///< width to height of a tile that is filled best

int headerHeight(int height)
{
    return std::max(34, height / 11);
}

int footerHeight(int height)
{
    return std::max(24, height / 17);
}

/// The number of columns that makes the tiles largest. It does not depend on whether there is
/// a question: tiles that change places would be mistaken for one another.
int columnsFor(int tiles, const QSize &size)
{
    int best = 1;
    double largest = 0;
    for (int columns = 1; columns <= tiles; ++columns) {
        const int rows = (tiles + columns - 1) / columns;
        const double side =
            std::min(size.width() / columns / TileShape, 1.0 * size.height() / rows);
        if (side <= largest)
            continue;
        largest = side;
        best = columns;
    }
    return best;
}

QString countText(const LineView::Count &count)
{
    if (count.units <= 1)
        return QString();
    QStringList parts = {QStringLiteral("%1 of %2 tested").arg(count.tested).arg(count.units)};
    if (count.counted > 0)
        parts +=
            {QStringLiteral("%1 passed").arg(count.passed),
             QStringLiteral("yield %1 %").arg(100.0 * count.passed / count.counted, 0, 'f', 1)};
    return parts.join(QStringLiteral(" \u00b7 "));
}

FitLabel *labelOn(QWidget *parent, const char *name, int alignment)
{
    FitLabel *label = new FitLabel(parent);
    label->setObjectName(QLatin1String(name));
    label->setColour(Colours::White);
    label->setAlignment(alignment | Qt::AlignVCenter);
    return label;
}

} // namespace

ScreenWindow::ScreenWindow(const Pauses &pauses, QWidget *parent)
    : QWidget(parent), m_questions(pauses.holdMs), m_title(labelOn(this, "title", Qt::AlignLeft)),
      m_count(labelOn(this, "count", Qt::AlignRight)), m_leave(new QPushButton(this)),
      m_note(labelOn(this, "note", Qt::AlignRight)), m_panel(new QuestionPanel(pauses, this))
{
    setWindowTitle(QStringLiteral("bench line"));
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(480, 320);
    m_title->setBold(true);
    m_leave->setObjectName(QStringLiteral("leave"));
    m_leave->setFocusPolicy(Qt::NoFocus);
    m_leave->setStyleSheet(QLatin1String(LeaveStyle));
    m_panel->hide();
    connect(&m_view, SIGNAL(changed()), SLOT(refresh()));
    connect(&m_view, SIGNAL(asked(Question)), &m_questions, SLOT(ask(Question)));
    connect(&m_view, SIGNAL(withdrawn(int)), &m_questions, SLOT(withdraw(int)));
    connect(&m_view, SIGNAL(wentOn(QString)), &m_questions, SLOT(goOnAfter(QString)));
    connect(&m_questions, SIGNAL(said(QJsonObject)), SIGNAL(said(QJsonObject)));
    connect(&m_questions, SIGNAL(decided(QString)), SLOT(decide(QString)));
    connect(&m_questions, SIGNAL(turned()), SLOT(turn()));
    connect(&m_questions, SIGNAL(changed()), SLOT(countQuestions()));
    connect(m_leave, SIGNAL(clicked()), SLOT(leave()));
    connect(m_panel, &QuestionPanel::answered, &m_questions, &Questions::answer);
    refresh();
}

void ScreenWindow::read(const QByteArray &bytes)
{
    m_view.read(bytes);
}

void ScreenWindow::end()
{
    m_isRunning = false;
    m_questions.clear();
    refresh();
    if (m_isInterrupted)
        emit left();
}

void ScreenWindow::refresh()
{
    m_title->setText(m_view.title());
    m_count->setText(countText(m_view.count()));
    m_note->setText(footerText());
    m_leave->setText(m_isRunning ? QStringLiteral("End the run (Esc)")
                                 : QStringLiteral("Close (Esc)"));
    refreshTiles();
    update();
}

/// Whether something other than a unit has failed.
bool ScreenWindow::isTrouble() const
{
    return !m_view.error().isEmpty() || (!m_isRunning && !m_view.hasEnded());
}

QString ScreenWindow::footerText() const
{
    if (!m_view.error().isEmpty())
        return m_view.error();
    if (isTrouble())
        return QStringLiteral("The run has broken off.");
    if (m_isRunning && m_isInterrupted)
        return QStringLiteral("The run is being ended.");
    if (m_isRunning || !m_view.note().isEmpty())
        return m_view.note();
    return QStringLiteral("The run is over.");
}

void ScreenWindow::refreshTiles()
{
    const QList<FixtureView> &fixtures = m_view.fixtures();
    const bool isNew = m_tiles.size() != fixtures.size();
    while (m_tiles.size() < fixtures.size()) {
        m_tiles.append(new FixtureTile(this));
        m_tiles.last()->show();
    }
    for (int i = 0; i < m_tiles.size(); ++i) {
        const FixtureView &fixture = fixtures.at(i);
        FixtureTile::Asking asking = FixtureTile::Nothing;
        if (m_questions.isOpenAt(fixture.name))
            asking = isAskedAt(fixture.name) ? FixtureTile::Asks : FixtureTile::Waits;
        m_tiles.at(i)->setFixture(fixture);
        m_tiles.at(i)->setAsking(asking);
    }
    if (isNew)
        arrange();
}

/// Whether the question that is shown is of this fixture.
bool ScreenWindow::isAskedAt(const QString &fixture) const
{
    return m_questions.isAnyShown() && m_questions.first().id != 0 &&
           m_questions.first().fixture == fixture;
}

QString ScreenWindow::whoOf(const Question &question) const
{
    for (const FixtureView &fixture : m_view.fixtures()) {
        if (question.id != 0 && fixture.name == question.fixture && !fixture.name.isEmpty())
            return fixture.isTesting && !fixture.serialNumber.isEmpty()
                       ? fixture.name + QStringLiteral(" \u00b7 ") + fixture.serialNumber
                       : fixture.name;
    }
    return QString();
}

void ScreenWindow::turn()
{
    if (m_questions.isAnyShown()) {
        m_panel->ask(m_questions.first(), whoOf(m_questions.first()));
    } else {
        m_panel->hide();
        setFocus();
    }
    arrange();
}

void ScreenWindow::countQuestions()
{
    m_panel->setOthers(m_questions.size() - 1);
    refreshTiles();
}

void ScreenWindow::decide(const QString &reply)
{
    if (reply != QLatin1String("yes"))
        return;
    m_isInterrupted = true;
    refresh();
    emit interrupted();
}

/// The second time ends the line at once, as the second Ctrl-C at a terminal does.
void ScreenWindow::leave()
{
    if (!m_isRunning) {
        emit left();
        return;
    }
    Question question;
    question.kind = Question::YesNo;
    question.text = m_isInterrupted
                        ? QStringLiteral("The run is being ended. End it at once, without the "
                                         "rest of the records?")
                        : QStringLiteral("End the run? Units under test are stopped; their "
                                         "records are written.");
    m_questions.interject(question);
}

void ScreenWindow::toggleFullScreen()
{
    setWindowState(windowState() ^ Qt::WindowFullScreen);
}

void ScreenWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && !event->isAutoRepeat())
        leave();
    else if (event->key() == Qt::Key_F11)
        toggleFullScreen();
    else if (m_panel->isVisible())
        m_panel->key(*event);
}

void ScreenWindow::closeEvent(QCloseEvent *event)
{
    event->ignore();
    leave();
}

void ScreenWindow::resizeEvent(QResizeEvent *)
{
    arrange();
}

void ScreenWindow::arrange()
{
    const int header = headerHeight(height());
    const int footer = footerHeight(height());
    const int margin = std::max(6, height() / 80);
    m_title->setGeometry(margin * 2, 0, width() / 2 - margin * 2, header);
    m_count->setGeometry(width() / 2, 0, width() / 2 - margin * 2, header);
    m_title->setSizes(12, header / 2);
    m_count->setSizes(12, header / 2);
    m_leave->setGeometry(margin, height() - footer + 2, width() / 4, footer - 4);
    QFont label = font();
    label.setPixelSize(footer / 2);
    m_leave->setFont(label);
    m_note->setGeometry(width() * 3 / 10, height() - footer, width() * 7 / 10 - margin * 2, footer);
    m_note->setSizes(11, footer * 3 / 5);

    const QRect all = QRect(0, header, width(), height() - header - footer)
                          .adjusted(margin, margin, -margin, -margin);
    QRect room = all;
    if (m_questions.isAnyShown()) {
        // Several tiles get more room than a single one, but not if the question would get
        // too small.
        const int half = all.height() * 52 / 100;
        const int high =
            m_tiles.size() > 1 ? std::clamp(all.height() * 2 / 5, std::min(220, half), half) : half;
        m_panel->setGeometry(all.left(), all.bottom() + 1 - high, all.width(), high);
        room.setBottom(all.bottom() - high - margin);
    }
    const int count = static_cast<int>(m_tiles.size());
    if (count == 0)
        return;
    const int columns = columnsFor(count, all.size());
    const int rows = (count + columns - 1) / columns;
    const int wide = (room.width() + margin) / columns;
    const int high = (room.height() + margin) / rows;
    for (int i = 0; i < count; ++i)
        m_tiles.at(i)->setGeometry(room.left() + i % columns * wide,
                                   room.top() + i / columns * high, wide - margin, high - margin);
}

void ScreenWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor(Colours::Ground));
    painter.fillRect(0, 0, width(), headerHeight(height()), QColor(Colours::Header));
    painter.fillRect(0, height() - footerHeight(height()), width(), footerHeight(height()),
                     QColor(isTrouble() ? Colours::Bad : Colours::Header));
}
