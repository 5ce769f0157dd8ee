// The requests of the test station: one small handler for each message type.
//
// A handler checks the data, raises the request's signal and says which reply
// goes out at once. NAK refuses data of the wrong length, NA (not applicable)
// data of the wrong content, with the exceptions that the station knows.
#include "protocol/testproto.h"

#include <QFile>
#include <QtDebug>

#include "protocol/frame.h"

namespace
{

enum RequestType {
    ExitRequest = 0x6001,
    EchoRequest = 0x6002,
    VersionRequest = 0x603C,
    DisplayRequest = 0x6143,
    LedsRequest = 0x6144,
    BuzzerRequest = 0x6147,
    SdCardRequest = 0x6161,
    TestPatternRequest = 0x7000,
    HomeLedRequest = 0x7010,
    CalibrateRequest = 0x7020,
    TouchTestRequest = 0x7030,
    PassthroughEnableRequest = 0x7040,
    PassthroughRequest = 0x7041,
    FlashStartRequest = 0x7050,
    FlashQueryRequest = 0x7053,
    MountRequest = 0x7060,
    ButtonsRequest = 0x7070,
    VoltageRequest = 0x7080
};

const quint16 echoReply = 0x6003;

/// The value of the two characters at @p position, one byte. The data must be long enough.
uint byteAt(const QByteArray &data, int position)
{
    return hexValue(data.constData() + position, 2);
}

/// Any two characters but "00" switch it on.
bool isOn(const QByteArray &data)
{
    return data != "00";
}

/// A file or folder name as the file system spells it.
QString nameIn(const QByteArray &data)
{
    const QString name = QFile::decodeName(data.constData());
    // The decoder of UTF-8 swallows a byte order mark at the beginning. To the file
    // system it is part of the name.
    const char *const mark = "\xEF\xBB\xBF";
    if (data.startsWith(mark) && QFile::decodeName(mark).isEmpty())
        return QChar(QChar::ByteOrderMark) + name;
    return name;
}

} // namespace

const TestProto::Command TestProto::commands[] = {
    {ExitRequest, &TestProto::exitRequest},
    {EchoRequest, &TestProto::echoRequest},
    {VersionRequest, &TestProto::versionRequest},
    {DisplayRequest, &TestProto::displayRequest},
    {LedsRequest, &TestProto::ledsRequest},
    {BuzzerRequest, &TestProto::buzzerRequest},
    {SdCardRequest, &TestProto::sdCardRequest},
    {TestPatternRequest, &TestProto::testPatternRequest},
    {HomeLedRequest, &TestProto::homeLedRequest},
    {CalibrateRequest, &TestProto::calibrateRequest},
    {TouchTestRequest, &TestProto::touchTestRequest},
    {PassthroughEnableRequest, &TestProto::passthroughEnableRequest},
    {PassthroughRequest, &TestProto::passthroughRequest},
    {FlashStartRequest, &TestProto::flashStartRequest},
    {FlashQueryRequest, &TestProto::flashQueryRequest},
    {MountRequest, &TestProto::mountRequest},
    {ButtonsRequest, &TestProto::buttonsRequest},
    {VoltageRequest, &TestProto::voltageRequest},
};

TestProto::Reply TestProto::dispatch(quint16 type, const QByteArray &data)
{
    for (const Command &command : commands) {
        if (command.type == type)
            return (this->*command.handler)(data);
    }
    qDebug("Unhandled type: %04X", type);
    return NA;
}

TestProto::Reply TestProto::exitRequest(const QByteArray &data)
{
    if (!data.isEmpty())
        return NAK;
    emit testExit();
    return ACK;
}

TestProto::Reply TestProto::echoRequest(const QByteArray &data)
{
    sendFrame(echoReply, data);
    return NoReply;
}

TestProto::Reply TestProto::versionRequest(const QByteArray &data)
{
    if (data.size() != 2) {
        qDebug("In ATE Mode--->, %x Command needs 1 bytes of data (2 ASCII)", VersionRequest);
        return NAK;
    }
    if (!data.startsWith("01")) {
        qDebug("In ATE Mode--->, %x Command, first byte must be 01 (30 31)", VersionRequest);
        return NA;
    }
    emit getVersion();
    return NoReply;
}

TestProto::Reply TestProto::displayRequest(const QByteArray &data)
{
    if (data.size() != 4)
        return NAK;
    const uint level = byteAt(data, 2);
    if (data.startsWith("00")) {
        emit setBacklight(level);
        return ACK;
    }
    if (!data.startsWith("01") || level > 1)
        return NA;
    emit setBiasPower(level);
    return ACK;
}

TestProto::Reply TestProto::ledsRequest(const QByteArray &data)
{
    // Stations send seven bytes; only the second is used.
    if (data.size() != 14)
        return NAK;
    if (!data.startsWith("00"))
        return NA;
    emit setLeds(byteAt(data, 2));
    return ACK;
}

TestProto::Reply TestProto::buzzerRequest(const QByteArray &data)
{
    if (data.size() != 4)
        return NAK;
    if (data.startsWith("00")) {
        emit setBuzzer(0); // whatever level follows
        return ACK;
    }
    if (!data.startsWith("80"))
        return NA;
    emit setBuzzer(byteAt(data, 2));
    return ACK;
}

TestProto::Reply TestProto::sdCardRequest(const QByteArray &data)
{
    if (data.size() != 6) {
        qDebug("In ATE Mode--->, %x Command needs 3 bytes of data (6 ASCII)", SdCardRequest);
        return NAK;
    }
    if (!data.startsWith("01")) {
        qDebug("In ATE Mode--->, %x Command, first byte must be 01 (30 31)", SdCardRequest);
        return NA;
    }
    emit readSdCard(static_cast<int>(byteAt(data, 2)), static_cast<int>(byteAt(data, 4)));
    return NoReply;
}

TestProto::Reply TestProto::testPatternRequest(const QByteArray &data)
{
    emit setLCDTestPattern(nameIn(data));
    // With a name, the reply says whether the picture could be shown.
    return data.isEmpty() ? ACK : NoReply;
}

TestProto::Reply TestProto::homeLedRequest(const QByteArray &data)
{
    if (data.size() != 2)
        return NAK;
    emit setHomeLed(byteAt(data, 0));
    return ACK;
}

TestProto::Reply TestProto::calibrateRequest(const QByteArray &data)
{
    // NA here, NAK in the requests around it: stations expect both.
    if (data.size() != 2)
        return NA;
    emit setCalibrate(isOn(data));
    return ACK;
}

TestProto::Reply TestProto::touchTestRequest(const QByteArray &data)
{
    if (data.size() != 2)
        return NAK;
    emit tsTestEnable(isOn(data));
    return ACK;
}

TestProto::Reply TestProto::passthroughEnableRequest(const QByteArray &data)
{
    if (data.size() != 2)
        return NAK;
    emit passthroughEnable(isOn(data));
    return ACK;
}

TestProto::Reply TestProto::passthroughRequest(const QByteArray &data)
{
    emit passthrough(data);
    return ACK;
}

TestProto::Reply TestProto::flashStartRequest(const QByteArray &data)
{
    emit flashStart(false, nameIn(data));
    return ACK;
}

TestProto::Reply TestProto::flashQueryRequest(const QByteArray &data)
{
    if (!data.isEmpty())
        return NAK;
    emit flashQuery();
    return NoReply;
}

TestProto::Reply TestProto::mountRequest(const QByteArray &data)
{
    if (!data.isEmpty())
        return NAK;
    emit mountStart();
    return ACK;
}

TestProto::Reply TestProto::buttonsRequest(const QByteArray &data)
{
    if (!data.isEmpty())
        return NAK;
    emit buttonRequest();
    return NoReply;
}

TestProto::Reply TestProto::voltageRequest(const QByteArray &data)
{
    if (!data.isEmpty())
        return NAK;
    emit readVoltage();
    return NoReply;
}
