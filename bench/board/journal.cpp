#include "bench/board/journal.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace
{

// systemd's own numbers of what happens to a service (journalctl --catalog).
const char startedId[] = "39f53479d3a045ac8e11786248231fbf";
const char exitedId[] = "98e322203f7a4ed290d09fe03c09fe15";
const char succeededId[] = "7ad2d189f7e94e70a38c781354912448";

const char *const severities[] = {"emerg",   "alert",  "crit", "err",
                                  "warning", "notice", "info", "debug"};

/// A text, or the numbers of its bytes where it is not all printable.
QString textOf(const QJsonValue &value)
{
    if (!value.isArray())
        return value.toString();
    QByteArray bytes;
    const QJsonArray numbers = value.toArray();
    for (const QJsonValue &number : numbers)
        bytes.append(static_cast<char>(number.toInt()));
    return QString::fromUtf8(bytes);
}

void readEvent(const QJsonObject &object, Journal::Entry *entry)
{
    const QString id = object.value(QLatin1String("MESSAGE_ID")).toString();
    if (id == QLatin1String(startedId)) {
        entry->event = Journal::Started;
    } else if (id == QLatin1String(succeededId)) {
        entry->event = Journal::Ended;
        entry->status = 0;
    } else if (id == QLatin1String(exitedId)) {
        entry->event = Journal::Ended;
        const int number = object.value(QLatin1String("EXIT_STATUS")).toString().toInt();
        const bool exited =
            object.value(QLatin1String("EXIT_CODE")).toString() == QLatin1String("exited");
        entry->status = exited ? number : -1;
        entry->signal = exited ? 0 : number;
    }
}

} // namespace

bool Journal::read(const QByteArray &line, Entry *entry)
{
    const QJsonDocument document = QJsonDocument::fromJson(line);
    if (!document.isObject())
        return false;
    const QJsonObject object = document.object();
    *entry = Entry();
    const qint64 usec = object.value(QLatin1String("__REALTIME_TIMESTAMP")).toString().toLongLong();
    entry->time = QDateTime::fromMSecsSinceEpoch(usec / 1000, Qt::UTC)
                      .toString(QStringLiteral("hh:mm:ss.zzz"));
    const int priority = object.value(QLatin1String("PRIORITY")).toString().toInt();
    entry->severity = QLatin1String(severities[priority >= 0 && priority < 8 ? priority : 6]);
    entry->text = textOf(object.value(QLatin1String("MESSAGE")));
    readEvent(object, entry);
    return true;
}
