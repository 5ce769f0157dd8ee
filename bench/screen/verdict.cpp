#include "bench/screen/verdict.h"

#include "bench/screen/colours.h"

namespace
{

struct Row {
    const char *outcome;
    const char *word;
    Sign sign;
    QRgb colour;
};

const Row rows[] = {
    {"pass", "PASS", Sign::Tick, Colours::Good},
    {"fail", "FAIL", Sign::Cross, Colours::Bad},
    {"time-out", "TIME-OUT", Sign::Cross, Colours::Bad},
    {"error", "ERROR", Sign::Exclamation, Colours::Trouble},
    {"interrupted", "INTERRUPTED", Sign::Bar, Colours::Undecided},
    {"not run", "NOT TESTED", Sign::Bar, Colours::Undecided},
};

} // namespace

Verdict verdictOf(const QString &outcome)
{
    for (const Row &row : rows) {
        if (outcome == QLatin1String(row.outcome))
            return {QLatin1String(row.word), row.sign, row.colour, row.sign == Sign::Tick};
    }
    return {outcome.toUpper(), Sign::Exclamation, Colours::Trouble, false};
}
