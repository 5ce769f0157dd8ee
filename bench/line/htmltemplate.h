/// Fills in a page: just enough of the Mustache language for a report.
///
///     {{name}}              a text, escaped for HTML
///     {{#name}}...{{/name}} once for each element of a list (in which names
///                           mean the element's first), once for a text that is
///                           not empty, never otherwise
///     {{^name}}...{{/name}} once where the above would give nothing
#ifndef BENCH_LINE_HTMLTEMPLATE_H
#define BENCH_LINE_HTMLTEMPLATE_H

#include <QString>
#include <QVariantMap>

/// @param error  set when the page is not well formed, or names what is not in
///               @p values; the result is then empty
QString fillTemplate(const QString &page, const QVariantMap &values, QString *error);

#endif
