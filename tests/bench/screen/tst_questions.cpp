#include "bench/screen/questions.h"
#include "tests/support/testprogram.h"

#include <QJsonDocument>
#include <QSignalSpy>

namespace
{

Question question(int id, const char *fixture)
{
    Question asked;
    asked.id = id;
    asked.fixture = QString::fromLatin1(fixture);
    asked.kind = Question::YesNo;
    return asked;
}

/// What was said to the line since the last call.
QStringList said(QSignalSpy *spy)
{
    QStringList lines;
    while (!spy->isEmpty())
        lines.append(QString::fromUtf8(
            QJsonDocument(spy->takeFirst().at(0).toJsonObject()).toJson(QJsonDocument::Compact)));
    return lines;
}

} // namespace

class TestQuestions : public QObject
{
    Q_OBJECT

private slots:
    void oneComesAfterTheOther();
    void oneThatWaitsIsWithdrawn();
    void oneThatIsShownIsWithdrawn();
    void whatIsNotOpenIsNotWithdrawn();
    void theScreensOwnComesFirst();
    void theScreensOwnIsAskedOnce();
    void nobodyWaits();
    void anAnswerWithoutAQuestionIsNone();
};

void TestQuestions::oneComesAfterTheOther()
{
    Questions questions;
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    questions.ask(question(1, "left"));
    questions.ask(question(2, "right"));
    QCOMPARE(said(&spy), (QStringList{"{\"shown\":1}", "{\"waits\":2}"}));
    QCOMPARE(questions.first().id, 1);
    QVERIFY(questions.isOpenAt("right"));
    QVERIFY(!questions.isOpenAt("middle"));
    questions.answer("no");
    QCOMPARE(said(&spy), (QStringList{"{\"answer\":1,\"reply\":\"no\"}", "{\"shown\":2}"}));
    QCOMPARE(questions.first().id, 2);
    QVERIFY(!questions.isOpenAt("left"));
    questions.answer("yes");
    QCOMPARE(said(&spy), (QStringList{"{\"answer\":2,\"reply\":\"yes\"}"}));
    QVERIFY(questions.isEmpty());
}

void TestQuestions::oneThatWaitsIsWithdrawn()
{
    Questions questions;
    questions.ask(question(1, "left"));
    questions.ask(question(2, "right"));
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    QSignalSpy turned(&questions, SIGNAL(turned()));
    questions.withdraw(2);
    QCOMPARE(said(&spy), QStringList());
    QCOMPARE(turned.size(), 0);
    QCOMPARE(questions.size(), 1);
    QCOMPARE(questions.first().id, 1);
}

void TestQuestions::oneThatIsShownIsWithdrawn()
{
    Questions questions;
    questions.ask(question(1, "left"));
    questions.ask(question(2, "right"));
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    QSignalSpy turned(&questions, SIGNAL(turned()));
    questions.withdraw(1);
    QCOMPARE(said(&spy), QStringList{"{\"shown\":2}"});
    QCOMPARE(turned.size(), 1);
    QCOMPARE(questions.first().id, 2);
}

void TestQuestions::whatIsNotOpenIsNotWithdrawn()
{
    Questions questions;
    questions.ask(question(1, "left"));
    questions.withdraw(7);
    QCOMPARE(questions.size(), 1);
}

void TestQuestions::theScreensOwnComesFirst()
{
    Questions questions;
    questions.ask(question(1, "left"));
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    QSignalSpy decided(&questions, SIGNAL(decided(QString)));
    questions.interject(question(0, ""));
    QCOMPARE(said(&spy), QStringList{"{\"waits\":1}"});
    QCOMPARE(questions.first().id, 0);
    questions.withdraw(0);
    QCOMPARE(questions.first().id, 0);
    questions.answer("no");
    QCOMPARE(decided.size(), 1);
    QCOMPARE(decided.at(0).at(0).toString(), QString("no"));
    QCOMPARE(said(&spy), QStringList{"{\"shown\":1}"});
    QCOMPARE(questions.first().id, 1);
}

void TestQuestions::theScreensOwnIsAskedOnce()
{
    Questions questions;
    questions.interject(question(0, ""));
    questions.interject(question(0, ""));
    QCOMPARE(questions.size(), 1);
}

void TestQuestions::nobodyWaits()
{
    Questions questions;
    questions.ask(question(1, "left"));
    questions.ask(question(2, "right"));
    QSignalSpy turned(&questions, SIGNAL(turned()));
    questions.clear();
    QVERIFY(questions.isEmpty());
    QCOMPARE(turned.size(), 1);
}

void TestQuestions::anAnswerWithoutAQuestionIsNone()
{
    Questions questions;
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    questions.answer("yes");
    QCOMPARE(spy.size(), 0);
}

MFTOOL_TEST(TestQuestions, NoApplication)
#include "tst_questions.moc"
