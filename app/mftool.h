/// The main widget: the operator's screen, the owner of every other object, and
/// the place where the rooms of the tool meet.
#ifndef APP_MFTOOL_H
#define APP_MFTOOL_H

#include <QVector>
#include <QWidget>

#include "hardware/board.h"
#include "ui_mftool.h"

class QFile;
class TestProto;

/// Creates everything as its Qt child and wires it up; the slots, one for each
/// request of the test station, only pass the work on. No failure while it is
/// constructed is fatal: what cannot be opened is logged and stays inert.
class mftool : public QWidget
{
    Q_OBJECT

public:
    explicit mftool(QWidget *parent = 0);
    ~mftool() override;

signals:
    void sendReadSdCardResp(QString respData);

    // The order is the slots' numbering in the meta-object.
private slots:
    void buzzer(bool on);
    void setLeds(bool on);
    void testExit();
    void setBacklight(uint level);
    void setBiasPower(uint level);
    void setLeds(uint mask);
    void setBuzzer(uint level);
    void setLCDTestPattern(QString fileName);
    void setHomeLed(uint level);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void openBuzzer();
    void createProtocol();
    void removeTestPattern();
    void showTestPattern(const QPixmap &picture);

    Ui::mftoolClass ui;
    QVector<QProgressBar *> m_progress; ///< in the order of the flash stages
    QFile *buzzerFile;                  ///< stays open
    TestProto *m_proto;
    QLabel *patternLabel; ///< null while no test image is shown
    const Board m_board;
};

#endif
