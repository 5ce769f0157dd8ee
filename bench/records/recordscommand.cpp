#include "bench/records/recordscommand.h"

#include "bench/common/command.h"
#include "bench/records/csv.h"
#include "bench/records/importer.h"
#include "bench/records/questions.h"
#include "bench/records/recordsreport.h"
#include "bench/records/showrecord.h"
#include "bench/records/store.h"

#include <QDate>
#include <QFile>
#include <QSaveFile>

#include <cstdio>

namespace
{

const char Description[] =
    "Asks the store of all records, and fills it.\n"
    "\n"
    "Actions:\n"
    "  list              the newest records, one line each\n"
    "  show SERIAL       all attempts at one unit, the newest with its steps\n"
    "  export            CSV on standard output: a line for each record, or with --values for\n"
    "                    each measured value\n"
    "  report            one HTML page: yields, failures by step, measured values, slow steps\n"
    "  import [DIR ...]  stores every record below DIR (default bench-out); once and only once,\n"
    "                    however often it is called\n"
    "\n"
    "PLACE is a file of SQLite or postgresql://[user@]host[:port]/database, where libpq finds\n"
    "the password as usual (PGPASSWORD, ~/.pgpass).\n"
    "\n"
    "Exit status: 0 done, 1 there is no such record, or not all could be stored, 2 the command\n"
    "line is wrong, 4 the store cannot be asked.\n";

const char DefaultOut[] = "bench-out";

QCommandLineOption option(const char *name, const char *text, const char *value = "",
                          const QString &otherwise = QString())
{
    return QCommandLineOption(QLatin1String(name), QLatin1String(text), QLatin1String(value),
                              otherwise);
}

struct Choices {
    QCommandLineOption store = option("store", "The store (default bench-out/records.sqlite).",
                                      "place", QStringLiteral("bench-out/records.sqlite"));
    QCommandLineOption since = option("since", "From this day on, as 2026-11-21.", "day");
    QCommandLineOption until = option("until", "Up to this day.", "day");
    QCommandLineOption plan = option("plan", "Records of this plan.", "name");
    QCommandLineOption station = option("station", "Records of this station.", "name");
    QCommandLineOption variant = option("variant", "Records of this variant.", "name");
    QCommandLineOption outcome =
        option("outcome", "Records that ended so: pass, fail, time-out, error ...", "outcome");
    QCommandLineOption most =
        option("most", "How many records \"list\" shows (default 50).", "n", QStringLiteral("50"));
    QCommandLineOption values =
        option("values", "\"export\" writes a line for each measured value.");
    QCommandLineOption csv = option("csv", "The form of \"export\"; there is no other.");
    QCommandLineOption out =
        option("out", "Where \"report\" writes the page (default records.html).", "file",
               QStringLiteral("records.html"));
    QCommandLineOption waiting =
        option("waiting", "\"import\" stores only what the line could not store by itself.");

    QList<QCommandLineOption> all() const
    {
        return {store,   since, until,  plan, station, variant,
                outcome, most,  values, csv,  out,     waiting};
    }
};

struct Call {
    QString name; ///< of the command, for error messages
    const QCommandLineParser &parser;
    const Choices &choices;
    QStringList operands; ///< after the word that says what to do
    RecordFilter filter;
    Store *store;
};

int unable(const Call &call, const QString &error)
{
    return complain(call.name, error, BenchExit::Unable);
}

int wrong(const Call &call, const QString &reason)
{
    return complain(call.name, reason + QStringLiteral("; see bench records --help"),
                    BenchExit::Usage);
}

int list(const Call &call)
{
    const int most = call.parser.value(call.choices.most).toInt();
    QList<ListedRecord> records;
    QString error;
    if (!Questions(call.store->database(), call.filter).list(most, &records, &error))
        return unable(call, error);
    for (const ListedRecord &record : records)
        std::printf("%s\n", qPrintable(listLine(record)));
    return records.isEmpty()
               ? complain(call.name, QStringLiteral("there is no such record"), BenchExit::Failed)
               : BenchExit::Good;
}

int show(const Call &call)
{
    RecordFilter filter = call.filter;
    filter.serialNumber = call.operands.first();
    const Questions questions(call.store->database(), filter);
    QList<ListedRecord> attempts;
    QString error;
    QByteArray newest;
    if (!questions.each([&attempts](const ListedRecord &record) { attempts.append(record); },
                        &error))
        return unable(call, error);
    if (attempts.isEmpty())
        return complain(call.name,
                        QStringLiteral("there is no record of %1").arg(filter.serialNumber),
                        BenchExit::Failed);
    if (!questions.json(attempts.last().key, &newest, &error))
        return unable(call, error);
    for (const ListedRecord &attempt : attempts)
        std::printf("%s\n", qPrintable(listLine(attempt)));
    std::printf("\n%s", qPrintable(stepLines(newest)));
    return BenchExit::Good;
}

int exportCsv(const Call &call)
{
    QFile output;
    if (!output.open(stdout, QIODevice::WriteOnly))
        return unable(call, output.errorString());
    const Questions questions(call.store->database(), call.filter);
    QString error;
    const bool good = call.parser.isSet(call.choices.values)
                          ? writeValues(questions, &output, &error)
                          : writeRecords(questions, &output, &error);
    return good ? BenchExit::Good : unable(call, error);
}

int report(const Call &call)
{
    RecordsAnswer answer;
    QString error;
    if (!askAll(Questions(call.store->database(), call.filter), &answer, &error))
        return unable(call, error);
    answer.which = call.filter.describe();
    answer.time = QDateTime::currentDateTime();
    QSaveFile file(call.parser.value(call.choices.out));
    const QByteArray page = recordsReport(answer);
    if (!file.open(QIODevice::WriteOnly) || file.write(page) != page.size() || !file.commit())
        return unable(call, QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
    std::printf("%s\n", qPrintable(file.fileName()));
    return BenchExit::Good;
}

int import(const Call &call)
{
    const QStringList folders =
        call.operands.isEmpty() ? QStringList{QLatin1String(DefaultOut)} : call.operands;
    const ImportResult sum = importFolders(
        call.store, folders, call.parser.isSet(call.choices.waiting) ? WhatWaits : WhatIsThere);
    std::printf("%d stored, %d known", sum.stored, sum.known);
    std::printf(sum.waiting > 0 ? ", %d not stored\n" : "\n", sum.waiting);
    for (const QString &problem : sum.problems)
        complain(call.name, problem, BenchExit::Failed);
    return sum.problems.isEmpty() ? BenchExit::Good : BenchExit::Failed;
}

struct Action {
    const char *word;
    Store::Use use;
    int operands; ///< how many it takes, or Any
    int (*run)(const Call &call);
};

const int Any = -1;

const Action actions[] = {
    {"list", Store::Ask, 0, list},        {"show", Store::Ask, 1, show},
    {"export", Store::Ask, 0, exportCsv}, {"report", Store::Ask, 0, report},
    {"import", Store::Fill, Any, import},
};

bool isDay(const QString &text)
{
    return QDate::fromString(text, Qt::ISODate).isValid() && text.size() == 10;
}

/// Qt's drivers print long warnings of their own about what is reported anyway.
void dropWarnings(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtWarningMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

/// No option that names something may be empty.
bool checkOptions(const QCommandLineParser &parser, const Choices &choices, QString *error)
{
    const QList<QCommandLineOption> options = choices.all();
    for (const QCommandLineOption &option : options) {
        if (!option.valueName().isEmpty() && parser.isSet(option) && parser.value(option).isEmpty())
            *error = QStringLiteral("--%1 is empty").arg(option.names().first());
    }
    for (const QCommandLineOption &option : {choices.since, choices.until}) {
        if (parser.isSet(option) && !isDay(parser.value(option)))
            *error = QStringLiteral("--%1 takes a day as 2026-11-21").arg(option.names().first());
    }
    if (parser.isSet(choices.outcome) &&
        parser.positionalArguments().first() == QLatin1String("report"))
        *error = QStringLiteral("a report is about all outcomes: --outcome is for the others");
    bool isNumber = false;
    if (parser.value(choices.most).toInt(&isNumber) < 1 || !isNumber)
        *error = QStringLiteral("--most takes a number from 1");
    return error->isEmpty() && Store::isPlace(parser.value(choices.store), error);
}

/// What the first word asks for; nothing with *error.
const Action *actionOf(const QStringList &words, QString *error)
{
    if (words.isEmpty()) {
        *error = QStringLiteral("list, show, export, report or import?");
        return nullptr;
    }
    for (const Action &action : actions) {
        if (words.first() != QLatin1String(action.word))
            continue;
        const auto operands = words.size() - 1;
        if (action.operands == Any || action.operands == operands)
            return &action;
        *error = action.operands == 1
                     ? QStringLiteral("%1 takes one serial number").arg(words.first())
                     : QStringLiteral("%1 takes options only").arg(words.first());
        return nullptr;
    }
    *error = QStringLiteral("there is no \"%1\"").arg(words.first());
    return nullptr;
}

} // namespace

int recordsCommand(const QStringList &arguments)
{
    const Choices choices;
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1String(Description));
    parser.addOptions(choices.all());
    parser.addPositionalArgument(QStringLiteral("action"),
                                 QStringLiteral("What to do, and with what."),
                                 QStringLiteral("list|show|export|report|import [...]"));
    int status = BenchExit::Good;
    if (!parseCommand(parser, arguments, &status))
        return status;

    Store store;
    Call call{arguments.first(), parser, choices, parser.positionalArguments().mid(1), {}, &store};
    call.filter = {parser.value(choices.since),   parser.value(choices.until),
                   parser.value(choices.plan),    parser.value(choices.station),
                   parser.value(choices.variant), QString(),
                   parser.value(choices.outcome)};
    QString error;
    const Action *action = actionOf(parser.positionalArguments(), &error);
    if (action == nullptr || !checkOptions(parser, choices, &error))
        return wrong(call, error);
    qInstallMessageHandler(dropWarnings);
    if (!store.open(parser.value(choices.store), action->use, &error))
        return unable(call, error);
    return action->run(call);
}
