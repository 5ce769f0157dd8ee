/// The keypad's side of the conversation with the test station.
#ifndef PROTOCOL_TESTPROTO_H
#define PROTOCOL_TESTPROTO_H

#include <QByteArray>
#include <QObject>
#include <QPoint>
#include <QString>

#include <cstdio>

#include "hardware/board.h"

class QSocketNotifier;
class QTimer;
class SDMon;

/// Takes frames off the test line, raises one signal for each request, and
/// sends the replies. It touches no hardware but the line itself and the SD
/// card's power and events.
///
/// A request is dispatched synchronously: a reply slot that is called while a
/// signal is being handled puts its frame on the line ahead of the request's
/// own ACK.
///
/// ATE mode begins with construction. The station must send its first frame
/// within 15 seconds and each following one within ten minutes of the last;
/// otherwise testExit() is emitted.
class TestProto : public QObject
{
    Q_OBJECT

public:
    /// Opens the test line of @p board (with whatever settings it has), powers the SD
    /// card and starts the SD card monitor. A line that cannot be opened is logged;
    /// replies are then lost and ATE mode ends after 15 seconds. A line that can no
    /// longer be read is logged, too, and ATE mode ends by its timer.
    explicit TestProto(QObject *parent, const Board &board = Board());
    ~TestProto() override;

    /// Where the SD card is mounted; null when there is none.
    QString sdCardMountPath() const { return m_sdCardMountPath; }

signals:
    // One for each request; the values are the station's, unchecked beyond
    // what each request's own rules refuse.
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
    void flashStart(bool sendStatus, QString fwDir);
    void flashQuery();
    void mountStart();
    void buttonRequest();
    void readVoltage();
    void getVersion();

public slots:
    // The replies. Each sends one frame at once, in any phase of ATE mode.
    void tsCoords(QPoint p);
    void calibrateResult(int index, QPoint p);
    void calibrateFinished(bool success);
    void passthroughReply(QByteArray data);
    void flashStatus(int stage, int percent);
    void flashComplete(bool success);
    void sendReady();
    void mountComplete(bool success);
    void sendButtons(uint state);
    void sendVoltage(QByteArray data);
    void sendAck();
    void sendNak();
    void sendNA();
    void sendVersion(QString version);
    void sendReadSdCardResp(QString respData);

    /// Ends ATE mode: SD card power off, testExit().
    void exitMftool();

private slots:
    void read();
    void setSdCardMountPath(QString dir);
    void clearSdCardMountPath(QString dir);

private:
    /// What a handler wants to be sent at once.
    enum Reply {
        NoReply = 0, ///< the answer comes later, or has been sent already
        NA = 0x0003,
        ACK = 0x0004,
        NAK = 0x0005
    };
    typedef Reply (TestProto::*Handler)(const QByteArray &data);
    struct Command {
        quint16 type;
        Handler handler;
    };
    static const Command commands[];

    void openLine(const QString &path);
    void stopReading(const char *reason);
    void parseMessage(const QByteArray &message);
    Reply dispatch(quint16 type, const QByteArray &data);
    void sendFrame(quint16 type, const QByteArray &data = QByteArray());

    Reply exitRequest(const QByteArray &data);
    Reply echoRequest(const QByteArray &data);
    Reply versionRequest(const QByteArray &data);
    Reply displayRequest(const QByteArray &data);
    Reply ledsRequest(const QByteArray &data);
    Reply buzzerRequest(const QByteArray &data);
    Reply sdCardRequest(const QByteArray &data);
    Reply testPatternRequest(const QByteArray &data);
    Reply homeLedRequest(const QByteArray &data);
    Reply calibrateRequest(const QByteArray &data);
    Reply touchTestRequest(const QByteArray &data);
    Reply passthroughEnableRequest(const QByteArray &data);
    Reply passthroughRequest(const QByteArray &data);
    Reply flashStartRequest(const QByteArray &data);
    Reply flashQueryRequest(const QByteArray &data);
    Reply mountRequest(const QByteArray &data);
    Reply buttonsRequest(const QByteArray &data);
    Reply voltageRequest(const QByteArray &data);

    QString m_sdCardMountPath;
    bool m_strictCheck; ///< length and checksum of received frames are checked
    SDMon *m_sdMon;
    int m_fd;        ///< the test line; negative when it could not be opened
    bool m_isUart;   ///< it may hand a frame over in pieces
    int m_endsInRow; ///< reads in a row that found the line at its end
    FILE *m_file;    ///< stream of the reply being sent; null between replies
    QTimer *m_ateTimer;
    QSocketNotifier *m_notifier; ///< null when the line could not be opened
    const Board m_board;
};

#endif
