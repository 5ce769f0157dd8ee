// The lines of the SD card events.
#include "tests/fuzz/fuzz.h"

#include "hardware/sdevent.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray line = fuzz::bytes(data, size);
    const SdEvent event = parseSdEvent(line);
    const char first = line.isEmpty() ? '\0' : line.at(0);

    FUZZ_VERIFY((event.kind == SdEvent::Mounted) == (first == '#'), line);
    FUZZ_VERIFY((event.kind == SdEvent::Removed) == (first == '!'), line);
    if (line.isEmpty() || line == "\n")
        FUZZ_VERIFY(event.kind == SdEvent::Nothing, line);
    if (event.kind != SdEvent::Mounted && event.kind != SdEvent::Removed) {
        FUZZ_VERIFY(event.dir.isEmpty(), line);
        return 0;
    }

    // One line, no white space around it, and nothing after a zero byte.
    FUZZ_VERIFY(event.dir.trimmed() == event.dir, line);
    FUZZ_VERIFY(!event.dir.contains(QChar(0)), line);
    QByteArray dir = line.mid(1);
    const int zero = static_cast<int>(dir.indexOf('\0'));
    if (zero >= 0)
        dir.truncate(zero);
    FUZZ_VERIFY(event.dir.size() <= dir.size(), line);
    bool isAscii = true;
    for (const char c : qAsConst(dir))
        isAscii = isAscii && static_cast<signed char>(c) >= 0;
    FUZZ_VERIFY(!isAscii || event.dir == QString::fromLatin1(dir.trimmed()), line);
    return 0;
}
