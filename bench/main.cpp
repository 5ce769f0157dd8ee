#include "bench/station/stationcommand.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.value(0) == QLatin1String("station"))
        return stationCommand(args);
    if (args.value(0) == QLatin1String("decode"))
        return decodeCommand(args);
    std::fputs("Usage: bench station|decode ...\n", stderr);
    return 2;
}
