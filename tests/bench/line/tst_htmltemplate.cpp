#include "bench/line/htmltemplate.h"

#include <QTest>

class TestHtmlTemplate : public QObject
{
    Q_OBJECT

private slots:
    void fills_data();
    void fills();
    void refuses_data();
    void refuses();
};

void TestHtmlTemplate::fills_data()
{
    QTest::addColumn<QString>("page");
    QTest::addColumn<QVariantMap>("values");
    QTest::addColumn<QString>("result");
    const QVariantMap texts = {{QStringLiteral("a"), QStringLiteral("x")},
                               {QStringLiteral("none"), QString()}};
    const QVariantList rows = {
        QVariantMap{{QStringLiteral("a"), QStringLiteral("1")}},
        QVariantMap{{QStringLiteral("b"), QStringLiteral("2")}},
    };
    QVariantMap list = texts;
    list.insert(QStringLiteral("rows"), rows);
    list.insert(QStringLiteral("empty"), QVariantList());
    list.insert(QStringLiteral("b"), QStringLiteral("y"));

    QTest::newRow("plain") << "<p>a</p>" << texts << "<p>a</p>";
    QTest::newRow("text") << "[{{a}}]" << texts << "[x]";
    QTest::newRow("number") << "{{a}}" << QVariantMap{{QStringLiteral("a"), 7}} << "7";
    QTest::newRow("escaped") << "{{a}}"
                             << QVariantMap{{QStringLiteral("a"), QStringLiteral("<b>&\"")}}
                             << "&lt;b&gt;&amp;&quot;";
    QTest::newRow("filled in text is no template")
        << "{{a}}" << QVariantMap{{QStringLiteral("a"), QStringLiteral("{{b}}")}} << "{{b}}";
    QTest::newRow("section of a text") << "{{#a}}<{{a}}>{{/a}}" << texts << "<x>";
    QTest::newRow("section of nothing") << "[{{#none}}no{{/none}}]" << texts << "[]";
    QTest::newRow("inverted section of nothing") << "{{^none}}yes{{/none}}" << texts << "yes";
    QTest::newRow("inverted section of a text") << "[{{^a}}no{{/a}}]" << texts << "[]";
    QTest::newRow("list, names from outside too")
        << "{{#rows}}({{a}}{{b}}){{/rows}}" << list << "(1y)(x2)";
    QTest::newRow("empty list") << "[{{#empty}}{{a}}{{/empty}}]" << list << "[]";
    QTest::newRow("inverted empty list") << "{{^empty}}none{{/empty}}" << list << "none";
    QTest::newRow("inverted list") << "[{{^rows}}none{{/rows}}]" << list << "[]";
    QTest::newRow("both, one after the other")
        << "{{^none}}1{{/none}}{{#none}}2{{/none}}3" << texts << "13";
    QTest::newRow("section in a section")
        << "{{#rows}}{{#a}}{{a}};{{/a}}{{/rows}}" << list << "1;x;";
}

void TestHtmlTemplate::fills()
{
    QFETCH(QString, page);
    QFETCH(QVariantMap, values);
    QString error;
    QTEST(fillTemplate(page, values, &error), "result");
    QCOMPARE(error, QString());
}

void TestHtmlTemplate::refuses_data()
{
    QTest::addColumn<QString>("page");
    QTest::addColumn<QString>("reason");
    QTest::newRow("unknown name") << "x{{b}}"
                                  << "nothing is called \"b\"";
    QTest::newRow("unknown section") << "{{#b}}x{{/b}}"
                                     << "nothing is called \"b\"";
    QTest::newRow("open tag") << "{{a"
                              << "\"{{\" without \"}}\"";
    QTest::newRow("open section") << "{{#a}}x"
                                  << "section \"a\" does not end";
    QTest::newRow("sections that cross") << "{{#a}}{{#c}}{{/a}}{{/c}}"
                                         << "section \"c\" does not end";
}

void TestHtmlTemplate::refuses()
{
    QFETCH(QString, page);
    QString error;
    const QVariantMap values = {{QStringLiteral("a"), QStringLiteral("1")},
                                {QStringLiteral("c"), QStringLiteral("1")}};
    QCOMPARE(fillTemplate(page, values, &error), QString());
    QTEST(error, "reason");
}

QTEST_GUILESS_MAIN(TestHtmlTemplate)
#include "tst_htmltemplate.moc"
