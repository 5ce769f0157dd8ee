/// What a keypad's host process and its client say to each other, see Channel.
/// Every request has an operation and an id, and its reply has the same id;
/// events come unasked.
#ifndef BENCH_KEYPAD_HOSTPROTOCOL_H
#define BENCH_KEYPAD_HOSTPROTOCOL_H

#include <QJsonObject>
#include <QLatin1String>

namespace HostProtocol
{

enum class Operation {
    Ping,        ///< nothing; all events up to now come before the reply
    Bridge,      ///< Path of a pty to talk with the tool
    HangUp,      ///< closes the tool's line
    SetCard,     ///< Path, Kind; Reason
    Sysfs,       ///< Call, Path, Text, Number, Error; Text, Ok
    Start,       ///< Arguments, Environment, Directory, Limits; Error
    Run,         ///< Arguments; Code, Signal, two descriptors
    Open,        ///< Path, Flags, Mode; Error, a descriptor
    List,        ///< Path; Names
    Remove,      ///< Path; Error
    MakeFolders, ///< Path; Error
    Rename,      ///< Path, To; Error
    Link,        ///< Path is the link's text, To the link; Error
    Exists,      ///< Path; Error
    WriteSdPipe  ///< Bytes, Msecs; Error
};

enum class SysfsCall { Show, Set, Fail, ClearFault, AddLed, AddAttribute, Remove, Has };

enum class Event {
    None,        ///< a reply
    Descriptors, ///< Id of the reply they belong to
    Store,       ///< Usec, Path, Text, Error
    Output,      ///< Usec, Text
    Process,     ///< the tool starts; its number is the packet's sender
    Exit         ///< Code, Signal
};

struct CardKind {
    /// How the card's folder behaves.
    enum Card {
        NoFolder,      ///< the folder does not exist
        Writable,      ///< 1 MiB of space
        ReadOnly,      ///< what was written before stays, nothing can be changed
        Full,          ///< files can be created but hold nothing
        ReadsBackWrong ///< the first byte of every file reads back with its lowest bit inverted
    };
};

namespace Key
{
constexpr QLatin1String Arguments("arguments");
constexpr QLatin1String Bytes("bytes");
constexpr QLatin1String Call("call");
constexpr QLatin1String Code("code");
constexpr QLatin1String Directory("directory");
constexpr QLatin1String Environment("environment");
constexpr QLatin1String Error("errno");
constexpr QLatin1String EventKind("event");
constexpr QLatin1String Flags("flags");
constexpr QLatin1String Id("id");
constexpr QLatin1String Kind("kind");
constexpr QLatin1String Limits("limits");
constexpr QLatin1String Mode("mode");
constexpr QLatin1String Msecs("msecs");
constexpr QLatin1String Names("names");
constexpr QLatin1String Number("number");
constexpr QLatin1String Ok("ok");
constexpr QLatin1String OperationKind("operation");
constexpr QLatin1String Path("path");
constexpr QLatin1String Programs("programs");
constexpr QLatin1String Reason("reason");
constexpr QLatin1String Signal("signal");
constexpr QLatin1String Text("text");
constexpr QLatin1String To("to");
constexpr QLatin1String ToolDir("toolDir");
constexpr QLatin1String Usec("usec");
constexpr QLatin1String Visible("visible");
} // namespace Key

/// A member that is one of the enumerations above.
template<typename Enum> QJsonValue toJson(Enum value)
{
    return static_cast<int>(value);
}

template<typename Enum> Enum fromJson(const QJsonValue &value)
{
    return static_cast<Enum>(value.toInt());
}

} // namespace HostProtocol

/// What no board has: the stand-ins, what they print and what they are asked to do, and
/// the tool's folder a second time, in case a folder above it is left out.
namespace BenchPlace
{
const char programs[] = "/run/bench/bin";
const char captures[] = "/run/bench/captures";
const char plays[] = "/run/bench/plays";
const char calls[] = "/run/bench/calls";
const char tool[] = "/run/bench/tool";
} // namespace BenchPlace

#endif
