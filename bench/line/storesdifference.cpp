#include "bench/line/storesdifference.h"

#include <algorithm>

namespace
{

QString described(const MadeStore &made)
{
    const QString text = made.refused ? made.text + QStringLiteral(" (refused)") : made.text;
    return Plan::Store{made.path, text}.describe();
}

QString place(const QList<Plan::Store> &wanted, int index)
{
    return QStringLiteral("store %1 of %2, %3")
        .arg(index + 1)
        .arg(wanted.size())
        .arg(wanted.at(index).describe());
}

} // namespace

StoresDifference storesDifference(const QList<Plan::Store> &wanted, const QList<MadeStore> &made)
{
    const int both = static_cast<int>(std::min(wanted.size(), made.size()));
    for (int i = 0; i < both; ++i) {
        if (made.at(i).path != wanted.at(i).path || made.at(i).refused ||
            !matches(wanted.at(i).text, made.at(i).text))
            return {StoresDifference::Wrong, place(wanted, i), described(made.at(i))};
    }
    if (made.size() > wanted.size())
        return {StoresDifference::Wrong, QStringLiteral("no store after %1").arg(wanted.size()),
                described(made.at(both))};
    if (made.size() < wanted.size())
        return {StoresDifference::Missing, place(wanted, both),
                made.isEmpty() ? QStringLiteral("none")
                               : QStringLiteral("none after store %1").arg(both)};
    return StoresDifference();
}
