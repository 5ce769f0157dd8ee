#include "bench/station/escape.h"

#include <algorithm>
#include <iterator>

namespace
{

const struct {
    char letter;
    char byte;
} Escapes[] = {{'r', '\r'}, {'n', '\n'}, {'t', '\t'}, {'\\', '\\'}, {'"', '"'}};

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

} // namespace

QByteArray escaped(const QByteArray &bytes)
{
    QByteArray text;
    text.reserve(bytes.size() + 4);
    for (char byte : bytes) {
        const auto row = std::find_if(std::begin(Escapes), std::end(Escapes),
                                      [byte](const auto &each) { return each.byte == byte; });
        if (row != std::end(Escapes)) {
            text += '\\';
            text += row->letter;
        } else if (byte >= 0x20 && byte < 0x7F) {
            text += byte;
        } else {
            text += "\\x" + QByteArray(1, byte).toHex().toUpper();
        }
    }
    return text;
}

std::optional<QByteArray> unescaped(const QByteArray &text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    const int size = static_cast<int>(text.size());
    for (int at = 0; at < size; ++at) {
        if (text.at(at) != '\\') {
            bytes += text.at(at);
            continue;
        }
        ++at;
        const char letter = at < size ? text.at(at) : '\0';
        const auto row = std::find_if(std::begin(Escapes), std::end(Escapes),
                                      [letter](const auto &each) { return each.letter == letter; });
        if (row != std::end(Escapes)) {
            bytes += row->byte;
            continue;
        }
        const QByteArray digits = text.mid(at + 1, 2);
        if (letter != 'x' || digits.size() != 2 || !isHexDigit(digits.at(0)) ||
            !isHexDigit(digits.at(1)))
            return std::nullopt;
        bytes += QByteArray::fromHex(digits);
        at += 2;
    }
    return bytes;
}
