#include "protocol/frame.h"

namespace
{

// Where the fields of a frame stand, in characters.
const int lengthAt = 2;
const int typeAt = 6;
const int headerCheckAt = 10;
const int dataAt = 12;
const int fieldWidth = 4;
const int endMarkWidth = 2;
const int smallestFrame = dataAt + fieldWidth + endMarkWidth;
/// Characters that the length field leaves out: both marks and the checksum.
const int uncounted = 8;
/// Characters that the length field counts besides the data.
const int countedHeader = 10;

quint16 sumOf(const QByteArray &characters)
{
    quint16 sum = 0;
    for (int i = 0; i < characters.size(); ++i)
        sum = static_cast<quint16>(sum + static_cast<quint8>(characters.at(i)));
    return sum;
}

bool marksAreRight(const QByteArray &message)
{
    const int last = static_cast<int>(message.size()) - 1;
    return message.at(0) == '7' && (message.at(1) == 'E' || message.at(1) == 'e') &&
           message.at(last - 1) == '7' && (message.at(last) == 'F' || message.at(last) == 'f');
}

int digitValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    return -1;
}

/// Lower-case hexadecimal, zero-filled to @p width.
QByteArray hexField(uint value, int width)
{
    return QByteArray::number(value, 16).rightJustified(width, '0');
}

/// The header in lower case, its header check included.
QByteArray formatHeader(quint16 type, int dataSize)
{
    QByteArray header = "7E" + hexField(static_cast<uint>(dataSize + countedHeader), fieldWidth) +
                        hexField(type, fieldWidth);
    const uint check = sumOf(header.left(headerCheckAt)) & 0xFFU;
    return header + hexField(check, 2);
}

} // namespace

ReceivedFrame checkFrame(const QByteArray &message, bool strict)
{
    ReceivedFrame frame = {FrameEmpty, 0, QByteArray(), 0};
    const int size = static_cast<int>(message.size());
    if (size == 0)
        return frame;
    if (size < smallestFrame) {
        frame.verdict = FrameTooShort;
        return frame;
    }
    if (!marksAreRight(message)) {
        frame.verdict = FrameBadMarks;
        return frame;
    }

    frame.type = static_cast<quint16>(hexValue(message.mid(typeAt, fieldWidth)));
    const int length = size - uncounted;
    if (strict && hexValue(message.mid(lengthAt, fieldWidth)) != static_cast<uint>(length)) {
        frame.verdict = FrameBadLength;
        frame.expected = static_cast<uint>(length);
        return frame;
    }

    const int checksumAt = size - endMarkWidth - fieldWidth;
    const quint16 checksum = sumOf(message.left(checksumAt));
    if (strict && hexValue(message.mid(checksumAt, fieldWidth)) != checksum) {
        frame.verdict = FrameBadChecksum;
        frame.expected = checksum;
        return frame;
    }

    frame.verdict = FrameGood;
    frame.data = message.mid(dataAt, checksumAt - dataAt);
    return frame;
}

bool hasFrameMarks(FrameVerdict verdict)
{
    return verdict == FrameBadLength || verdict == FrameBadChecksum || verdict == FrameGood;
}

uint hexValue(const QByteArray &digits)
{
    uint value = 0;
    for (int i = 0; i < digits.size(); ++i) {
        const int digit = digitValue(digits.at(i));
        if (digit < 0)
            return 0;
        value = value * 16 + static_cast<uint>(digit);
    }
    return value;
}

QByteArray buildFrame(quint16 type, const QByteArray &data)
{
    // The station expects the sums over the lower-case header, although the
    // line carries it in upper case.
    const QByteArray header = formatHeader(type, static_cast<int>(data.size()));
    const uint checksum = static_cast<quint16>(sumOf(header) + sumOf(data));
    return header.toUpper() + data + hexField(checksum, fieldWidth).toUpper() + "7F\r\n";
}
