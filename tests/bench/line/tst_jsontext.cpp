#include "bench/line/jsontext.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QTest>

#include "tests/support/testprogram.h"

class TestJsonText : public QObject
{
    Q_OBJECT

private slots:
    void readsObjectsAndLists();
    void tellsWhatIsWrong_data();
    void tellsWhatIsWrong();
    void tellsKeysThatAreThereTwice_data();
    void tellsKeysThatAreThereTwice();
    void showsControlCharacters();
};

void TestJsonText::readsObjectsAndLists()
{
    QStringList mistakes;
    const std::optional<QJsonValue> object =
        readJson("\xEF\xBB\xBF { \"a\": [ 1, \"\\\"\xE2\x80\x9C //'#\" ], \"b\": {\"a\":null} }\n",
                 &mistakes);
    QVERIFY2(object, qPrintable(mistakes.join(QLatin1Char('\n'))));
    QCOMPARE(mistakes, QStringList());
    QCOMPARE(object->toObject().value(QStringLiteral("a")).toArray().at(1).toString(),
             QString::fromUtf8("\"\xE2\x80\x9C //'#"));
    const std::optional<QJsonValue> list = readJson("[2]", &mistakes);
    QVERIFY(list);
    QCOMPARE(list->toArray().at(0).toInt(), 2);
}

void TestJsonText::tellsWhatIsWrong_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("mistake");
    const auto row = [](const char *name, const QByteArray &json, const char *mistake) {
        QTest::newRow(name) << json << QString::fromUtf8(mistake);
    };
    row("nothing", "", "it is empty");
    row("only blanks", " \r\n\t", "it is empty");
    row("null", "null\n", "it is null; JSON begins with { here");
    row("a number", "12", "it is 12; JSON begins with { here");
    row("a picture", "\x89PNG\r\n\x1a\n and so on and on",
        "it is \xEF\xBF\xBDPNG\\u000d\\u000a\\u001a\\u000a and so on a...; JSON begins with { "
        "here");
    row("UTF-16 with a mark", QByteArray("\xFF\xFE{\0}\0", 6),
        "it is in UTF-16 or UTF-32; save it as UTF-8");
    row("UTF-16 of the other order", QByteArray("\xFE\xFF\0{\0}", 6),
        "it is in UTF-16 or UTF-32; save it as UTF-8");
    row("UTF-16 without a mark", QByteArray("{\0}\0", 4),
        "it is in UTF-16 or UTF-32; save it as UTF-8");
    row("Latin-1", "{\"a\":\"\xE4\"}", "line 1, column 7: these bytes are not UTF-8");
    row("typographic quotes", "{\n  \xE2\x80\x9Cplan\xE2\x80\x9D: 1}",
        "line 2, column 3: \xE2\x80\x9C is a typographic quote; JSON wants the plain \"");
    row("typographic quotes of a value", "{\"\xC3\xA4\": \xC2\xABx\xC2\xBB}",
        "line 1, column 7: \xC2\xAB is a typographic quote; JSON wants the plain \"");
    row("a typographic quote at the end", "{\n\"plan\": \"p\xE2\x80\x9D,\n\"title\": \"t\"}",
        "line 2, column 9: this text has no end in its line; \xE2\x80\x9D is a typographic quote, "
        "JSON wants the plain \"");
    row("a text of two lines", "{\"plan\":\n \"p\n\"}",
        "line 2, column 2: this text has no end in its line");
    row("an escape character", "{\"plan\": \"\033[2J\"}",
        "line 1, column 11: a text holds the control character \\u001b");
    row("single quotes", "{\n'plan':'p'}",
        "line 2, column 1: JSON has double quotes, not single ones");
    row("comment", "// mine\n{}", "line 1, column 1: JSON has no comments");
    row("comment further on", "{ /* mine */ }", "line 1, column 3: JSON has no comments");
    row("comment of a shell", "{\n# mine\n}", "line 2, column 1: JSON has no comments");
}

void TestJsonText::tellsWhatIsWrong()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, mistake);
    QStringList mistakes;
    QVERIFY(!readJson(json, &mistakes));
    QCOMPARE(mistakes, QStringList(mistake));
}

void TestJsonText::tellsKeysThatAreThereTwice_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("mistakes");
    QTest::newRow("none") << QByteArray(R"({"a":{"b":1},"b":[{"a":1},{"a":"a"}],"c":["a","a"]})")
                          << QStringList();
    QTest::newRow("one") << QByteArray("{\"a\":1,\n \"a\":1}")
                         << QStringList("line 2, column 2: \"a\" is there twice");
    QTest::newRow("three times") << QByteArray(R"({"a":1,"a":2,"a":3})")
                                 << QStringList({"line 1, column 8: \"a\" is there twice",
                                                 "line 1, column 14: \"a\" is there twice"});
    QTest::newRow("written differently") << QByteArray(R"({"a":1,"\u0061":2})")
                                         << QStringList("line 1, column 8: \"a\" is there twice");
    QTest::newRow("with quotes and brackets")
        << QByteArray(R"({"x":[{"}\"":{"y":"{,"},"}\"":2}]})")
        << QStringList("line 1, column 25: \"}\"\" is there twice");
    QTest::newRow("after an object") << QByteArray(R"({"a":{"b":[]},"c":2,"a":0})")
                                     << QStringList("line 1, column 21: \"a\" is there twice");
}

void TestJsonText::tellsKeysThatAreThereTwice()
{
    QFETCH(QByteArray, json);
    QStringList found;
    QVERIFY(readJson(json, &found));
    QTEST(found, "mistakes");
}

void TestJsonText::showsControlCharacters()
{
    QCOMPARE(visible(QString::fromUtf8("a\033\n\xC2\x9B\x7F\xC3\xA4")),
             QString::fromUtf8("a\\u001b\\u000a\\u009b\\u007f\xC3\xA4"));
    QVERIFY(!hasControlCharacters(QString::fromUtf8("a \xC3\xA4"), false));
    QVERIFY(hasControlCharacters(QStringLiteral("a\n"), false));
    QVERIFY(!hasControlCharacters(QStringLiteral("a\r\n\t"), true));
    QVERIFY(hasControlCharacters(QStringLiteral("a\033"), true));
}

MFTOOL_TEST(TestJsonText, EventLoop)
#include "tst_jsontext.moc"
