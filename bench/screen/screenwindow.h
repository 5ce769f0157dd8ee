/// The operator's screen: all fixtures, one question, and the count of the batch.
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
    /// Takes what the line has written.
    void read(const QByteArray &bytes);
    /// The line has ended. The verdicts stay until the operator closes the screen, unless the
    /// operator has ended the run.
    void end();

signals:
    /// For the line, as one JSON line.
    void said(const QJsonObject &line);
    /// The operator wants the run to end.
    void interrupted();
    /// The screen can be closed.
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
    bool isAskedAt(const QString &fixture) const;
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
