#include "bench/station/transcript.h"

#include "bench/station/escape.h"

#include <QDateTime>
#include <QList>
#include <QSaveFile>

#include <algorithm>
#include <chrono>

namespace
{

const char *const firstLine = "# station transcript 1\n";

const struct {
    Transcript::Kind kind;
    char mark;
} Marks[] = {{Transcript::Sent, '>'}, {Transcript::Received, '<'}, {Transcript::Note, '-'}};

QByteArray timeText(qint64 time)
{
    const QDateTime stamp = QDateTime::fromMSecsSinceEpoch(time / 1000, Qt::UTC);
    return stamp.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz")).toLatin1() +
           QByteArray::number(time % 1000).rightJustified(3, '0') + 'Z';
}

std::optional<qint64> timeValue(const QByteArray &text)
{
    // 2026-03-01T09:30:00.123456Z
    const int milliSize = 23;
    const int wholeSize = 27;
    if (text.size() != wholeSize || !text.endsWith('Z'))
        return std::nullopt;
    const QDateTime stamp =
        QDateTime::fromString(QString::fromLatin1(text.left(milliSize) + 'Z'), Qt::ISODateWithMs);
    bool isNumber = false;
    const int micros = text.mid(milliSize, 3).toInt(&isNumber);
    if (!stamp.isValid() || !isNumber)
        return std::nullopt;
    return stamp.toMSecsSinceEpoch() * 1000 + micros;
}

/// Comments and notes take one line.
QByteArray oneLine(QString text)
{
    return text.replace(QLatin1Char('\n'), QLatin1Char(' '))
        .replace(QLatin1Char('\r'), QLatin1Char(' '))
        .toUtf8();
}

/// The place of the quote that ends the text begun by the quote at 0; -1 if there is
/// none.
int closingQuote(const QByteArray &text)
{
    const int size = static_cast<int>(text.size());
    for (int at = 1; at < size; ++at) {
        if (text.at(at) == '\\')
            ++at;
        else if (text.at(at) == '"')
            return at;
    }
    return -1;
}

/// Reads what follows the mark of a line with bytes.
bool readBytes(const QByteArray &rest, Transcript::Entry *entry, QString *error)
{
    const int end = rest.startsWith('"') ? closingQuote(rest) : -1;
    if (end < 0) {
        *error = QStringLiteral("bytes must stand between quotes");
        return false;
    }
    const std::optional<QByteArray> bytes = unescaped(rest.mid(1, end - 1));
    if (!bytes) {
        *error = QStringLiteral("unknown escape in the bytes");
        return false;
    }
    entry->bytes = *bytes;
    const QByteArray comment = rest.mid(end + 1).trimmed();
    if (!comment.isEmpty() && !comment.startsWith('#')) {
        *error = QStringLiteral("only a comment may follow the bytes");
        return false;
    }
    entry->text = QString::fromUtf8(comment.mid(1).trimmed());
    return true;
}

std::optional<Transcript::Entry> readEntry(const QByteArray &line, QString *error)
{
    const int size = static_cast<int>(line.size());
    const int blank = static_cast<int>(line.indexOf(' '));
    const int timeEnd = blank < 0 ? size : blank;
    const std::optional<qint64> time = timeValue(line.left(timeEnd));
    if (!time) {
        *error = QStringLiteral("no time such as 2026-03-01T09:30:00.123456Z at its start");
        return std::nullopt;
    }
    Transcript::Entry entry;
    entry.time = *time;
    const char mark = timeEnd + 1 < size ? line.at(timeEnd + 1) : '\0';
    const auto row = std::find_if(std::begin(Marks), std::end(Marks),
                                  [mark](const auto &each) { return each.mark == mark; });
    if (row == std::end(Marks)) {
        *error = QStringLiteral("no mark >, < or - after the time");
        return std::nullopt;
    }
    entry.kind = row->kind;
    const QByteArray rest = line.mid(timeEnd + 2).trimmed();
    if (entry.kind == Transcript::Note) {
        entry.text = QString::fromUtf8(rest);
        return entry;
    }
    if (!readBytes(rest, &entry, error))
        return std::nullopt;
    return entry;
}

} // namespace

bool Transcript::Entry::operator==(const Entry &other) const
{
    return time == other.time && kind == other.kind && bytes == other.bytes && text == other.text;
}

void Transcript::add(Kind kind, const QByteArray &bytes, const QString &text)
{
    Entry entry;
    entry.time = now();
    entry.kind = kind;
    entry.bytes = bytes;
    entry.text = text;
    append(entry);
}

void Transcript::append(const Entry &entry)
{
    if (m_file)
        log(line(entry));
    m_entries.push_back(entry);
    trim();
}

void Transcript::log(const QByteArray &line)
{
    if (m_file->write(line) == line.size() && m_file->flush())
        return;
    if (m_logError.isEmpty())
        m_logError = QStringLiteral("%1: %2").arg(m_file->fileName(), m_file->errorString());
}

void Transcript::setLimit(qint64 entries)
{
    m_limit = entries;
    trim();
}

void Transcript::trim()
{
    while (m_limit >= 0 && static_cast<qint64>(m_entries.size()) > m_limit)
        m_entries.pop_front();
}

bool Transcript::logTo(const QString &path, QString *error)
{
    auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        *error = QStringLiteral("%1: %2").arg(path, file->errorString());
        return false;
    }
    m_file = file;
    m_logError.clear();
    log(firstLine);
    return true;
}

QByteArray Transcript::toText() const
{
    QByteArray text = firstLine;
    for (const Entry &entry : m_entries)
        text += line(entry);
    return text;
}

bool Transcript::save(const QString &path, QString *error) const
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(toText()) >= 0 && file.flush() &&
        file.commit())
        return true;
    *error = QStringLiteral("%1: %2").arg(path, file.errorString());
    return false;
}

std::optional<Transcript> Transcript::fromText(const QByteArray &text, QString *error)
{
    Transcript transcript;
    int number = 0;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &each : lines) {
        ++number;
        const QByteArray content = each.trimmed();
        if (content.isEmpty() || content.startsWith('#'))
            continue;
        QString reason;
        const std::optional<Entry> entry = readEntry(content, &reason);
        if (!entry) {
            *error = QStringLiteral("line %1: %2").arg(number).arg(reason);
            return std::nullopt;
        }
        transcript.append(*entry);
    }
    return transcript;
}

std::optional<Transcript> Transcript::load(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    std::optional<Transcript> transcript = fromText(file.readAll(), error);
    if (!transcript)
        *error = QStringLiteral("%1: %2").arg(path, *error);
    return transcript;
}

QByteArray Transcript::line(const Entry &entry)
{
    const auto row = std::find_if(std::begin(Marks), std::end(Marks),
                                  [&](const auto &each) { return each.kind == entry.kind; });
    QByteArray line = timeText(entry.time) + ' ' + row->mark + ' ';
    if (entry.kind == Note)
        return line + oneLine(entry.text) + '\n';
    line += '"' + escaped(entry.bytes) + '"';
    if (!entry.text.isEmpty())
        line += " # " + oneLine(entry.text);
    return line + '\n';
}

qint64 Transcript::now()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}
