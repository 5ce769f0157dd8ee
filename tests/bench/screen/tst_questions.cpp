#include "bench/screen/questions.h"
#include "tests/support/testprogram.h"

#include <QJsonDocument>
#include <QSignalSpy>

namespace
{

const int Never = 3600 * 1000; // ms
const int LongMs = 30000;      ///< for an event that comes at once, on a machine that is busy

Question question(int id, const char *fixture, Question::Kind kind = Question::YesNo)
{
    Question asked;
    asked.id = id;
    asked.fixture = QString::fromLatin1(fixture);
    asked.kind = kind;
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
    void theSameFixtureAsksAgainFirst();
    void othersAskOnceAFixtureGoesOn();
    void aFixtureThatHangsHoldsUpNoOtherForLong();
    void othersAskAtOnceAfterALook();
    void theScreensOwnIsShownMeanwhile();
    void nobodyIsHeldUpAfterTheEnd();
};

void TestQuestions::oneComesAfterTheOther()
{
    Questions questions(Never);
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
    QVERIFY(!questions.isAnyShown());
}

void TestQuestions::oneThatWaitsIsWithdrawn()
{
    Questions questions(Never);
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
    Questions questions(Never);
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
    Questions questions(Never);
    questions.ask(question(1, "left"));
    questions.withdraw(7);
    QCOMPARE(questions.size(), 1);
}

void TestQuestions::theScreensOwnComesFirst()
{
    Questions questions(Never);
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
    Questions questions(Never);
    questions.interject(question(0, ""));
    questions.interject(question(0, ""));
    QCOMPARE(questions.size(), 1);
}

void TestQuestions::nobodyWaits()
{
    Questions questions(Never);
    questions.ask(question(1, "left"));
    questions.ask(question(2, "right"));
    QSignalSpy turned(&questions, SIGNAL(turned()));
    questions.clear();
    QVERIFY(!questions.isAnyShown());
    QCOMPARE(turned.size(), 1);
}

void TestQuestions::anAnswerWithoutAQuestionIsNone()
{
    Questions questions(Never);
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    questions.answer("yes");
    QCOMPARE(spy.size(), 0);
}

/// Who scans a number again that was refused does not look whose turn it is.
void TestQuestions::theSameFixtureAsksAgainFirst()
{
    Questions questions(Never);
    questions.ask(question(1, "left", Question::Text));
    questions.ask(question(2, "right", Question::Text));
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    questions.answer("KP-BAD");
    questions.withdraw(1);
    QCOMPARE(said(&spy), QStringList{"{\"answer\":1,\"reply\":\"KP-BAD\"}"});
    QVERIFY(!questions.isAnyShown());
    QVERIFY(questions.isOpenAt("right"));
    questions.answer("KP-BAD"); // scanned twice
    QCOMPARE(said(&spy), QStringList());
    questions.ask(question(3, "middle", Question::Text));
    QCOMPARE(said(&spy), QStringList{"{\"waits\":3}"});

    questions.ask(question(4, "left", Question::YesNo)); // passed already
    QCOMPARE(said(&spy), QStringList{"{\"shown\":4}"});
    QCOMPARE(questions.first().id, 4);
    questions.answer("no");
    QCOMPARE(said(&spy), QStringList{"{\"answer\":4,\"reply\":\"no\"}"});
    QVERIFY(!questions.isAnyShown());
    questions.ask(question(5, "left", Question::Text));
    QCOMPARE(said(&spy), QStringList{"{\"shown\":5}"});
    questions.answer("KP-1");
    QCOMPARE(said(&spy), QStringList{"{\"answer\":5,\"reply\":\"KP-1\"}"});
    questions.ask(question(6, "left", Question::Confirm)); // connect it
    QCOMPARE(said(&spy), QStringList{"{\"shown\":6}"});
    questions.answer("yes");
    QCOMPARE(said(&spy), (QStringList{"{\"answer\":6,\"reply\":\"yes\"}", "{\"shown\":2}"}));
    QCOMPARE(questions.first().id, 2);
}

void TestQuestions::othersAskOnceAFixtureGoesOn()
{
    Questions questions(Never);
    questions.ask(question(1, "left", Question::Text));
    questions.answer("KP-1");
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    QSignalSpy turned(&questions, SIGNAL(turned()));
    questions.ask(question(2, "right", Question::Text));
    QCOMPARE(said(&spy), QStringList{"{\"waits\":2}"});
    questions.withdraw(2); // and is asked again
    questions.ask(question(3, "right", Question::Text));
    QCOMPARE(said(&spy), QStringList{"{\"waits\":3}"});
    questions.goOnAfter("middle");
    QVERIFY(!questions.isAnyShown());
    QCOMPARE(turned.size(), 0);
    questions.goOnAfter("left");
    QCOMPARE(said(&spy), QStringList{"{\"shown\":3}"});
    QCOMPARE(turned.size(), 1);
    QCOMPARE(questions.first().id, 3);
    questions.goOnAfter("left"); // ends
    QCOMPARE(said(&spy), QStringList());
    QCOMPARE(turned.size(), 1);
}

void TestQuestions::aFixtureThatHangsHoldsUpNoOtherForLong()
{
    Questions questions(0);
    questions.ask(question(1, "left", Question::Text));
    questions.ask(question(2, "right", Question::Text));
    questions.answer("KP-1");
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    QVERIFY(!questions.isAnyShown());
    QTRY_VERIFY_WITH_TIMEOUT(questions.isAnyShown(), LongMs);
    QCOMPARE(said(&spy), QStringList{"{\"shown\":2}"});
}

/// The line need not say anything of a judgement.
void TestQuestions::othersAskAtOnceAfterALook()
{
    Questions questions(Never);
    questions.ask(question(1, "left", Question::YesNo));
    questions.ask(question(2, "right", Question::Confirm));
    questions.ask(question(3, "left", Question::Text));
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    questions.answer("no");
    QCOMPARE(said(&spy), (QStringList{"{\"answer\":1,\"reply\":\"no\"}", "{\"shown\":2}"}));
    questions.answer("yes");
    QCOMPARE(said(&spy), (QStringList{"{\"answer\":2,\"reply\":\"yes\"}", "{\"shown\":3}"}));
}

void TestQuestions::theScreensOwnIsShownMeanwhile()
{
    Questions questions(Never);
    questions.ask(question(1, "left", Question::Text));
    questions.ask(question(2, "right", Question::Text));
    questions.answer("KP-BAD");
    QSignalSpy spy(&questions, SIGNAL(said(QJsonObject)));
    QSignalSpy turned(&questions, SIGNAL(turned()));
    questions.interject(question(0, ""));
    QVERIFY(questions.isAnyShown());
    QCOMPARE(questions.first().id, 0);
    QCOMPARE(turned.size(), 1);
    questions.ask(question(3, "left", Question::Text));
    QCOMPARE(said(&spy), QStringList{"{\"waits\":3}"});
    QCOMPARE(turned.size(), 1); // what was pressed for it meanwhile counts
    questions.answer("no");
    QCOMPARE(said(&spy), QStringList{"{\"shown\":3}"});

    questions.answer("KP-1");
    said(&spy);
    questions.interject(question(0, ""));
    questions.answer("no");
    QVERIFY(!questions.isAnyShown());
    questions.interject(question(0, ""));
    turned.clear();
    questions.goOnAfter("left");
    QCOMPARE(turned.size(), 0);
    QCOMPARE(said(&spy), QStringList());
    questions.answer("no");
    QCOMPARE(said(&spy), QStringList{"{\"shown\":2}"});
}

void TestQuestions::nobodyIsHeldUpAfterTheEnd()
{
    Questions questions(Never);
    questions.ask(question(1, "left", Question::Text));
    questions.answer("KP-1");
    questions.clear();
    questions.ask(question(2, "right", Question::Text));
    QVERIFY(questions.isAnyShown());
    QCOMPARE(questions.first().id, 2);
}

MFTOOL_TEST(TestQuestions, EventLoop)
#include "tst_questions.moc"
