#include "bench/common/command.h"

#include <cstdio>

bool parseCommand(QCommandLineParser &parser, const QStringList &arguments, int *status)
{
    const QCommandLineOption help = parser.addHelpOption();
    QStringList words = arguments;
    // The usage line is to name the subcommand, and the parser takes it from here.
    words.first() = QStringLiteral("bench ") + arguments.first();
    if (!parser.parse(words)) {
        *status = complain(arguments.first(), parser.errorText(), BenchExit::Usage);
        return false;
    }
    if (!parser.isSet(help))
        return true;
    QString text = parser.helpText();
    fputs(qPrintable(text), stdout);
    *status = BenchExit::Good;
    return false;
}

int complain(const QString &name, const QString &reason, int status)
{
    fprintf(stderr, "bench %s: %s\n", qPrintable(name), qPrintable(reason));
    return status;
}
