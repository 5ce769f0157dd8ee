/// The operator's screen: all fixtures, the question whose turn it is, and the batch.
#ifndef BENCH_SCREEN_SCREENWINDOW_H
#define BENCH_SCREEN_SCREENWINDOW_H

#include "bench/screen/lineview.h"
#include "bench/screen/questionpanel.h"
#include "bench/screen/questions.h"

#include <QWidget>

class FitLabel;
class FixtureTile;
class QPushButton;

class ScreenWindow : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenWindow(const Pauses &pauses = Pauses(), QWidget *parent = nullptr);

public slots:
    /// What the line tells.
    void read(const QByteArray &bytes);
    /// The line is no more. The screen stays until the operator has read it, unless somebody
    /// has asked for the end.
    void end();

signals:
    /// A line for the line.
    void said(const QJsonObject &line);
    /// The operator wants the run to end.
    void interrupted();
    /// Nobody needs the screen any more.
    void left();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private slots:
    void refresh();
    void turn();
    void countQuestions();
    void decide(const QString &reply);
    void leave();

private:
    bool isTrouble() const;
    QString footerText() const;
    void toggleFullScreen();
    void refreshTiles();
    QString whoOf(const Question &question) const;
    void arrange();

    LineView m_view;
    Questions m_questions;
    QList<FixtureTile *> m_tiles;
    FitLabel *m_title;
    FitLabel *m_count;
    QPushButton *m_leave;
    FitLabel *m_note;
    QuestionPanel *m_panel;
    bool m_isRunning = true;
    bool m_isInterrupted = false;
};

#endif
