// The plan of a test line, as a file that anybody may have written.
#include "tests/fuzz/fuzz.h"

#include "bench/line/plan.h"

namespace
{

const QString file = QStringLiteral("plan.json");

void checkSteps(const Plan &plan, const QByteArray &json)
{
    FUZZ_VERIFY(!plan.name.isEmpty() && !plan.steps.isEmpty(), json);
    for (const Plan::Step &step : plan.steps) {
        FUZZ_VERIFY(!step.name.isEmpty(), json);
        FUZZ_VERIFY(step.tries >= 1 && step.limitMs >= 0 && step.quietMs >= 0, json);
        for (const Plan::Expected &expected : step.expected)
            FUZZ_VERIFY(!expected.describe().isEmpty(), json);
        for (const Plan::Check &check : step.checks)
            FUZZ_VERIFY(!check.describe().isEmpty(), json);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray json = fuzz::bytes(data, size);
    QString error;
    const std::optional<Plan> plan = Plan::fromJson(json, file, &error);
    if (plan) {
        FUZZ_VERIFY(error.isEmpty(), json);
        checkSteps(*plan, json);
        return 0;
    }
    // Refused with the file, the place and a reason; of several mistakes each on a line.
    const QStringList lines = error.split(QLatin1Char('\n'));
    FUZZ_VERIFY(lines.first().startsWith(file + QLatin1String(": ")), json);
    for (const QString &mistake : lines.mid(1))
        FUZZ_VERIFY(mistake.startsWith(QLatin1String("  ")) && mistake.size() > 2, json);
    return 0;
}
