#include "bench/common/command.h"

#include <QCoreApplication>

#include <cstdio>

bool parseCommand(QCommandLineParser &parser, const QStringList &arguments, int *status)
{
    const QCommandLineOption help = parser.addHelpOption();
    if (!parser.parse(arguments)) {
        *status = complain(arguments.first(), parser.errorText(), BenchExit::Usage);
        return false;
    }
    if (!parser.isSet(help))
        return true;
    // The parser knows the program's name only.
    QString text = parser.helpText();
    text.replace(QCoreApplication::arguments().constFirst(),
                 QLatin1String("bench ") + arguments.first());
    fputs(qPrintable(text), stdout);
    *status = BenchExit::Good;
    return false;
}

int complain(const QString &name, const QString &reason, int status)
{
    fprintf(stderr, "bench %s: %s\n", qPrintable(name), qPrintable(reason));
    return status;
}
