#include "tests/bench/browser.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace
{

const int LimitMs = 120000;

/// Measures a page inside of a frame as wide as a screen and answers in JSON.
const char *const MeasureScript = R"(
function measure(frame) {
  const page = frame.contentDocument, view = frame.contentWindow;
  const size = e => parseFloat(view.getComputedStyle(e).fontSize);
  const shown = e => e.getClientRects().length > 0;
  const all = [...page.body.querySelectorAll('*')].filter(shown);
  const wide = all.filter(e => e.getBoundingClientRect().right > view.innerWidth + 1 ||
                               e.getBoundingClientRect().left < -1);
  // A column with sentences must be wide enough to read them.
  const narrow = all.filter(e => /^(TD|DD|P|H1)$/.test(e.tagName) &&
                                 e.textContent.trim().length > 30 &&
                                 e.getBoundingClientRect().width < 8.5 * size(e));
  const broken = [];
  const walker = page.createTreeWalker(page.body, NodeFilter.SHOW_TEXT);
  while (walker.nextNode()) {
    for (const match of walker.currentNode.data.matchAll(/\d{4}-\d\d-\d\d \d\d:\d\d:\d\d/g)) {
      const range = page.createRange();
      range.setStart(walker.currentNode, match.index);
      range.setEnd(walker.currentNode, match.index + match[0].length);
      if (range.getClientRects().length > 1)
        broken.push(match[0]);
    }
  }
  const lines = e => {
    const range = page.createRange();
    range.selectNodeContents(e);
    return new Set([...range.getClientRects()].map(r => Math.round(r.top))).size;
  };
  broken.push(...all.filter(e => e.matches('th, .mark, td.number') && lines(e) > 1)
                    .map(e => e.textContent));
  const loud = [...page.querySelectorAll('.steps tbody tr')].filter(row => {
    const name = row.querySelector('.name') || row.previousElementSibling.querySelector('.name');
    return name && [...row.querySelectorAll('*')].some(e => size(e) > size(name));
  });
  const least = Math.min(...all.filter(e => [...e.childNodes].some(
      n => n.nodeType === Node.TEXT_NODE && n.data.trim())).map(size));
  const told = list => list.slice(0, 5).map(e => e.tagName + '.' + e.getAttribute('class') + ' ' +
                                                 e.textContent.trim().slice(0, 40));
  return { width: view.innerWidth, scrolled: page.documentElement.scrollWidth, wide: told(wide),
           narrow: told(narrow), broken: broken, loud: told(loud), least: least, elements: all.length };
}
window.onload = () => {
  document.body.textContent =
      'MEASURED' + JSON.stringify([...document.querySelectorAll('iframe')].map(measure)) + 'END';
};
)";

QString program()
{
    for (const char *name : {"chromium", "chromium-browser", "google-chrome"}) {
        const QString found = QStandardPaths::findExecutable(QLatin1String(name));
        if (!found.isEmpty())
            return found;
    }
    return QString();
}

bool writeTo(const QString &path, const QList<QByteArray> &parts)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    for (const QByteArray &part : parts)
        file.write(part);
    return true;
}

QString outputOf(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(LimitMs);
    return QString::fromUtf8(process.readAllStandardOutput());
}

} // namespace

QString Browser::missing()
{
    return program().isEmpty() ? QStringLiteral("chromium is not installed") : QString();
}

QString Browser::missingForPrint()
{
    for (const char *name : {"pdfinfo", "pdftotext"}) {
        if (QStandardPaths::findExecutable(QLatin1String(name)).isEmpty())
            return QStringLiteral("%1 is not installed").arg(QLatin1String(name));
    }
    return missing();
}

/// What it says on its standard output.
QByteArray Browser::browse(const QStringList &arguments) const
{
    const QTemporaryDir profile;
    QProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.start(program(),
                  QStringList{QStringLiteral("--headless"), QStringLiteral("--no-sandbox"),
                              QStringLiteral("--disable-gpu"), QStringLiteral("--disable-quic"),
                              QStringLiteral("--no-first-run"),
                              QStringLiteral("--disable-background-networking"),
                              QStringLiteral("--disable-component-update"),
                              QStringLiteral("--disable-sync"),
                              QStringLiteral("--disable-dev-shm-usage"),
                              QStringLiteral("--user-data-dir=") + profile.path()} +
                      arguments);
    if (!process.waitForFinished(LimitMs))
        return QByteArray();
    return process.readAllStandardOutput();
}

QJsonObject Browser::measured(const QByteArray &html, int width) const
{
    // A window has a minimum width, a frame has none.
    const QString path = m_dir.filePath(QStringLiteral("measure.html"));
    if (!writeTo(path, {"<!DOCTYPE html><meta charset=\"utf-8\"><script>", MeasureScript,
                        "</script><body><iframe style=\"border:0;height:900px;width:",
                        QByteArray::number(width), "px\" srcdoc=\"",
                        QString::fromUtf8(html).toHtmlEscaped().toUtf8(), "\"></iframe>"}))
        return QJsonObject();
    const QByteArray said =
        browse({QStringLiteral("--window-size=1400,1000"), QStringLiteral("--dump-dom"),
                QStringLiteral("file://") + path});
    const auto from = said.indexOf("MEASURED[");
    const auto to = said.indexOf("END</body>");
    if (from < 0 || to < from)
        return QJsonObject();
    QByteArray json = said.mid(from + 8, to - from - 8);
    json.replace("&lt;", "<").replace("&gt;", ">").replace("&amp;", "&");
    return QJsonDocument::fromJson(json).array().first().toObject();
}

QJsonObject Browser::measuredOnPaper(const QByteArray &html) const
{
    QByteArray printed = html;
    printed.replace("@media print", "@media all").replace("@media screen", "@media not all");
    return measured(printed, Paper);
}

Browser::Print Browser::printed(const QByteArray &html) const
{
    const QString path = m_dir.filePath(QStringLiteral("print.html"));
    const QString pdf = m_dir.filePath(QStringLiteral("print.pdf"));
    if (!writeTo(path, {html}))
        return Print();
    browse({QStringLiteral("--no-pdf-header-footer"), QStringLiteral("--print-to-pdf=") + pdf,
            QStringLiteral("file://") + path});
    const QString info = outputOf(QStringLiteral("pdfinfo"), {pdf});
    const auto valueOf = [&info](const char *name) {
        return QRegularExpression(QStringLiteral("^%1: +(.*)$").arg(QLatin1String(name)),
                                  QRegularExpression::MultilineOption)
            .match(info)
            .captured(1);
    };
    Print print;
    print.pages = valueOf("Pages").toInt();
    print.title = valueOf("Title");
    print.text = outputOf(QStringLiteral("pdftotext"),
                          {QStringLiteral("-layout"), pdf, QStringLiteral("-")});
    return print;
}
