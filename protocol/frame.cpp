#include "protocol/frame.h"

#include <cstring>

namespace
{

// Where the fields of a frame are, in characters.
const int lengthAt = 2;
const int typeAt = 6;
const int headerCheckAt = 10;
const int dataAt = 12;
const int fieldWidth = 4;
const int endMarkWidth = 2;
const int smallestFrame = dataAt + fieldWidth + endMarkWidth;
/// Room for a length of more than four digits, too.
const int largestHeader = dataAt + 4;
/// Characters that the length field leaves out: both marks and the checksum.
const int uncounted = 8;
/// Characters that the length field counts besides the data.
const int countedHeader = 10;

quint16 sumOf(const char *characters, int count)
{
    quint16 sum = 0;
    for (int i = 0; i < count; ++i)
        sum = static_cast<quint16>(sum + static_cast<quint8>(characters[i]));
    return sum;
}

bool marksAreRight(const char *message, int size)
{
    const char *const end = message + size - endMarkWidth;
    return message[0] == '7' && (message[1] == 'E' || message[1] == 'e') && end[0] == '7' &&
           (end[1] == 'F' || end[1] == 'f');
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

/// Writes @p value in lower-case hexadecimal, padded with zeros to @p width digits; more
/// when it needs them.
/// @return the end of what was written
char *putHex(char *to, quint64 value, int width)
{
    while (value >> (4 * width) != 0)
        ++width;
    for (int i = width - 1; i >= 0; --i, value /= 16)
        to[i] = "0123456789abcdef"[value % 16];
    return to + width;
}

void raiseCase(char *from, const char *end)
{
    for (; from != end; ++from) {
        if (*from >= 'a')
            *from = static_cast<char>(*from - 'a' + 'A');
    }
}

} // namespace

ReceivedFrame checkFrame(const QByteArray &message, bool strict)
{
    ReceivedFrame frame = {FrameEmpty, 0, QByteArray(), 0};
    const char *const characters = message.constData();
    const int size = static_cast<int>(message.size());
    if (size == 0)
        return frame;
    if (size < smallestFrame) {
        frame.verdict = FrameTooShort;
        return frame;
    }
    if (!marksAreRight(characters, size)) {
        frame.verdict = FrameBadMarks;
        return frame;
    }

    frame.type = static_cast<quint16>(hexValue(characters + typeAt, fieldWidth));
    const uint length = static_cast<uint>(size - uncounted);
    if (strict && hexValue(characters + lengthAt, fieldWidth) != length) {
        frame.verdict = FrameBadLength;
        frame.expected = length;
        return frame;
    }

    const int checksumAt = size - endMarkWidth - fieldWidth;
    const quint16 checksum = sumOf(characters, checksumAt);
    if (strict && hexValue(characters + checksumAt, fieldWidth) != checksum) {
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

uint hexValue(const char *digits, int count)
{
    uint value = 0;
    for (int i = 0; i < count; ++i) {
        const int digit = digitValue(digits[i]);
        if (digit < 0)
            return 0;
        value = value * 16 + static_cast<uint>(digit);
    }
    return value;
}

QByteArray buildFrame(quint16 type, const QByteArray &data)
{
    const int dataSize = static_cast<int>(data.size());
    char header[largestHeader] = {'7', 'E'};
    char *end = putHex(header + lengthAt, static_cast<uint>(countedHeader + dataSize), fieldWidth);
    end = putHex(end, type, fieldWidth);
    // The station expects the sums over the lower-case header, although the
    // line carries it in upper case.
    int sum = sumOf(header, headerCheckAt);
    end = putHex(end, static_cast<uint>(sum) & 0xFFU, 2);
    const int headerSize = static_cast<int>(end - header);
    sum += sumOf(header + headerCheckAt, headerSize - headerCheckAt);
    sum += sumOf(data.constData(), dataSize);
    raiseCase(header, end);
    char trailer[] = "CCCC7F\r\n";
    raiseCase(trailer, putHex(trailer, static_cast<quint16>(sum), fieldWidth));

    const int trailerSize = static_cast<int>(sizeof(trailer)) - 1;
    QByteArray frame;
    frame.resize(headerSize + dataSize + trailerSize);
    char *to = frame.data();
    std::memcpy(to, header, static_cast<size_t>(headerSize));
    std::memcpy(to + headerSize, data.constData(), static_cast<size_t>(dataSize));
    std::memcpy(to + headerSize + dataSize, trailer, static_cast<size_t>(trailerSize));
    return frame;
}
