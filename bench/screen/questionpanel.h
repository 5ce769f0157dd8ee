/// One question with what it is answered with: buttons, keys, a field to type or to scan
/// into. Nothing but an answer answers it: not Enter where there is something to judge, not a
/// code that is scanned by mistake, not a key that was hit before anybody could read it.
#ifndef BENCH_SCREEN_QUESTIONPANEL_H
#define BENCH_SCREEN_QUESTIONPANEL_H

#include "bench/screen/question.h"

#include <QTimer>
#include <QWidget>

class FitLabel;
class QKeyEvent;
class QLineEdit;
class QPushButton;

struct Pauses {
    int unreadMs = 400;  ///< for so long nobody can have read a question
    int scannerMs = 120; ///< keys that follow each other sooner come from a scanner
};

class QuestionPanel : public QWidget
{
    Q_OBJECT

public:
    explicit QuestionPanel(const Pauses &pauses, QWidget *parent = nullptr);

    /// @param who     whom it is about; may be empty
    void ask(const Question &question, const QString &who);
    /// @param others  how many questions wait behind this one
    void setOthers(int others);
    /// A key that nothing else takes.
    void key(const QKeyEvent &event);

signals:
    /// @param reply  "yes", "no", or the line
    void answered(const QString &reply);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private slots:
    void becomeReadable();
    void judge();
    void agree();
    void disagree();

private:
    void enter();
    void arrange();

    const Pauses m_pauses;
    Question m_question;
    bool m_isReadable = false;
    QString m_typed; ///< one key quickly after the other
    QTimer m_readable;
    QTimer m_pause;
    FitLabel *m_who;
    FitLabel *m_others;
    FitLabel *m_text;
    QLineEdit *m_field;
    QPushButton *m_yes;
    QPushButton *m_no;
};

#endif
