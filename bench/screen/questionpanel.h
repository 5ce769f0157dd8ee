/// One question with its buttons and its text field. Enter does not answer a question that
/// has to be judged, nor does a code that is scanned by mistake, nor a key that was pressed
/// before anybody could read the question.
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
    int unreadMs = 400;  ///< nobody can read a question in less time
    int scannerMs = 120; ///< keys that come faster come from a scanner
    int holdMs = 5000;   ///< a fixture that hangs after an answer holds up the others no longer
};

class QuestionPanel : public QWidget
{
    Q_OBJECT

public:
    explicit QuestionPanel(const Pauses &pauses, QWidget *parent = nullptr);

    /// @param who  fixture and unit that it is about; may be empty
    void ask(const Question &question, const QString &who);
    /// @param others  how many questions wait behind this one
    void setOthers(int others);
    /// Takes a key that the text field did not use.
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
    QString m_typed; ///< keys that came quickly, one after the other
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
