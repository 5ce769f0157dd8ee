/// What a test station knows about frames: how to build one, and what exactly is wrong
/// with one that came. Written from the protocol (docs/protocol.md); it shares no line
/// with the keypad's own code, so that the two sides cannot agree on a mistake.
///
///     7E llll tttt hh data... ssss 7F
///
/// llll length (10 + data), tttt type, hh header check, ssss checksum. Both
/// sums add character codes. A station adds the characters as it sends them.
/// The keypad adds the length, type and header check with their hexadecimal
/// letters in lower case, although it sends them in upper case.
#ifndef BENCH_STATION_FRAME_H
#define BENCH_STATION_FRAME_H

#include <QByteArray>
#include <QList>
#include <QString>

namespace wire
{

/// Who put a frame on the line; it decides the case that is summed.
enum class Sender { Station, Keypad };

/// The content of a frame: its type and its data as they are on the line.
struct Frame {
    quint16 type = 0;
    QByteArray data;

    bool operator==(const Frame &other) const { return type == other.type && data == other.data; }
    bool operator!=(const Frame &other) const { return !(*this == other); }
};

/// The characters of a right frame in upper case, without a line end.
/// @param data  put into the frame unchanged; at most 65525 bytes
QByteArray buildFrame(Sender sender, quint16 type, const QByteArray &data = QByteArray());

/// The right frame that @p characters come closest to: with their type, their data and,
/// for a station, the case of their digits. Empty when they are too few or have no type.
QByteArray rightFrame(Sender sender, const QByteArray &characters);

/// One check that a frame fails.
struct Problem {
    enum Check {
        Size,        ///< fewer than the 18 characters of the smallest frame
        StartMark,   ///< 7E
        EndMark,     ///< 7F
        LengthField, ///< 10 + number of data characters
        TypeField,   ///< four hexadecimal digits
        HeaderCheck, ///< low 8 bits of the sum of the ten characters before it
        Checksum,    ///< sum of all characters before it, the header check as it is
        UpperCase,   ///< the keypad writes every field of its own in upper case
        LineEnd      ///< the keypad ends a frame with CR LF
    };

    Check check = Size;
    Sender sender = Sender::Keypad; ///< whose rules apply
    QByteArray expected;    ///< what rightFrame() has there; for a sum empty if there is none
    QByteArray found;       ///< what is there
    bool wrongCase = false; ///< HeaderCheck, Checksum: right if the other case is summed
    bool harmless = false;  ///< HeaderCheck: the receiver looks at the checksum, which fits

    /// One sentence for a person, without a full stop.
    QString text() const;
    /// The same without what should be there.
    QString finding() const;

private:
    QString place() const;
    QString hint() const;
};

/// What a check of a frame found. With problems, @ref frame holds what could
/// still be read (an unreadable field is 0, unreachable data are empty).
///
/// Everything that a problem expects is taken from one right frame. A sum is not the
/// problem if it is that frame's or fits what comes before it.
struct Report {
    Sender sender = Sender::Keypad;
    QByteArray raw; ///< the characters that were checked
    Frame frame;
    QList<Problem> problems; ///< in the order of their place in the frame

    bool ok() const { return problems.isEmpty(); }

    /// Whether @p check is among the problems.
    bool fails(Problem::Check check) const;

    /// All problems in one line, separated by "; "; empty when there is none.
    QString text() const;
};

/// Checks the characters of one frame, without a line end.
///
/// A keypad's frame must be exactly as the keypad builds it. In a station's
/// frame lower-case digits are right (the keypad accepts them); a wrong header
/// check is reported although the keypad does not look at it.
Report checkFrame(Sender sender, const QByteArray &characters);

/// Checks one line as it came, with its line end. A keypad's line must end
/// with exactly CR LF; for a station's any white space around is right.
Report checkLine(Sender sender, const QByteArray &line);

} // namespace wire

#endif
