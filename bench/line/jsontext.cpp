#include "bench/line/jsontext.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QSet>

#include <algorithm>

namespace
{

/// In UTF-8.
const char *const TypographicQuotes[] = {"\xE2\x80\x98", "\xE2\x80\x99", "\xE2\x80\x9A",
                                         "\xE2\x80\x9C", "\xE2\x80\x9D", "\xE2\x80\x9E",
                                         "\xC2\xAB",     "\xC2\xBB"};

bool isBlank(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
}

/// The one that begins there; empty if none does.
QString typographicQuote(const QByteArray &json, int at)
{
    for (const char *quote : TypographicQuotes) {
        const QByteArray bytes(quote);
        if (json.mid(at, bytes.size()) == bytes)
            return QString::fromUtf8(bytes);
    }
    return QString();
}

/// "line 3, column 7" of a byte; a column is a character.
QString place(const QByteArray &json, int offset)
{
    const QByteArray before = json.left(offset);
    const auto line = before.count('\n') + 1;
    const QByteArray start = before.mid(before.lastIndexOf('\n') + 1);
    const auto column = QString::fromUtf8(start).toUcs4().size() + 1;
    return QStringLiteral("line %1, column %2").arg(line).arg(column);
}

/// What is wrong with the JSON there. Qt's own message says what its parser was doing,
/// not what to correct.
QString parserComplaint(const QJsonParseError &error)
{
    switch (error.error) {
    case QJsonParseError::UnterminatedObject:
        return QStringLiteral("a comma or \"}\" is missing, or a key in double quotes");
    case QJsonParseError::UnterminatedArray:
    case QJsonParseError::MissingValueSeparator:
        return QStringLiteral("a comma or \"]\" is missing");
    case QJsonParseError::MissingObject:
        return QStringLiteral("nothing follows a comma, or a value is missing");
    case QJsonParseError::MissingNameSeparator:
        return QStringLiteral("a colon is missing after a key");
    case QJsonParseError::IllegalValue:
        return QStringLiteral("a value is missing, or is not a text, a number, a list, an object, "
                              "true, false or null");
    case QJsonParseError::IllegalUTF8String:
        return QStringLiteral("these bytes are not UTF-8");
    default:
        return error.errorString();
    }
}

/// Why the file as a whole cannot be JSON; empty when it can.
QString wholeComplaint(const QByteArray &json)
{
    const auto first = std::find_if_not(json.begin(), json.end(), isBlank);
    if (first == json.end())
        return QStringLiteral("it is empty");
    if (json.startsWith("\xFF\xFE") || json.startsWith("\xFE\xFF") || json.left(4).contains('\0'))
        return QStringLiteral("it is in UTF-16 or UTF-32; save it as UTF-8");
    if (*first == '{' || *first == '[' || *first == '/' || *first == '#')
        return QString();
    const QString text = QString::fromUtf8(json).trimmed();
    return QStringLiteral("it is %1%2; JSON begins with { here")
        .arg(visible(text.left(20)), QLatin1String(text.size() > 20 ? "..." : ""));
}

/// Goes through the characters once. Finds common mistakes for which parsers have no
/// message, and keys that an object has twice, which parsers accept.
class Scanner
{
public:
    explicit Scanner(const QByteArray &json) : m_json(json) {}

    void scan()
    {
        while (m_at < m_json.size() && m_complaint.isEmpty()) {
            if (byte() == '"')
                string();
            else
                between();
        }
    }

    /// What is not JSON; empty if there is nothing.
    QString complaint() const { return m_complaint; }
    QStringList duplicates() const { return m_duplicates; }

private:
    struct Open {
        bool isObject = false;
        bool wantsKey = false;
        QSet<QString> keys;
    };

    char byte() const { return m_json.at(m_at); }

    void refuse(const QString &reason)
    {
        m_complaint = place(m_json, m_at) + QLatin1String(": ") + reason;
    }

    void between()
    {
        const QString quote = typographicQuote(m_json, m_at);
        if (!quote.isEmpty())
            refuse(QStringLiteral("%1 is a typographic quote; JSON wants the plain \"").arg(quote));
        else if (byte() == '\'')
            refuse(QStringLiteral("JSON has double quotes, not single ones"));
        else if (byte() == '/' || byte() == '#')
            refuse(QStringLiteral("JSON has no comments"));
        else
            structure();
        ++m_at;
    }

    void structure()
    {
        if (byte() == '{')
            m_open.append({true, true, {}});
        else if (byte() == '[')
            m_open.append(Open());
        else if (m_open.isEmpty())
            return;
        else if (byte() == '}' || byte() == ']')
            m_open.removeLast();
        else if (byte() == ',')
            m_open.last().wantsKey = m_open.last().isObject;
        else if (byte() == ':')
            m_open.last().wantsKey = false;
    }

    void string()
    {
        const int from = m_at++;
        QString quote;
        while (m_at < m_json.size() && byte() != '"') {
            if (static_cast<unsigned char>(byte()) < 0x20) {
                brokenString(from, quote);
                return;
            }
            const QString found = typographicQuote(m_json, m_at);
            if (!found.isEmpty())
                quote = found;
            m_at += byte() == '\\' ? 2 : 1;
        }
        ++m_at;
        if (!m_open.isEmpty() && m_open.last().wantsKey)
            key(from);
    }

    void brokenString(int from, const QString &quote)
    {
        if (byte() != '\n' && byte() != '\r') {
            refuse(QStringLiteral("a text holds the control character %1")
                       .arg(visible(QString(QLatin1Char(byte())))));
            return;
        }
        m_at = from;
        refuse(QStringLiteral("this text has no end in its line") +
               (quote.isEmpty()
                    ? QString()
                    : QStringLiteral("; %1 is a typographic quote, JSON wants the plain \"")
                          .arg(quote)));
    }

    void key(int from)
    {
        // With its escapes resolved: "a" and "\u0061" are the same key.
        const QByteArray one = '[' + m_json.mid(from, m_at - from) + ']';
        const QString name = QJsonDocument::fromJson(one).array().at(0).toString();
        QSet<QString> &keys = m_open.last().keys;
        if (keys.contains(name))
            m_duplicates.append(QStringLiteral("%1: \"%2\" is there twice")
                                    .arg(place(m_json, from), visible(name)));
        keys.insert(name);
    }

    const QByteArray m_json;
    int m_at = 0;
    QList<Open> m_open;
    QString m_complaint;
    QStringList m_duplicates;
};

} // namespace

std::optional<QJsonValue> readJson(const QByteArray &bytes, QStringList *mistakes)
{
    const QByteArray json = bytes.startsWith("\xEF\xBB\xBF") ? bytes.mid(3) : bytes;
    const QString whole = wholeComplaint(json);
    if (!whole.isEmpty()) {
        mistakes->append(whole);
        return std::nullopt;
    }
    Scanner scanner(json);
    scanner.scan();
    if (!scanner.complaint().isEmpty()) {
        mistakes->append(scanner.complaint());
        return std::nullopt;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (document.isNull()) {
        mistakes->append(place(json, error.offset) + QLatin1String(": ") + parserComplaint(error));
        return std::nullopt;
    }
    *mistakes += scanner.duplicates();
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

QString visible(const QString &text)
{
    QString shown;
    for (const QChar character : text) {
        if (character.category() == QChar::Other_Control)
            shown += QStringLiteral("\\u%1").arg(character.unicode(), 4, 16, QLatin1Char('0'));
        else
            shown += character;
    }
    return shown;
}

bool hasControlCharacters(const QString &text, bool lines)
{
    return std::any_of(text.begin(), text.end(), [lines](QChar character) {
        const bool isLine = character == QLatin1Char('\n') || character == QLatin1Char('\r') ||
                            character == QLatin1Char('\t');
        return character.category() == QChar::Other_Control && !(lines && isLine);
    });
}
