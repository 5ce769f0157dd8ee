/// The main widget: the operator's screen, the owner of every other object, and
/// the place where the rooms of the tool meet.
#ifndef APP_MFTOOL_H
#define APP_MFTOOL_H

#include <QVector>
#include <QWidget>

#include "hardware/board.h"
#include "ui_mftool.h"

class BootStream;
class Buttons;
class Calibrate;
class PointerDriver;
class QFile;
class QtSerialPort;
class RootFS;
class TestProto;
class UBIAttach;

/// Creates everything as its Qt child and wires it up. A slot that drives or reads the
/// board passes the work to the unit that does it; what concerns this widget itself (test
/// images, the calibration dialog, the steps of a flash and how the screen shows them) is
/// done here. Nothing that fails during construction is fatal: what cannot be opened is
/// logged and stays inert.
///
/// All senders and receivers live on one thread, so a signal runs its slots before it
/// returns. Where it has two, they run in the order in which they were connected.
class mftool : public QWidget
{
    Q_OBJECT

public:
    /// @param board  whose devices and files are used
    explicit mftool(QWidget *parent = nullptr, const Board &board = Board());
    ~mftool() override;

signals:
    /// The SD card test's result, for the station.
    void sendReadSdCardResp(QString respData);

    // Their order is their number in the meta-object.
private slots:
    void next();
    void status(int percent);
    void failed(QString err);
    void buzzer(bool on);
    void setLeds(bool on);
    void testExit();
    void setBacklight(uint level);
    void setBiasPower(uint level);
    void setLeds(uint mask);
    void setBuzzer(uint level);
    void readSdCard(int timeout, int portNum);
    void setLCDTestPattern(QString fileName);
    void setHomeLed(uint level);
    void setCalibrate(bool enable);
    void tsTestEnable(bool enable);
    void passthroughEnable(bool enable);
    void passthrough(QByteArray data);
    void readQB740();
    void startFlash(bool sendStatus, QString dir);
    void startFlash(bool sendStatus);
    void startFlash();
    void flashQuery();
    void doMount();
    void mountFailed(QString err);
    void mountComplete();
    void buttonRequest();
    void readVoltage();
    void getVersion();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void createFlashSteps();
    void openBuzzer();
    void createProtocol();
    void openPassthrough();
    void createMountSteps();
    void removeTestPattern();
    void showTestPattern(const QPixmap &picture);
    void openCalibration();
    void closeCalibration();
    qint64 readSdCardTest(int &status, int (&values)[10]);

    Ui::mftoolClass ui;
    int m_stage;                        ///< flash stage under way, index of m_progress
    int m_percent;                      ///< last percentage of the flash stage
    QVector<QProgressBar *> m_progress; ///< in the order of the flash stages
    QFile *buzzerFile;                  ///< stays open
    TestProto *m_proto;
    QLabel *patternLabel;   ///< null while no test image is shown
    Calibrate *m_calibrate; ///< null while no calibration is under way
    bool m_tsTest;          ///< presses are reported to the station
    QtSerialPort *m_passthroughPort;
    bool m_passthrough; ///< lines are relayed
    BootStream *m_bootStream;
    bool m_sendStatus; ///< each percentage is reported to the station unasked
    bool m_flashing;
    UBIAttach *m_attach;
    bool m_mounted; ///< the NAND file system has been mounted
    Buttons *m_buttons;
    RootFS *m_rootFS;
    PointerDriver *m_pointer;
    const Board m_board;
};

#endif
