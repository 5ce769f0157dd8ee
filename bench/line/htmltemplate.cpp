#include "bench/line/htmltemplate.h"

#include <QList>

namespace
{

class Filler
{
public:
    explicit Filler(const QString &page) : m_page(page) {}

    QString fill(const QVariantMap &values)
    {
        m_scopes = {values};
        return part(0, static_cast<int>(m_page.size()));
    }

    QString error() const { return m_error; }

private:
    /// From one position of the page to another, which do not cut a section.
    QString part(int from, int to)
    {
        QString text;
        while (m_error.isEmpty()) {
            const int open = find(QStringLiteral("{{"), from, to);
            if (open < 0)
                return text + m_page.mid(from, to - from);
            text += m_page.mid(from, open - from);
            const int close = find(QStringLiteral("}}"), open, to);
            if (close < 0) {
                m_error = QStringLiteral("\"{{\" without \"}}\"");
                return text;
            }
            const QString tag = m_page.mid(open + 2, close - open - 2);
            from = close + 2;
            if (!tag.startsWith(QLatin1Char('#')) && !tag.startsWith(QLatin1Char('^'))) {
                text += lookUp(tag).toString().toHtmlEscaped();
                continue;
            }
            const QString name = tag.mid(1);
            const int end = endOf(name, from, to);
            if (end < 0)
                return text;
            text += section(name, tag.startsWith(QLatin1Char('^')), from, end);
            from = end + static_cast<int>(name.size()) + 5; // {{/name}}
        }
        return text;
    }

    QString section(const QString &name, bool inverted, int from, int to)
    {
        const QVariant value = lookUp(name);
        const QVariantList list = value.toList();
        const bool isEmpty = isList(value) ? list.isEmpty() : value.toString().isEmpty();
        if (inverted)
            return isEmpty ? part(from, to) : QString();
        if (!isList(value))
            return isEmpty ? QString() : part(from, to);
        QString text;
        for (const QVariant &element : list) {
            m_scopes.append(element.toMap());
            text += part(from, to);
            m_scopes.removeLast();
        }
        return text;
    }

    int endOf(const QString &name, int from, int to)
    {
        const int end = find(QStringLiteral("{{/%1}}").arg(name), from, to);
        if (end < 0)
            m_error = QStringLiteral("section \"%1\" does not end").arg(name);
        return end;
    }

    int find(const QString &text, int from, int to) const
    {
        const int at = static_cast<int>(m_page.indexOf(text, from));
        return at < to ? at : -1;
    }

    static bool isList(const QVariant &value)
    {
        return value.userType() == QMetaType::QVariantList;
    }

    QVariant lookUp(const QString &name)
    {
        for (auto scope = m_scopes.crbegin(); scope != m_scopes.crend(); ++scope) {
            if (scope->contains(name))
                return scope->value(name);
        }
        if (m_error.isEmpty())
            m_error = QStringLiteral("nothing is called \"%1\"").arg(name);
        return QVariant();
    }

    const QString m_page;
    QList<QVariantMap> m_scopes;
    QString m_error;
};

} // namespace

QString fillTemplate(const QString &page, const QVariantMap &values, QString *error)
{
    Filler filler(page);
    const QString text = filler.fill(values);
    *error = filler.error();
    return error->isEmpty() ? text : QString();
}
