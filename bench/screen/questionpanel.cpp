#include "bench/screen/questionpanel.h"

#include "bench/screen/colours.h"
#include "bench/screen/fitlabel.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>

#include <algorithm>

namespace
{

/// Both buttons look the same, because no answer is the usual one.
const char *const Style =
    "QPushButton { background: #2b3a45; color: white; border: none; border-radius: 6px; }"
    "QPushButton:pressed { background: #3b6ea0; }"
    "QPushButton:disabled { background: #98a4ad; }"
    "QLineEdit { background: white; color: #1c2730; border: 2px solid #2b3a45;"
    " border-radius: 6px; padding: 0 8px; }";

const char *const Labels[] = {"Done   (Enter)", "Yes   (Y)", "OK   (Enter)"}; // Question::Kind

bool isEnter(const QKeyEvent &event)
{
    return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
}

} // namespace

QuestionPanel::QuestionPanel(const Pauses &pauses, QWidget *parent)
    : QWidget(parent), m_pauses(pauses), m_who(new FitLabel(this)), m_others(new FitLabel(this)),
      m_text(new FitLabel(this)), m_field(new QLineEdit(this)), m_yes(new QPushButton(this)),
      m_no(new QPushButton(QStringLiteral("No   (N)"), this))
{
    setStyleSheet(QLatin1String(Style));
    m_who->setObjectName(QStringLiteral("who"));
    m_who->setBold(true);
    m_others->setObjectName(QStringLiteral("others"));
    m_others->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_others->setColour(Colours::Faint);
    m_text->setObjectName(QStringLiteral("question"));
    m_text->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_field->setObjectName(QStringLiteral("field"));
    m_field->setContextMenuPolicy(Qt::NoContextMenu);
    m_yes->setObjectName(QStringLiteral("yes"));
    m_no->setObjectName(QStringLiteral("no"));
    // Enter or the space bar would press a button that has the focus.
    m_yes->setFocusPolicy(Qt::NoFocus);
    m_no->setFocusPolicy(Qt::NoFocus);
    m_readable.setSingleShot(true);
    m_pause.setSingleShot(true);
    connect(&m_readable, SIGNAL(timeout()), SLOT(becomeReadable()));
    connect(&m_pause, SIGNAL(timeout()), SLOT(judge()));
    connect(m_yes, SIGNAL(clicked()), SLOT(agree()));
    connect(m_no, SIGNAL(clicked()), SLOT(disagree()));
}

void QuestionPanel::ask(const Question &question, const QString &who)
{
    m_question = question;
    m_typed.clear();
    m_pause.stop();
    m_who->setText(who);
    m_text->setText(question.text);
    m_field->clear();
    m_field->setVisible(question.kind == Question::Text);
    m_yes->setText(QLatin1String(Labels[question.kind]));
    m_no->setVisible(question.kind == Question::YesNo);
    // A text can be typed at once: no character of a scanned code may get lost.
    m_isReadable = question.kind == Question::Text;
    m_yes->setEnabled(m_isReadable);
    m_no->setEnabled(m_isReadable);
    if (!m_isReadable)
        m_readable.start(m_pauses.unreadMs);
    arrange();
    show();
    if (question.kind == Question::Text)
        m_field->setFocus();
    else
        window()->setFocus();
}

void QuestionPanel::setOthers(int others)
{
    QString text;
    if (others > 0)
        text = QStringLiteral("%1 more question%2")
                   .arg(others)
                   .arg(QLatin1String(others == 1 ? "" : "s"));
    m_others->setText(text);
    arrange();
}

void QuestionPanel::becomeReadable()
{
    m_isReadable = true;
    m_yes->setEnabled(true);
    m_no->setEnabled(true);
}

void QuestionPanel::key(const QKeyEvent &event)
{
    if (event.isAutoRepeat())
        return;
    if (isEnter(event)) {
        enter();
        return;
    }
    if (m_question.kind == Question::Text || event.text().isEmpty())
        return;
    m_typed += m_isReadable ? event.text() : QStringLiteral(" ");
    m_pause.start(m_pauses.scannerMs);
}

void QuestionPanel::enter()
{
    const QString typed = m_typed;
    m_typed.clear();
    switch (m_question.kind) {
    case Question::Text:
        agree();
        break;
    case Question::Confirm: // unless Enter ends a scanned code
        if (typed.isEmpty())
            agree();
        break;
    case Question::YesNo:
        m_typed = typed; // "y" and Enter, as at a terminal
        judge();
        break;
    }
}

/// Answers if what was typed is "y" or "n" and nothing else.
void QuestionPanel::judge()
{
    const QString word = m_typed.toLower();
    m_typed.clear();
    m_pause.stop();
    if (m_question.kind != Question::YesNo)
        return;
    if (word == QLatin1String("y"))
        agree();
    else if (word == QLatin1String("n"))
        disagree();
}

void QuestionPanel::agree()
{
    const QString line = m_field->text().trimmed();
    if (!m_isReadable || !isVisible() || (m_question.kind == Question::Text && line.isEmpty()))
        return;
    emit answered(m_question.kind == Question::Text ? line : QStringLiteral("yes"));
}

void QuestionPanel::disagree()
{
    if (m_isReadable && isVisible())
        emit answered(QStringLiteral("no"));
}

void QuestionPanel::resizeEvent(QResizeEvent *)
{
    arrange();
}

void QuestionPanel::arrange()
{
    const int margin = std::max(8, height() / 18);
    const QRect inner = rect().adjusted(margin * 3 / 2, margin, -margin * 3 / 2, -margin);
    const bool hasHeading = !m_who->text().isEmpty() || !m_others->text().isEmpty();
    const int heading = inner.height() / 6;
    const int controls = inner.height() * 3 / 10;
    m_who->setGeometry(inner.left(), inner.top(), inner.width() * 2 / 3, heading);
    m_others->setGeometry(inner.left() + inner.width() * 2 / 3, inner.top(), inner.width() / 3,
                          heading);
    const int textTop = inner.top() + (hasHeading ? heading : 0);
    const int controlsTop = inner.bottom() + 1 - controls;
    m_text->setGeometry(inner.left(), textTop, inner.width(), controlsTop - margin - textTop);
    m_who->setSizes(12, heading * 3 / 4);
    m_others->setSizes(11, heading / 2);
    m_text->setLines(std::max(1, m_text->height() / 16));
    m_text->setSizes(13, std::max(14, inner.height() / 5));

    const int half = (inner.width() - margin) / 2;
    const int small = inner.width() / 4;
    const int right = inner.right() + 1;
    switch (m_question.kind) {
    case Question::Confirm:
        m_yes->setGeometry(inner.left(), controlsTop, half, controls);
        break;
    case Question::YesNo:
        m_yes->setGeometry(inner.left(), controlsTop, half, controls);
        m_no->setGeometry(right - half, controlsTop, half, controls);
        break;
    case Question::Text:
        m_field->setGeometry(inner.left(), controlsTop, inner.width() - small - margin, controls);
        m_yes->setGeometry(right - small, controlsTop, small, controls);
        break;
    }
    QFont label = font();
    label.setPixelSize(std::max(12, controls * 2 / 5));
    m_field->setFont(label);
    label.setBold(true);
    m_yes->setFont(label);
    m_no->setFont(label);
}

void QuestionPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(Colours::Wanted), 4));
    painter.setBrush(QColor(Colours::Card));
    painter.drawRoundedRect(QRectF(rect()).adjusted(2, 2, -2, -2), 6, 6);
}
