/// How a page looks in a browser: at the width of a screen, and on paper. Chromium shows it.
#ifndef TESTS_BENCH_BROWSER_H
#define TESTS_BENCH_BROWSER_H

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class Browser
{
public:
    static constexpr int Phone = 390;
    static constexpr int Tablet = 760; ///< the narrowest with columns
    static constexpr int Desk = 1280;
    static constexpr int Paper = 688; ///< of A4 between the margins of the pages here

    struct Print {
        int pages = 0;
        QString title;
        QString text;
    };

    /// Why no page can be shown; empty when it can.
    static QString missing();
    /// Why a page cannot be printed; empty when it can.
    static QString missingForPrint();

    /// What is wrong with the page at that width, lists of texts: "wide" is cut or makes it
    /// scroll, "narrow" holds a sentence in too narrow a column, "broken" has a date, a head
    /// or a number on two lines, "loud" is larger than its step's name. "width" and
    /// "scrolled" are those of the page, "least" its smallest letters, in pixels, and
    /// "elements" says how many were looked at. Empty when there is no answer.
    QJsonObject measured(const QByteArray &html, int width) const;
    /// The same as it is on paper.
    QJsonObject measuredOnPaper(const QByteArray &html) const;
    Print printed(const QByteArray &html) const;

private:
    QByteArray browse(const QStringList &arguments) const;

    QTemporaryDir m_dir;
};

#endif
