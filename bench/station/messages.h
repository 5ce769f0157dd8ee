/// The messages of the protocol in one table: who sends which, how requests are
/// answered, what the data hold and what a person types to have them sent.
#ifndef BENCH_STATION_MESSAGES_H
#define BENCH_STATION_MESSAGES_H

#include "bench/station/frame.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace wire
{

/// The types that code calls by name. The table in messages.cpp says what they are,
/// together with all others.
enum Type : quint16 {
    NotApplicable = 0x0003,
    Ack = 0x0004,
    Nak = 0x0005,
    ExitRequest = 0x6001,
    EchoRequest = 0x6002,
    EchoReply = 0x6003,
    VersionRequest = 0x603C,
    SdReadRequest = 0x6161,
    SdReadReply = 0x6162,
    PatternRequest = 0x7000,
    CalibrateRequest = 0x7020,
    CalibrationPoint = 0x7021,
    TouchTestRequest = 0x7030,
    TouchReply = 0x7031,
    PassthroughRequest = 0x7040,
    RelayRequest = 0x7041,
    FlashRequest = 0x7050,
    FlashStatus = 0x7051,
    FlashComplete = 0x7052,
    FlashQueryRequest = 0x7053,
    MountRequest = 0x7060,
    MountReply = 0x7061,
    Ready = 0x9999
};

/// How the keypad answers a request that it accepts.
struct Answers {
    bool ack = false;          ///< an ACK, at once
    quint16 reply = 0;         ///< a reply of this type; 0 when there is none
    int lateLimitMs = 0;       ///< how long a reply that follows an ACK may take, generously
    quint16 wrongLength = Nak; ///< the answer to data of another length
};

/// How the characters of a field are read and written.
enum class Form {
    Level,        ///< two hexadecimal digits; the keypad takes any other characters for 0
    Mask,         ///< as Level; a person writes it in hexadecimal
    Bit,          ///< as Level, but above 1 is refused; a person writes on or off
    Switch,       ///< 00 for off, any other two for on
    Hex,          ///< hexadecimal digits in upper case
    LowBits,      ///< as Hex; only the two lowest bits have a meaning
    FirstBit,     ///< bit 0 of a Hex
    SecondBit,    ///< bit 1 of a Hex
    Decimal,      ///< decimal digits, perhaps after a minus sign
    MaybeDecimal, ///< as Decimal; the field is missing when it is something else
    Digits,       ///< as Hex, but kept as text
    Text,         ///< any characters
    Padded,       ///< any characters; blanks at both ends do not count
    Zeros         ///< a filler without a name
};

/// What the numbers of a field stand for.
struct Values {
    const char *what; ///< "stage", to complain of a number without a meaning; may be null
    std::vector<const char *> names; ///< of 0, 1 and so on
};

/// A field's width when all characters up to the end of the data belong to it.
const int ToEnd = -1;
/// A size of data when any number of characters is right.
const int AnySize = -1;

struct Field {
    const char *name;
    int place; ///< of its first character in the data
    int width; ///< in characters, or ToEnd
    Form form;
    const Values *values = nullptr;
};

/// One shape that the data of a type have. A request of several commands has
/// several: 6143 sets the backlight or the bias power.
struct Layout {
    int size;          ///< of the data in characters, or AnySize
    const char *start; ///< characters that the data begin with
    std::vector<Field> fields;
    /// For a request the words that a person types before the fields, "buzzer off"; for a
    /// reply what is shown: {stage} is the field's value, {stage.name} its meaning.
    const char *text;
    /// For a request the fields as a person types them, "LEVEL", in brackets if they can
    /// be left out; for a reply what its data should be, in words.
    const char *wanted;
    const char *help = nullptr;    ///< what a request does; null if another layout says it
    const char *meaning = nullptr; ///< of the start characters, when it is not the command
    const char *alias = nullptr;   ///< another command that a person may try

    /// The fields that a person types: those that are not among the start characters.
    std::vector<Field> typedFields() const;
};

struct Message {
    quint16 type;
    Sender sender;
    const char *name; ///< "voltage request"
    Answers answers;  ///< of a request
    std::vector<Layout> layouts;
};

/// All messages, in the order of their types.
const std::vector<Message> &messages();

/// The row of @p type; null for an unknown one.
const Message *messageOf(quint16 type);

/// How the keypad answers requests of @p type; empty for any other type.
std::optional<Answers> answersTo(quint16 type);

/// Who sends frames of @p type; empty for an unknown type.
std::optional<Sender> senderOf(quint16 type);

/// Four digits in upper case: "603C".
QString typeNumber(quint16 type);

/// "voltage request", "ACK"; for an unknown type "unknown type 1234".
QString typeName(quint16 type);

/// The type with that name, in upper or lower case.
std::optional<quint16> typeNamed(const QString &name);

/// The names of all fields that data of @p type can have; none for an unknown type.
QStringList fieldNames(quint16 type);

} // namespace wire

#endif
