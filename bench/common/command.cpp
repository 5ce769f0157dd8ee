#include "bench/common/command.h"

#include <QCoreApplication>

#include <cstdio>

bool parseCommand(QCommandLineParser &parser, const QStringList &arguments, int *status)
{
    // The parser's own help option would add another one, for programs with windows.
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    parser.addOption(help);
    if (!parser.parse(arguments)) {
        QString reason = parser.errorText();
        reason.chop(1); // its full stop
        *status = complain(arguments.first(),
                           QStringLiteral("%1; see bench %2 --help").arg(reason, arguments.first()),
                           BenchExit::Usage);
        return false;
    }
    if (!parser.isSet(help))
        return true;
    // The parser knows the program's name only.
    const QString usage = QLatin1String("Usage: ");
    QString text = parser.helpText();
    text.remove(0, usage.size() + QCoreApplication::arguments().constFirst().size());
    text.prepend(usage + QLatin1String("bench ") + arguments.first());
    fputs(qPrintable(text), stdout);
    *status = BenchExit::Good;
    return false;
}

int complain(const QString &name, const QString &reason, int status)
{
    fprintf(stderr, "bench %s: %s\n", qPrintable(name), qPrintable(reason));
    return status;
}
