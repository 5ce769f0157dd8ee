#include "bench/line/plan.h"

#include "bench/line/planreader.h"
#include "bench/station/messages.h"
#include "bench/station/requests.h"

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

namespace
{

const int DefaultLimitMs = 3000;
const int DefaultOperatorLimitMs = 30000;
const int LongestMs = 3600000;
const int ScreenWidth = 800;
const int ScreenHeight = 480;
const int DefaultTolerance = 8;

/// What a keypad sends, in the order of the types.
QStringList replyNames()
{
    QStringList names;
    for (const wire::Message &message : wire::messages()) {
        if (message.sender == wire::Sender::Keypad)
            names.append(QString::fromLatin1(message.name));
    }
    return names;
}

QString number(double value)
{
    return QString::number(value, 'g', 10);
}

/// "gpio62/value": what tells one attribute from another.
QString lastTwo(const QString &path)
{
    return path.section(QLatin1Char('/'), -2);
}

/// @name Readers of the parts of a step; each returns what it could read and
/// leaves its complaint in the reader.
/// @{

QString path(PlanReader &reader, const QString &key)
{
    const QString path = reader.text(key, PlanReader::Required);
    if (!path.startsWith(QLatin1Char('/')))
        reader.refuse(QStringLiteral("\"%1\" must be a whole path, beginning with /").arg(key));
    return path;
}

QPoint screenPoint(PlanReader &reader, const QString &key)
{
    const QJsonArray list = reader.list(key);
    const QPoint point(list.at(0).toInt(-1), list.at(1).toInt(-1));
    if (list.size() != 2 || point.x() < 0 || point.x() >= ScreenWidth || point.y() < 0 ||
        point.y() >= ScreenHeight)
        reader.refuse(
            QStringLiteral("\"%1\" must be [x, y] with x from 0 to 799 and y from 0 to 479")
                .arg(key));
    return point;
}

Plan::Limit limit(PlanReader &reader, const QString &field, const QJsonValue &value)
{
    Plan::Limit limit;
    limit.field = field;
    if (value.isDouble()) {
        limit.min = limit.max = value.toDouble();
        return limit;
    }
    if (value.isString()) {
        limit.text = value.toString();
        return limit;
    }
    if (!value.isObject()) {
        reader.refuse(QStringLiteral("field \"%1\" must be a number, a text, or an object with "
                                     "\"min\" or \"max\"")
                          .arg(field));
        return limit;
    }
    PlanReader inner = reader.element(value, QStringLiteral("field \"%1\"").arg(field));
    limit.min = inner.number(QStringLiteral("min"));
    limit.max = inner.number(QStringLiteral("max"));
    limit.unit = inner.text(QStringLiteral("unit"));
    if (!limit.min && !limit.max)
        inner.miss(QStringLiteral("\"min\" or \"max\""));
    if (limit.min && limit.max && *limit.min > *limit.max)
        inner.refuse(QStringLiteral("\"min\" is above \"max\""));
    inner.finish();
    return limit;
}

QList<Plan::Limit> limits(PlanReader &reader, quint16 type)
{
    QList<Plan::Limit> limits;
    const QJsonObject fields = reader.object(QStringLiteral("fields"));
    const QStringList known = wire::fieldNames(type);
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        if (!known.contains(field.key())) {
            reader.refuse(QStringLiteral("a frame of type \"%1\" has no field \"%2\"; %3")
                              .arg(wire::typeName(type), field.key(),
                                   known.isEmpty() ? QStringLiteral("it has none")
                                                   : QStringLiteral("it has ") +
                                                         known.join(QStringLiteral(", "))));
            continue;
        }
        limits.append(limit(reader, field.key(), field.value()));
    }
    return limits;
}

/// The type of a frame that a keypad sends.
quint16 replyType(PlanReader &reader, const QString &name)
{
    const std::optional<quint16> type = messageType(name);
    if (!type) {
        reader.refuse(QStringLiteral("\"%1\" is neither four hexadecimal digits nor a reply of the "
                                     "keypad: %2")
                          .arg(name, replyNames().join(QStringLiteral(", "))));
        return 0;
    }
    if (wire::senderOf(*type) == wire::Sender::Station)
        reader.refuse(QStringLiteral("\"%1\" is a request, which no keypad sends").arg(name));
    return *type;
}

Plan::Expected expected(PlanReader &reader, const QJsonValue &value, const QString &what)
{
    Plan::Expected expected;
    if (value.isString()) {
        PlanReader inner = reader.inner(QJsonObject(), what);
        expected.type = replyType(inner, value.toString());
        return expected;
    }
    PlanReader inner = reader.element(value, what);
    expected.isFrame = !inner.has(QStringLiteral("line"));
    if (expected.isFrame) {
        const QString name = inner.text(QStringLiteral("frame"), PlanReader::Required);
        expected.type = name.isEmpty() ? quint16(0) : replyType(inner, name);
        expected.text = inner.anyText(QStringLiteral("data"));
        expected.fields = limits(inner, expected.type);
    } else {
        expected.text = inner.anyText(QStringLiteral("line"));
    }
    inner.finish();
    return expected;
}

QList<Plan::Store> stores(PlanReader &reader)
{
    QList<Plan::Store> stores;
    const QJsonArray list = reader.list(QStringLiteral("stores"));
    for (int i = 0; i < list.size(); ++i) {
        PlanReader inner = reader.element(list.at(i), QStringLiteral("store %1").arg(i + 1));
        Plan::Store store;
        store.path = path(inner, QStringLiteral("path"));
        if (!inner.has(QStringLiteral("text")))
            inner.miss(QStringLiteral("\"text\""));
        store.text = inner.anyText(QStringLiteral("text")).value_or(QString());
        inner.finish();
        stores.append(store);
    }
    return stores;
}

QColor colour(PlanReader &reader)
{
    static const QRegularExpression form(QStringLiteral("^#[0-9A-Fa-f]{6}$"));
    const QString name = reader.text(QStringLiteral("colour"), PlanReader::Required);
    if (!form.match(name).hasMatch())
        reader.refuse(QStringLiteral("\"colour\" must be \"#\" and six hexadecimal digits"));
    return QColor(name);
}

Plan::Check check(PlanReader &reader, const QJsonValue &value, const QString &what)
{
    static const QStringList kinds = {QStringLiteral("stores"), QStringLiteral("attribute"),
                                      QStringLiteral("pixel"),  QStringLiteral("file"),
                                      QStringLiteral("log"),    QStringLiteral("exit")};
    PlanReader inner = reader.element(value, what);
    QList<int> present;
    for (int kind = 0; kind < kinds.size(); ++kind) {
        if (inner.has(kinds.at(kind)))
            present.append(kind);
    }
    Plan::Check check;
    if (present.size() != 1) {
        inner.refuse(QStringLiteral("must have exactly one of \"%1\"")
                         .arg(kinds.join(QStringLiteral("\", \""))));
        return check;
    }
    check.kind = static_cast<Plan::Check::Kind>(present.first());
    switch (check.kind) {
    case Plan::Check::Stores:
        check.stores = stores(inner);
        break;
    case Plan::Check::Attribute:
        check.path = path(inner, QStringLiteral("attribute"));
        check.text = inner.text(QStringLiteral("text"), PlanReader::Required);
        break;
    case Plan::Check::Pixel:
        check.point = screenPoint(inner, QStringLiteral("pixel"));
        check.colour = colour(inner);
        check.tolerance = inner.integer(QStringLiteral("tolerance"), 0, 255, DefaultTolerance);
        break;
    case Plan::Check::File:
        check.path = path(inner, QStringLiteral("file"));
        check.text = inner.anyText(QStringLiteral("text"));
        check.exists = inner.boolean(QStringLiteral("exists"), true);
        if (check.text && !check.exists)
            inner.refuse(QStringLiteral("a file that does not exist has no \"text\""));
        break;
    case Plan::Check::Log:
        check.text = inner.text(QStringLiteral("log"));
        break;
    case Plan::Check::Exit:
        check.status = inner.requiredInteger(QStringLiteral("exit"), 0, 255);
        break;
    }
    inner.finish();
    return check;
}

Plan::Action action(PlanReader &reader, const QJsonValue &value, const QString &what)
{
    static const struct {
        const char *key;
        const char *on;
        const char *off;
    } switches[] = {{"power", "on", "off"},
                    {"home", "press", "release"},
                    {"tamper", "open", "close"},
                    {"card", "in", "out"}};
    PlanReader inner = reader.element(value, what);
    Plan::Action action;
    int found = 0;
    for (int kind = Plan::Action::Power; kind <= Plan::Action::Card; ++kind) {
        const QString key = QLatin1String(switches[kind].key);
        if (!inner.has(key))
            continue;
        ++found;
        action.kind = static_cast<Plan::Action::Kind>(kind);
        action.on = inner.choice(key, {QLatin1String(switches[kind].on),
                                       QLatin1String(switches[kind].off)}) == 0;
    }
    if (inner.has(QStringLiteral("touch"))) {
        ++found;
        action.kind = Plan::Action::Touch;
        action.point = screenPoint(inner, QStringLiteral("touch"));
        action.holdMs = inner.integer(QStringLiteral("hold_ms"), 1, 10000, 80);
    }
    if (found != 1)
        inner.refuse(QStringLiteral(
            "must have exactly one of \"power\", \"home\", \"tamper\", \"card\", \"touch\""));
    inner.finish();
    return action;
}

std::optional<Plan::Operation> operation(PlanReader &reader)
{
    const QString key = QStringLiteral("operator");
    if (!reader.has(key))
        return std::nullopt;
    PlanReader inner = reader.element(reader.value(key), key);
    Plan::Operation operation;
    operation.ask = inner.text(QStringLiteral("ask"), PlanReader::Required);
    const QJsonArray list = inner.list(QStringLiteral("do"), PlanReader::Required);
    for (int i = 0; i < list.size(); ++i)
        operation.actions.append(action(inner, list.at(i), QStringLiteral("do %1").arg(i + 1)));
    inner.finish();
    return operation;
}

/// What to do about a request that nobody knows.
QString requestHint(const QString &text)
{
    static const QRegularExpression numbered(QStringLiteral("^[0-9A-Fa-f]{4} "));
    if (numbered.match(text).hasMatch())
        return QStringLiteral("; what a request by number carries stands in \"data\"");
    const QString name = text.section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty);
    return wire::isRequestName(name) ? QString()
                                     : QStringLiteral("; \"bench station --help\" lists them all");
}

/// A request by name ("backlight 100") or by number, with its data apart.
wire::Frame request(PlanReader &reader)
{
    static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{4}$"));
    const QString text = reader.text(QStringLiteral("request"), PlanReader::Required);
    const std::optional<QString> data = reader.anyText(QStringLiteral("data"));
    wire::Frame frame;
    if (form.match(text).hasMatch()) {
        frame.type = static_cast<quint16>(text.toUInt(nullptr, 16));
        frame.data = data.value_or(QString()).toLatin1();
        return frame;
    }
    if (data)
        reader.refuse(QStringLiteral("\"data\" belongs to a request by number"));
    QString why;
    const std::optional<wire::Frame> named =
        wire::parseRequest(text.split(QLatin1Char(' '), Qt::SkipEmptyParts), &why);
    if (!named)
        reader.refuse(QStringLiteral("\"request\": %1%2").arg(why, requestHint(text)));
    return named.value_or(frame);
}

std::optional<Plan::Poll> poll(PlanReader &reader)
{
    const QString key = QStringLiteral("poll");
    if (!reader.has(key))
        return std::nullopt;
    PlanReader inner = reader.element(reader.value(key), key);
    Plan::Poll poll;
    poll.request = request(inner);
    const std::optional<wire::Answers> answers = wire::answersTo(poll.request.type);
    const quint16 answer = answers ? answers->reply : quint16(0);
    if (!inner.failed() && answer == 0)
        inner.refuse(QStringLiteral("that request has no answer to follow"));
    poll.everyMs = inner.integer(QStringLiteral("every_ms"), 1, 60000, 250);
    poll.atLeast = inner.integer(QStringLiteral("at_least"), 0, 100000, 1);
    poll.stallMs = inner.integer(QStringLiteral("stall_ms"), 1, LongestMs, 0);
    poll.fields = limits(inner, answer);
    poll.rising = inner.text(QStringLiteral("rising"));
    if (!poll.rising.isEmpty() && !wire::fieldNames(answer).contains(poll.rising))
        inner.refuse(QStringLiteral("the answer has no field \"%1\"").arg(poll.rising));
    inner.finish();
    return poll;
}

void readSending(PlanReader &reader, Plan::Step *step)
{
    const bool isRaw = reader.has(QStringLiteral("raw"));
    if (isRaw && reader.has(QStringLiteral("request"))) {
        reader.refuse(QStringLiteral("\"request\" and \"raw\" exclude each other"));
        return;
    }
    if (isRaw) {
        step->raw = reader.text(QStringLiteral("raw")).toLatin1();
        return;
    }
    if (!reader.has(QStringLiteral("request"))) {
        if (reader.has(QStringLiteral("data")))
            reader.refuse(QStringLiteral("\"data\" needs a \"request\""));
        return;
    }
    step->request = request(reader);
}

QString picture(PlanReader &reader)
{
    static const QRegularExpression form(QStringLiteral("^[a-z0-9-]+$"));
    const QString name = reader.text(QStringLiteral("picture"));
    if (!name.isEmpty() && !form.match(name).hasMatch())
        reader.refuse(QStringLiteral("\"picture\" must be a name of a-z, 0-9 and -"));
    return name;
}

Plan::Step readStep(PlanReader &reader, int defaultLimitMs)
{
    Plan::Step step;
    step.name = reader.text(QStringLiteral("name"), PlanReader::Required);
    step.group = reader.text(QStringLiteral("group"));
    step.operation = operation(reader);
    readSending(reader, &step);
    step.poll = poll(reader);
    const QJsonArray frames = reader.list(QStringLiteral("expect"));
    for (int i = 0; i < frames.size(); ++i)
        step.expected.append(
            expected(reader, frames.at(i), QStringLiteral("expect %1").arg(i + 1)));
    const QJsonArray checks = reader.list(QStringLiteral("check"));
    for (int i = 0; i < checks.size(); ++i)
        step.checks.append(check(reader, checks.at(i), QStringLiteral("check %1").arg(i + 1)));
    step.look = reader.text(QStringLiteral("look"));
    step.picture = picture(reader);
    step.limitMs = reader.integer(QStringLiteral("limit_ms"), 1, LongestMs, defaultLimitMs);
    step.quietMs = reader.integer(QStringLiteral("quiet_ms"), 1, 60000, 0);
    step.tries = reader.integer(QStringLiteral("tries"), 1, 10, 1);
    step.required = reader.boolean(QStringLiteral("required"), false);
    if (step.poll && step.expected.isEmpty())
        reader.refuse(QStringLiteral("a \"poll\" needs an \"expect\" that ends it"));
    if (step.expected.isEmpty() && step.checks.isEmpty() && step.look.isEmpty() &&
        step.quietMs == 0)
        reader.miss(QStringLiteral("it tests nothing: \"expect\", \"check\", \"look\" or "
                                   "\"quiet_ms\""));
    reader.finish();
    return step;
}

void readSteps(PlanReader &reader, int limitMs, Plan *plan)
{
    QSet<QString> names;
    QSet<QString> pictures;
    const QJsonArray list = reader.list(QStringLiteral("steps"), PlanReader::Required);
    for (int i = 0; i < list.size() && !reader.failed(); ++i) {
        QString place = QStringLiteral("step %1").arg(i + 1);
        const QString name = list.at(i).toObject().value(QStringLiteral("name")).toString();
        if (!name.isEmpty())
            place += QStringLiteral(" \"%1\"").arg(name);
        PlanReader inner = reader.element(list.at(i), place);
        const Plan::Step step = readStep(inner, limitMs);
        // A report that names the failed step must mean one.
        if (names.contains(step.name))
            inner.refuse(QStringLiteral("an earlier step has the same name"));
        if (!step.picture.isEmpty() && pictures.contains(step.picture))
            inner.refuse(QStringLiteral("an earlier step has a \"picture\" of the same name"));
        names.insert(step.name);
        pictures.insert(step.picture);
        plan->steps.append(step);
    }
}

/// @}

/// What is wrong with the JSON just there; Qt's own words for it say what its
/// parser was about, and not what to mend.
QString jsonComplaint(const QJsonParseError &error)
{
    switch (error.error) {
    case QJsonParseError::UnterminatedObject:
        return QStringLiteral("a comma or \"}\" is missing, or a key in double quotes");
    case QJsonParseError::UnterminatedArray:
    case QJsonParseError::MissingValueSeparator:
        return QStringLiteral("a comma or \"]\" is missing");
    case QJsonParseError::MissingObject:
        return QStringLiteral("nothing follows a comma");
    case QJsonParseError::MissingNameSeparator:
        return QStringLiteral("a colon is missing behind a key");
    case QJsonParseError::IllegalValue:
        return QStringLiteral("no JSON: it knows neither comments nor single quotes");
    default:
        return error.errorString();
    }
}

/// "line 3, column 7" of a byte.
QString lineAndColumn(const QByteArray &json, int offset)
{
    const QByteArray before = json.left(offset);
    const auto line = before.count('\n') + 1;
    const auto column = before.size() - before.lastIndexOf('\n');
    return QStringLiteral("line %1, column %2").arg(line).arg(column);
}

} // namespace

bool matches(const QString &pattern, const QString &text)
{
    // Where to go on when the characters after a star do not fit.
    qsizetype star = -1;
    qsizetype resume = 0;
    qsizetype p = 0;
    qsizetype t = 0;
    const auto at = [](const QString &s, qsizetype i) { return s.at(static_cast<int>(i)); };
    while (t < text.size()) {
        if (p < pattern.size() && at(pattern, p) == QLatin1Char('*')) {
            star = p++;
            resume = t;
        } else if (p < pattern.size() &&
                   (at(pattern, p) == QLatin1Char('?') || at(pattern, p) == at(text, t))) {
            ++p;
            ++t;
        } else if (star >= 0) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && at(pattern, p) == QLatin1Char('*'))
        ++p;
    return p == pattern.size();
}

std::optional<quint16> messageType(const QString &nameOrNumber)
{
    static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{4}$"));
    if (form.match(nameOrNumber).hasMatch())
        return static_cast<quint16>(nameOrNumber.toUInt(nullptr, 16));
    return wire::typeNamed(nameOrNumber);
}

QString Plan::Limit::describe() const
{
    QString range;
    if (text)
        range = QStringLiteral("'%1'").arg(*text);
    else if (min && max && *min == *max)
        range = number(*min);
    else if (min && max)
        range = QStringLiteral("%1 to %2").arg(number(*min), number(*max));
    else if (min)
        range = QStringLiteral("at least %1").arg(number(*min));
    else
        range = QStringLiteral("at most %1").arg(number(max.value_or(0)));
    return unit.isEmpty() ? range : range + QLatin1Char(' ') + unit;
}

QString Plan::Expected::describe() const
{
    if (!isFrame)
        return QStringLiteral("the unframed line \"%1\"").arg(text.value_or(QString()));
    QString description = wire::typeName(type);
    if (text && !text->isEmpty())
        description += QStringLiteral(" with data %1").arg(*text);
    for (const Limit &limit : fields)
        description += QStringLiteral(", %1 %2").arg(limit.field, limit.describe());
    return description;
}

QString Plan::Check::describe() const
{
    switch (kind) {
    case Stores: {
        QStringList list;
        for (const Store &store : stores)
            list.append(QStringLiteral("%1 to %2").arg(store.text, store.path));
        return QStringLiteral("store ") + list.join(QStringLiteral(", then "));
    }
    case Attribute:
        return QStringLiteral("%1 reads %2").arg(path, text.value_or(QString()));
    case Pixel:
        return QStringLiteral("pixel %1,%2 is %3").arg(point.x()).arg(point.y()).arg(colour.name());
    case File:
        if (!exists)
            return QStringLiteral("no file %1").arg(path);
        return text ? QStringLiteral("file %1 holds '%2'").arg(path, *text)
                    : QStringLiteral("file %1").arg(path);
    case Log:
        return QStringLiteral("log line \"%1\"").arg(text.value_or(QString()));
    case Exit:
        return QStringLiteral("the tool ends with exit status %1").arg(status);
    }
    return QString();
}

QString Plan::Check::brief() const
{
    switch (kind) {
    case Stores: {
        QStringList list;
        QString last;
        for (const Store &store : stores) {
            list.append(store.path == last
                            ? store.text
                            : QStringLiteral("%1=%2").arg(lastTwo(store.path), store.text));
            last = store.path;
        }
        return list.join(QLatin1Char(' '));
    }
    case Attribute:
        return QStringLiteral("%1 reads %2").arg(lastTwo(path), text.value_or(QString()));
    case Pixel:
        return QStringLiteral("pixel %1").arg(colour.name());
    case File:
        return exists ? path : QStringLiteral("no %1").arg(path);
    case Log:
        return QStringLiteral("logged");
    case Exit:
        return QStringLiteral("exit status %1").arg(status);
    }
    return QString();
}

std::optional<Plan> Plan::load(const QString &file, QString *error)
{
    QFile opened(file);
    if (!opened.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(file, opened.errorString());
        return std::nullopt;
    }
    return fromJson(opened.readAll(), file, error);
}

std::optional<Plan> Plan::fromJson(const QByteArray &json, const QString &file, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (document.isNull()) {
        *error = QStringLiteral("%1: %2: %3")
                     .arg(file, lineAndColumn(json, parseError.offset), jsonComplaint(parseError));
        return std::nullopt;
    }
    QString complaint;
    PlanReader reader(document.object(), QString(), &complaint);
    if (!document.isObject())
        reader.refuse(QStringLiteral("a plan is an object: { ... }"));
    Plan plan;
    plan.file = file;
    reader.anyText(QStringLiteral("$schema"));
    plan.name = reader.text(QStringLiteral("plan"), PlanReader::Required);
    plan.title = reader.text(QStringLiteral("title"), PlanReader::Required);
    const int limitMs = reader.integer(QStringLiteral("limit_ms"), 1, LongestMs, DefaultLimitMs);
    plan.operatorLimitMs =
        reader.integer(QStringLiteral("operator_limit_ms"), 1, LongestMs, DefaultOperatorLimitMs);
    readSteps(reader, limitMs, &plan);
    reader.finish();
    if (!complaint.isEmpty()) {
        *error = QStringLiteral("%1: %2").arg(file, complaint);
        return std::nullopt;
    }
    return plan;
}

bool Plan::needsDisplay() const
{
    return std::any_of(steps.begin(), steps.end(), [](const Step &step) {
        const bool pixel =
            std::any_of(step.checks.begin(), step.checks.end(),
                        [](const Check &check) { return check.kind == Check::Pixel; });
        const bool touch =
            step.operation &&
            std::any_of(step.operation->actions.begin(), step.operation->actions.end(),
                        [](const Action &action) { return action.kind == Action::Touch; });
        return pixel || touch || !step.picture.isEmpty();
    });
}
