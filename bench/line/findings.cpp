#include "bench/line/findings.h"

#include <QSet>

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace
{

bool isNear(int a, int b, int tolerance)
{
    return std::abs(a - b) <= tolerance;
}

} // namespace

Unit::Finding Findings::stores(const Plan::Check &check, const QList<MadeStore> &made,
                               Unit::Difference *difference)
{
    QSet<QString> paths;
    for (const Plan::Store &store : check.stores)
        paths.insert(store.path);
    QList<MadeStore> theirs;
    std::copy_if(made.begin(), made.end(), std::back_inserter(theirs),
                 [&paths](const MadeStore &store) { return paths.contains(store.path); });
    const StoresDifference first = storesDifference(check.stores, theirs);
    *difference = {first.wanted, first.found};
    switch (first.kind) {
    case StoresDifference::None:
        return Unit::Holds;
    case StoresDifference::Missing:
        return Unit::NotYet;
    case StoresDifference::Wrong:
        break;
    }
    return Unit::Broken;
}

Unit::Finding Findings::text(const Plan::Check &check, const QByteArray &bytes, QString *found)
{
    const QString text = QString::fromLatin1(bytes).trimmed();
    *found = QStringLiteral("'%1'").arg(text);
    return !check.text || matches(*check.text, text) ? Unit::Holds : Unit::NotYet;
}

Unit::Finding Findings::file(const Plan::Check &check, bool exists, const QByteArray &bytes,
                             QString *found)
{
    *found = exists ? QStringLiteral("it exists") : QStringLiteral("no such file");
    if (exists != check.exists)
        return Unit::NotYet;
    return exists ? text(check, bytes, found) : Unit::Holds;
}

Unit::Finding Findings::pixel(const Plan::Check &check, const QImage &screen, QString *found)
{
    if (!screen.valid(check.point))
        return Unit::CannotLook;
    const QColor colour = screen.pixelColor(check.point);
    *found = colour.name();
    const bool near = isNear(colour.red(), check.colour.red(), check.tolerance) &&
                      isNear(colour.green(), check.colour.green(), check.tolerance) &&
                      isNear(colour.blue(), check.colour.blue(), check.tolerance);
    return near ? Unit::Holds : Unit::NotYet;
}

Unit::Finding Findings::log(const Plan::Check &check, const QStringList &lines, QString *found)
{
    const QString wanted = check.text.value_or(QString());
    const bool logged = std::any_of(lines.begin(), lines.end(), [&wanted](const QString &line) {
        return line.contains(wanted);
    });
    *found = lines.isEmpty() ? QStringLiteral("no line")
                             : QStringLiteral("\"%1\" and before it %2 others")
                                   .arg(lines.last().trimmed())
                                   .arg(lines.size() - 1);
    return logged ? Unit::Holds : Unit::NotYet;
}

QString Findings::ending(int status, int signal)
{
    return signal != 0 ? QStringLiteral("the tool was ended by signal %1").arg(signal)
                       : QStringLiteral("the tool ended with exit status %1").arg(status);
}
