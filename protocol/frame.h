/// The frame that test station and keypad exchange, as pure functions over bytes.
///
///     7E LLLL TTTT HH data CCCC 7F
///
/// All fields are hexadecimal characters: L the length (10 + data characters), T the
/// message type, H the low 8 bits of the sum of the characters before it, C the 16-bit
/// sum of all characters before it. The data are sent as they are.
#ifndef PROTOCOL_FRAME_H
#define PROTOCOL_FRAME_H

#include <QByteArray>

/// What the checks of a received message found, in the order they are made.
enum FrameVerdict {
    FrameEmpty,       ///< no characters at all
    FrameTooShort,    ///< fewer than the 18 characters of a frame without data
    FrameBadMarks,    ///< start or end mark wrong: not a frame
    FrameBadLength,   ///< length field and message differ
    FrameBadChecksum, ///< checksum and message differ
    FrameGood
};

struct ReceivedFrame {
    FrameVerdict verdict;
    quint16 type;    ///< message type; only when the marks are right
    QByteArray data; ///< only when the frame is good
    uint expected;   ///< the right value of the field that a bad length or checksum names
};

/// Checks one message, line end already removed.
/// @param strict  false ignores the length field and the checksum; the data then run from
///                the header to the last four characters before the end mark
ReceivedFrame checkFrame(const QByteArray &message, bool strict);

/// @return true when start and end marks are right, so that the message is meant for this unit
bool hasFrameMarks(FrameVerdict verdict);

/// @return the value of @p count hexadecimal @p digits, upper or lower case; 0 when
///         one of them is not a digit or @p count is 0
uint hexValue(const char *digits, int count);

/// @return the frame to send, carriage return and line feed included
/// @param data  goes out unchanged
QByteArray buildFrame(quint16 type, const QByteArray &data);

#endif
