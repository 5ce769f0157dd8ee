/// The messages of the protocol: which there are, how requests are answered,
/// and what the data mean.
#ifndef BENCH_STATION_MESSAGES_H
#define BENCH_STATION_MESSAGES_H

#include "bench/station/frame.h"

#include <QString>
#include <QVariantMap>

#include <optional>

namespace wire
{

/// Message types. Requests come from the station, replies from the keypad.
enum Type : quint16 {
    NotApplicable = 0x0003,
    Ack = 0x0004,
    Nak = 0x0005,
    ExitRequest = 0x6001,
    EchoRequest = 0x6002,
    EchoReply = 0x6003,
    VersionRequest = 0x603C,
    VersionReply = 0x603D,
    LightRequest = 0x6143, ///< backlight, and LCD bias power
    LedsRequest = 0x6144,
    BuzzerRequest = 0x6147,
    SdReadRequest = 0x6161,
    SdReadReply = 0x6162,
    PatternRequest = 0x7000,
    HomeLedRequest = 0x7010,
    CalibrateRequest = 0x7020,
    CalibratePoint = 0x7021,
    CalibrateFinished = 0x7022,
    TouchTestRequest = 0x7030,
    TouchReply = 0x7031,
    PassthroughRequest = 0x7040,
    RelayRequest = 0x7041,
    RelayReply = 0x7042,
    FlashRequest = 0x7050,
    FlashStatus = 0x7051,
    FlashComplete = 0x7052,
    FlashQueryRequest = 0x7053,
    MountRequest = 0x7060,
    MountReply = 0x7061,
    ButtonsRequest = 0x7070,
    ButtonsReply = 0x7071,
    VoltageRequest = 0x7080,
    VoltageReply = 0x7081,
    Ready = 0x9999
};

/// How the keypad answers a request that it accepts.
struct Answers {
    bool ack = false;    ///< an ACK, at once
    quint16 reply = 0;   ///< a reply of this type; 0 when there is none
    int lateLimitMs = 0; ///< how long a reply that follows an ACK may take, generously
};

/// How the keypad answers requests of @p type; empty for a type that is no request.
std::optional<Answers> answersTo(quint16 type);

/// The one that sends frames of @p type; empty for an unknown type.
std::optional<Sender> senderOf(quint16 type);

/// Four digits in upper case: "603C".
QString typeNumber(quint16 type);

/// "voltage request", "ACK"; for an unknown type "unknown type 1234".
QString typeName(quint16 type);

/// What the data of a frame mean.
struct Meaning {
    QString text; ///< for a person: "touch at 120,45"; a request as its command, "backlight 100" or
                  ///< "send 6143 0264"
    QVariantMap fields; ///< by name, numbers as int, texts as QString: "x" 120, "y" 45
    QString complaint;  ///< why the data are not as the type wants them; empty when they are
};

/// Decodes a frame of any type. Field names by type:
///
/// | type | fields |
/// |---|---|
/// | LightRequest | `level`, or `bias` |
/// | LedsRequest | `mask` |
/// | BuzzerRequest, HomeLedRequest | `level`, `percent` |
/// | SdReadRequest | `timeout`, `port` |
/// | SdReadReply | `timeout`, `port`, `status` (0 to 3), `values` (text, 20 digits) |
/// | PatternRequest, FlashRequest | `name`, `dir` |
/// | CalibrateRequest, TouchTestRequest, PassthroughRequest | `on` (0, 1) |
/// | CalibratePoint | `index`, `x`, `y` |
/// | CalibrateFinished, FlashComplete, MountReply | `success` (0, 1) |
/// | TouchReply | `x`, `y` |
/// | RelayRequest, RelayReply, EchoRequest, EchoReply | `text` |
/// | FlashStatus | `stage` (0 to 3), `percent` |
/// | ButtonsReply | `mask`, `home` (0, 1), `tamper` (0, 1) |
/// | VoltageReply | `text`, and `voltage` when it is a decimal number |
/// | VersionReply | `major`, `minor`, `version` (text, trailing blanks cut) |
Meaning meaningOf(const Frame &frame);

} // namespace wire

#endif
