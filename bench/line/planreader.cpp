#include "bench/line/planreader.h"

#include "bench/line/jsontext.h"
#include "bench/line/objectreader.h"
#include "bench/station/messages.h"
#include "bench/station/requests.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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
const int MostIncludes = 100;
const int MostRetests = 10;

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

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

/// @name Readers of the parts of a step; each returns what it could read and
/// notes its mistakes in the reader.
/// @{

QString path(ObjectReader &reader, const QString &key)
{
    const QString path = reader.text(key, ObjectReader::Required);
    if (!path.isEmpty() && !path.startsWith(QLatin1Char('/')))
        reader.refuse(QStringLiteral("\"%1\" must be a whole path, beginning with /").arg(key));
    return path;
}

QPoint screenPoint(ObjectReader &reader, const QString &key)
{
    const QJsonArray list = reader.value(key).toArray();
    const QPoint point(list.at(0).toInt(-1), list.at(1).toInt(-1));
    if (list.size() != 2 || point.x() < 0 || point.x() >= ScreenWidth || point.y() < 0 ||
        point.y() >= ScreenHeight)
        reader.refuse(
            QStringLiteral("\"%1\" must be [x, y] with x from 0 to 799 and y from 0 to 479")
                .arg(key));
    return point;
}

Plan::Limit limit(ObjectReader &reader, const QString &field, const QJsonValue &value)
{
    Plan::Limit limit;
    limit.field = field;
    if (value.isDouble()) {
        limit.min = limit.max = value.toDouble();
        return limit;
    }
    if (value.isString()) {
        limit.text = value.toString();
        if (hasControlCharacters(*limit.text, false))
            reader.refuse(QStringLiteral("field \"%1\" holds a control character: %2")
                              .arg(field, *limit.text));
        return limit;
    }
    if (!value.isObject()) {
        reader.refuse(QStringLiteral("field \"%1\" must be a number, a text, or an object with "
                                     "\"min\" or \"max\"")
                          .arg(field));
        return limit;
    }
    ObjectReader inner = reader.element(value, QStringLiteral("field \"%1\"").arg(field));
    limit.min = inner.number(QStringLiteral("min"));
    limit.max = inner.number(QStringLiteral("max"));
    limit.unit = inner.text(QStringLiteral("unit"));
    if (!inner.has(QStringLiteral("min")) && !inner.has(QStringLiteral("max")))
        inner.miss(QStringLiteral("\"min\" or \"max\""));
    if (limit.min && limit.max && *limit.min > *limit.max)
        inner.refuse(QStringLiteral("\"min\" is above \"max\""));
    inner.finish();
    return limit;
}

/// @param type  nothing if that is already wrong
QList<Plan::Limit> limits(ObjectReader &reader, std::optional<quint16> type)
{
    QList<Plan::Limit> limits;
    const QJsonObject fields = reader.object(QStringLiteral("fields"));
    const QStringList known = wire::fieldNames(type.value_or(0));
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        if (type && !known.contains(field.key())) {
            reader.refuse(QStringLiteral("a frame of type \"%1\" has no field \"%2\"; %3")
                              .arg(wire::typeName(type.value_or(0)), field.key(),
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
std::optional<quint16> replyType(ObjectReader &reader, const QString &name)
{
    const std::optional<quint16> type = messageType(name);
    if (!type) {
        reader.refuse(QStringLiteral("\"%1\" is neither four hexadecimal digits nor a reply of the "
                                     "keypad: %2")
                          .arg(name, replyNames().join(QStringLiteral(", "))));
        return std::nullopt;
    }
    if (wire::senderOf(*type) == wire::Sender::Station)
        reader.refuse(QStringLiteral("\"%1\" is a request, which no keypad sends").arg(name));
    return type;
}

Plan::Expected expected(ObjectReader &reader, const QJsonValue &value, const QString &what)
{
    Plan::Expected expected;
    if (value.isString()) {
        ObjectReader inner = reader.inner(QJsonObject(), what);
        expected.type = replyType(inner, value.toString()).value_or(0);
        return expected;
    }
    ObjectReader inner = reader.element(value, what);
    expected.isFrame = !inner.has(QStringLiteral("line"));
    if (expected.isFrame) {
        const QString name = inner.text(QStringLiteral("frame"), ObjectReader::Required);
        std::optional<quint16> type;
        if (!name.isEmpty())
            type = replyType(inner, name);
        expected.type = type.value_or(0);
        expected.text = inner.anyText(QStringLiteral("data"));
        expected.fields = limits(inner, type);
    } else {
        expected.text = inner.anyText(QStringLiteral("line"));
    }
    inner.finish();
    return expected;
}

QList<Plan::Store> stores(ObjectReader &reader)
{
    QList<Plan::Store> stores;
    const QJsonArray list = reader.list(QStringLiteral("stores"));
    for (int i = 0; i < list.size(); ++i) {
        ObjectReader inner = reader.element(list.at(i), QStringLiteral("store %1").arg(i + 1));
        Plan::Store store;
        store.path = path(inner, QStringLiteral("path"));
        store.text =
            inner.anyText(QStringLiteral("text"), ObjectReader::Required, ObjectReader::Lines)
                .value_or(QString());
        inner.finish();
        stores.append(store);
    }
    return stores;
}

QColor colour(ObjectReader &reader)
{
    static const QRegularExpression form(QStringLiteral("^#[0-9A-Fa-f]{6}$"));
    const QString name = reader.text(QStringLiteral("colour"), ObjectReader::Required);
    if (!name.isEmpty() && !form.match(name).hasMatch())
        reader.refuse(QStringLiteral("\"colour\" must be \"#\" and six hexadecimal digits"));
    return QColor(name);
}

Plan::Check check(ObjectReader &reader, const QJsonValue &value, const QString &what)
{
    static const QStringList kinds = {QStringLiteral("stores"), QStringLiteral("attribute"),
                                      QStringLiteral("pixel"),  QStringLiteral("file"),
                                      QStringLiteral("log"),    QStringLiteral("exit")};
    ObjectReader inner = reader.element(value, what);
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
        check.text =
            inner.text(QStringLiteral("text"), ObjectReader::Required, ObjectReader::Lines);
        break;
    case Plan::Check::Pixel:
        check.point = screenPoint(inner, QStringLiteral("pixel"));
        check.colour = colour(inner);
        check.tolerance = inner.integer(QStringLiteral("tolerance"), 0, 255, DefaultTolerance);
        break;
    case Plan::Check::File:
        check.path = path(inner, QStringLiteral("file"));
        check.text =
            inner.anyText(QStringLiteral("text"), ObjectReader::Optional, ObjectReader::Lines);
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

Plan::Action action(ObjectReader &reader, const QJsonValue &value, const QString &what)
{
    static const struct {
        const char *key;
        const char *on;
        const char *off;
    } switches[] = {{"power", "on", "off"},
                    {"home", "press", "release"},
                    {"tamper", "open", "close"},
                    {"card", "in", "out"}};
    ObjectReader inner = reader.element(value, what);
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
    if (found == 1)
        inner.finish();
    else
        inner.refuse(QStringLiteral(
            "must have exactly one of \"power\", \"home\", \"tamper\", \"card\", \"touch\""));
    return action;
}

std::optional<Plan::Operation> operation(ObjectReader &reader)
{
    const QString key = QStringLiteral("operator");
    if (!reader.has(key))
        return std::nullopt;
    ObjectReader inner = reader.element(reader.value(key), key);
    Plan::Operation operation;
    operation.ask = inner.text(QStringLiteral("ask"), ObjectReader::Required);
    const QJsonArray list = inner.list(QStringLiteral("do"), ObjectReader::Required);
    for (int i = 0; i < list.size(); ++i)
        operation.actions.append(action(inner, list.at(i), QStringLiteral("do %1").arg(i + 1)));
    operation.bootMs = inner.integer(QStringLiteral("boot_ms"), 1, LongestMs, 0);
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

/// A request by name ("backlight 100") or by number, with its data apart; nothing when it
/// is wrong.
std::optional<wire::Frame> request(ObjectReader &reader)
{
    static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{4}$"));
    const QString text = reader.text(QStringLiteral("request"), ObjectReader::Required);
    const std::optional<QString> data = reader.anyText(QStringLiteral("data"));
    if (text.isEmpty())
        return std::nullopt;
    if (form.match(text).hasMatch()) {
        wire::Frame frame;
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
    return named;
}

std::optional<Plan::Poll> poll(ObjectReader &reader)
{
    const QString key = QStringLiteral("poll");
    if (!reader.has(key))
        return std::nullopt;
    ObjectReader inner = reader.element(reader.value(key), key);
    Plan::Poll poll;
    const std::optional<wire::Frame> asked = request(inner);
    poll.request = asked.value_or(wire::Frame());
    std::optional<quint16> answer;
    const std::optional<wire::Answers> answers = wire::answersTo(poll.request.type);
    if (asked && answers && answers->reply != 0)
        answer = answers->reply;
    if (asked && !answer)
        inner.refuse(QStringLiteral("that request has no answer to follow"));
    poll.everyMs = inner.integer(QStringLiteral("every_ms"), 1, 60000, 250);
    poll.atLeast = inner.integer(QStringLiteral("at_least"), 0, 100000, 1);
    poll.stallMs = inner.integer(QStringLiteral("stall_ms"), 1, LongestMs, 0);
    poll.fields = limits(inner, answer);
    poll.rising = inner.text(QStringLiteral("rising"));
    if (answer && !poll.rising.isEmpty() && !wire::fieldNames(*answer).contains(poll.rising))
        inner.refuse(QStringLiteral("the answer has no field \"%1\"").arg(poll.rising));
    inner.finish();
    return poll;
}

void readSending(ObjectReader &reader, Plan::Step *step)
{
    const bool isRaw = reader.has(QStringLiteral("raw"));
    const bool isRequest = reader.has(QStringLiteral("request"));
    if (isRaw)
        step->raw =
            reader.text(QStringLiteral("raw"), ObjectReader::Optional, ObjectReader::AnyCharacter)
                .toLatin1();
    if (isRequest)
        step->request = request(reader);
    else if (reader.anyText(QStringLiteral("data")))
        reader.refuse(QStringLiteral("\"data\" needs a \"request\""));
    if (isRaw && isRequest)
        reader.refuse(QStringLiteral("\"request\" and \"raw\" cannot be used together"));
}

QString picture(ObjectReader &reader)
{
    static const QRegularExpression form(QStringLiteral("^[a-z0-9-]+$"));
    const QString name = reader.text(QStringLiteral("picture"));
    if (!name.isEmpty() && !form.match(name).hasMatch())
        reader.refuse(QStringLiteral("\"picture\" must be a name of a-z, 0-9 and -"));
    return name;
}

std::optional<Plan::Calibration> calibration(ObjectReader &reader)
{
    const QString key = QStringLiteral("calibration");
    if (!reader.has(key))
        return std::nullopt;
    ObjectReader inner = reader.element(reader.value(key), key);
    Plan::Calibration calibration;
    const QString limit = QStringLiteral("max_error_px");
    if (!inner.has(limit))
        inner.miss(QStringLiteral("\"max_error_px\""));
    const std::optional<double> most = inner.number(limit);
    if (most && (*most <= 0 || *most > ScreenWidth))
        inner.refuse(QStringLiteral("\"max_error_px\" must be above 0 and at most 800"));
    calibration.maxErrorPx = most.value_or(0);
    calibration.xGrowsRight = inner.choice(QStringLiteral("x_grows"),
                                           {QStringLiteral("right"), QStringLiteral("left")}) != 1;
    calibration.yGrowsDown = inner.choice(QStringLiteral("y_grows"),
                                          {QStringLiteral("down"), QStringLiteral("up")}) != 1;
    inner.finish();
    return calibration;
}

/// Whether the step has any member that can find a mistake, right or wrong.
bool testsSomething(const ObjectReader &reader)
{
    for (const char *key : {"expect", "calibration", "check", "look", "quiet_ms"}) {
        if (reader.has(QLatin1String(key)))
            return true;
    }
    return false;
}

Plan::Step readStep(ObjectReader &reader, int defaultLimitMs)
{
    Plan::Step step;
    step.name = reader.text(QStringLiteral("name"), ObjectReader::Required);
    step.group = reader.text(QStringLiteral("group"));
    step.operation = operation(reader);
    readSending(reader, &step);
    step.poll = poll(reader);
    const QJsonArray frames = reader.list(QStringLiteral("expect"));
    for (int i = 0; i < frames.size(); ++i)
        step.expected.append(
            expected(reader, frames.at(i), QStringLiteral("expect %1").arg(i + 1)));
    step.calibration = calibration(reader);
    const QJsonArray checks = reader.list(QStringLiteral("check"));
    for (int i = 0; i < checks.size(); ++i)
        step.checks.append(check(reader, checks.at(i), QStringLiteral("check %1").arg(i + 1)));
    step.look = reader.text(QStringLiteral("look"));
    step.picture = picture(reader);
    step.limitMs = reader.integer(QStringLiteral("limit_ms"), 1, LongestMs, defaultLimitMs);
    step.quietMs = reader.integer(QStringLiteral("quiet_ms"), 1, 60000, 0);
    step.tries = reader.integer(QStringLiteral("tries"), 1, 10, 1);
    step.required = reader.boolean(QStringLiteral("required"), false);
    if (step.poll && !reader.has(QStringLiteral("expect")))
        reader.refuse(QStringLiteral("a \"poll\" needs an \"expect\" that ends it"));
    if (!testsSomething(reader))
        reader.miss(QStringLiteral("it tests nothing: \"expect\", \"calibration\", \"check\", "
                                   "\"look\" or \"quiet_ms\""));
    reader.finish();
    return step;
}

/// Reads the steps of a plan, and of the files that it includes.
class StepsReader
{
public:
    StepsReader(const PlanVariables &variables, int limitMs, Plan *plan)
        : m_variables(variables), m_limitMs(limitMs), m_plan(plan), m_chain(plan->file)
    {
    }

    void read(ObjectReader &reader)
    {
        const QJsonArray list = reader.list(QStringLiteral("steps"), ObjectReader::Required);
        for (int i = 0; i < list.size(); ++i)
            readElement(reader, QStringLiteral("step %1").arg(i + 1), list.at(i));
    }

private:
    void readElement(ObjectReader &reader, QString place, const QJsonValue &value)
    {
        const QString name = value.toObject().value(QStringLiteral("name")).toString();
        if (!name.isEmpty())
            place += QStringLiteral(" \"%1\"").arg(name);
        ObjectReader original = reader.element(value, place);
        const QJsonValue filled = m_variables.filledIn(value, original);
        ObjectReader inner = reader.inner(filled.toObject(), place);
        if (!value.isObject())
            return;
        if (inner.has(QStringLiteral("include")))
            include(inner);
        else
            take(inner);
    }

    void take(ObjectReader &inner)
    {
        const Plan::Step step = readStep(inner, m_limitMs);
        // A report that names the failed step must mean only one.
        if (!step.name.isEmpty() && m_names.contains(step.name))
            inner.refuse(QStringLiteral("an earlier step has the same name"));
        if (!step.picture.isEmpty() && m_pictures.contains(step.picture))
            inner.refuse(QStringLiteral("an earlier step has a \"picture\" of the same name"));
        m_names.insert(step.name);
        m_pictures.insert(step.picture);
        m_plan->steps.append(step);
    }

    void include(ObjectReader &inner)
    {
        const QString name = inner.text(QStringLiteral("include"));
        inner.finish();
        if (name.isEmpty())
            return;
        const QString file = QDir::cleanPath(QFileInfo(m_chain.last()).dir().filePath(name));
        const QStringList chain = m_chain + QStringList(file);
        if (isOpen(file)) {
            inner.refuse(QStringLiteral("the files include each other: %1")
                             .arg(chain.join(QStringLiteral(", then "))));
        } else if (m_plan->includes.size() == MostIncludes) {
            if (!m_isTooMuch)
                inner.refuse(QStringLiteral("more than %1 files are included").arg(MostIncludes));
            m_isTooMuch = true;
        } else {
            m_chain = chain;
            readFile(inner, file);
            m_chain.removeLast();
        }
    }

    bool isOpen(const QString &file) const
    {
        const QString path = QFileInfo(file).canonicalFilePath();
        return std::any_of(m_chain.begin(), m_chain.end(), [&path](const QString &each) {
            return !path.isEmpty() && QFileInfo(each).canonicalFilePath() == path;
        });
    }

    void readFile(ObjectReader &inner, const QString &file)
    {
        QFile opened(file);
        if (QFileInfo::exists(file) && !QFileInfo(file).isFile()) {
            inner.refuse(QStringLiteral("%1 is not a file").arg(file));
            return;
        }
        if (!opened.open(QIODevice::ReadOnly)) {
            inner.refuse(QStringLiteral("%1: %2").arg(file, opened.errorString()));
            return;
        }
        const QByteArray bytes = opened.readAll();
        m_plan->includes.append({file, sha256(bytes)});
        QStringList mistakes;
        const std::optional<QJsonValue> value = readJson(bytes, &mistakes);
        for (const QString &mistake : mistakes)
            inner.refuse(QStringLiteral("%1: %2").arg(file, mistake));
        if (!value)
            return;
        ObjectReader reader = inner.element(*value, file);
        if (!value->isObject())
            return;
        reader.anyText(QStringLiteral("$schema"));
        read(reader);
        reader.finish();
    }

    const PlanVariables &m_variables;
    const int m_limitMs;
    Plan *m_plan;
    QStringList m_chain; ///< the files that are being read, from the plan on
    QSet<QString> m_names;
    QSet<QString> m_pictures;
    bool m_isTooMuch = false;
};

QRegularExpression serialNumber(ObjectReader &reader)
{
    const QString pattern = reader.text(QStringLiteral("serial_number"));
    const QRegularExpression expression(QRegularExpression::anchoredPattern(pattern));
    // Without brackets around it: "a)(b" is not one, but within brackets it would be.
    const QRegularExpression alone(pattern);
    if (!alone.isValid())
        reader.refuse(QStringLiteral("\"serial_number\" is not a regular expression: %1")
                          .arg(alone.errorString()));
    return pattern.isEmpty() ? QRegularExpression() : expression;
}

Plan::Retest retest(ObjectReader &reader)
{
    const QString key = QStringLiteral("retest");
    if (!reader.has(key))
        return Plan::Retest();
    ObjectReader inner = reader.element(reader.value(key), key);
    Plan::Retest retest;
    retest.times = inner.requiredInteger(QStringLiteral("times"), 1, MostRetests);
    retest.byHand = inner.choice(QStringLiteral("when"),
                                 {QStringLiteral("at once"), QStringLiteral("by hand")}) == 1;
    inner.finish();
    return retest;
}

void readMembers(const QJsonObject &object, const PlanSettings &settings, Plan *plan,
                 QStringList *mistakes)
{
    ObjectReader reader(object, QString(), mistakes);
    PlanVariables variables;
    variables.read(reader, settings);
    plan->variables = variables.settings();
    plan->variant = settings.variant;
    reader.anyText(QStringLiteral("$schema"));
    plan->name = reader.text(QStringLiteral("plan"), ObjectReader::Required);
    plan->title =
        variables.filledIn(reader.text(QStringLiteral("title"), ObjectReader::Required), reader)
            .toVariant()
            .toString();
    plan->serialNumber = serialNumber(reader);
    plan->wantsOperator = reader.boolean(QStringLiteral("operator"), false);
    plan->retest = retest(reader);
    const int limitMs = reader.integer(QStringLiteral("limit_ms"), 1, LongestMs, DefaultLimitMs);
    plan->operatorLimitMs =
        reader.integer(QStringLiteral("operator_limit_ms"), 1, LongestMs, DefaultOperatorLimitMs);
    StepsReader(variables, limitMs, plan).read(reader);
    reader.finish();
}

/// @}

} // namespace

std::optional<Plan> readPlan(const QByteArray &json, const QString &file,
                             const PlanSettings &settings, QString *error)
{
    QStringList mistakes;
    Plan plan;
    plan.file = file;
    plan.sha256 = sha256(json);
    const std::optional<QJsonValue> value = readJson(json, &mistakes);
    if (value && !value->isObject())
        mistakes.append(QStringLiteral("a plan is an object: { ... }"));
    else if (value)
        readMembers(value->toObject(), settings, &plan, &mistakes);
    if (mistakes.isEmpty())
        return plan;
    *error = mistakes.size() == 1 ? QStringLiteral("%1: %2").arg(file, mistakes.first())
                                  : QStringLiteral("%1: %2 mistakes:\n  %3")
                                        .arg(file)
                                        .arg(mistakes.size())
                                        .arg(mistakes.join(QStringLiteral("\n  ")));
    return std::nullopt;
}
