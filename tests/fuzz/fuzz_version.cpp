// The texts that come from the board's files: the version as a file holds it
// and as the reply carries it, and the bus voltage.
#include "tests/fuzz/fuzz.h"

#include <cctype>

#include "hardware/readings.h"
#include "protocol/replydata.h"
#include "tests/support/boardfolder.h"

namespace
{

void ignoreLog(QtMsgType, const QMessageLogContext &, const QString &) {}

struct Files {
    Files() { qInstallMessageHandler(ignoreLog); }
    BoardFolder folder;
};

bool isUpperHex(const QByteArray &digits)
{
    for (const char c : digits) {
        if (!(c >= '0' && c <= '9') && !(c >= 'A' && c <= 'F'))
            return false;
    }
    return true;
}

void checkVersion(const QByteArray &content, Files *files)
{
    files->folder.write("/usr/lib/panel/version", content);
    QString version;
    FUZZ_VERIFY(readVersion(files->folder.board(), false, &version), content);

    QByteArray text = content.trimmed();
    if (text.contains('\0'))
        text = text.left(text.indexOf('\0'));
    FUZZ_VERIFY(version == QString::fromLatin1(text), content);

    const QByteArray data = versionData(version);
    FUZZ_VERIFY(data.size() == 34, content);
    FUZZ_VERIFY(isUpperHex(data.left(4)), content);
    FUZZ_VERIFY(data.endsWith("0000000000000000"), content);
    for (int i = 0; i < 14; ++i) {
        const char original = i < text.size() ? text.at(i) : ' ';
        const char upper =
            original >= 'a' && original <= 'z' ? static_cast<char>(original - 32) : original;
        FUZZ_VERIFY(data.at(4 + i) == upper, content);
    }
    // A lone number of few digits must come back as itself.
    bool isNumber = !text.isEmpty() && text.size() <= 5;
    for (const char c : qAsConst(text))
        isNumber = isNumber && c >= '0' && c <= '9';
    if (isNumber) {
        FUZZ_VERIFY(data.left(2).toInt(nullptr, 16) == (text.toInt() & 0xFF), content);
        FUZZ_VERIFY(data.mid(2, 2) == "00", content);
    }
}

void checkVoltage(const QByteArray &content, Files *files)
{
    files->folder.write("/sys/class/power_supply/corlink/voltage_now", content);
    const QByteArray reading = readVoltage(files->folder.board());
    FUZZ_VERIFY(reading == content.trimmed(), content);
    const QByteArray data = voltageData(reading);
    FUZZ_VERIFY(data.size() == 8, content);
    for (int i = 0; i < 8; ++i) {
        const int at = i - qMax(0, 8 - static_cast<int>(reading.size()));
        FUZZ_VERIFY(data.at(i) == (at < 0 ? '0' : reading.at(at)), content);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Files files;
    const QByteArray content = fuzz::bytes(data, size);
    checkVersion(content, &files);
    checkVoltage(content, &files);
    return 0;
}
