/// What a fuzz target is made of. A target is one file with LLVMFuzzerTestOneInput():
/// linked with clang's fuzzer it is coverage-guided, linked with driver.cpp it is an
/// ordinary test over the kept corpus and seeded mutations of it.
#ifndef TESTS_FUZZ_FUZZ_H
#define TESTS_FUZZ_FUZZ_H

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Takes one input; always returns 0. What must never happen ends the process.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// Ends the process, naming the rule that @p input broke, unless @p condition holds.
#define FUZZ_VERIFY(condition, input)                                                              \
    do {                                                                                           \
        if (!(condition))                                                                          \
            fuzz::fail(#condition, __FILE__, __LINE__, input);                                     \
    } while (false)

namespace fuzz
{

[[noreturn]] inline void fail(const char *rule, const char *file, int line, const QByteArray &input)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n    for (hexadecimal) %s\n", file, line, rule,
                 input.toHex().constData());
    std::abort();
}

inline QByteArray bytes(const std::uint8_t *data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size));
}

/// Takes an input apart from its front. Past the end everything reads as zero or empty.
class Reader
{
public:
    explicit Reader(const QByteArray &input) : m_input(input) {}

    bool atEnd() const { return m_at >= m_input.size(); }
    std::uint8_t byte() { return atEnd() ? 0 : static_cast<std::uint8_t>(m_input.at(m_at++)); }
    int number16() { return static_cast<std::int16_t>(byte() << 8 | byte()); }
    QByteArray take(int size)
    {
        const QByteArray taken = m_input.mid(m_at, size);
        m_at += static_cast<int>(taken.size());
        return taken;
    }
    QByteArray rest() { return take(static_cast<int>(m_input.size()) - m_at); }

private:
    const QByteArray m_input;
    int m_at = 0;
};

} // namespace fuzz

#endif
