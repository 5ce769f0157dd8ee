#include "bench/screen/questionpanel.h"
#include "tests/support/testprogram.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>

namespace
{

const int Never = 3600 * 1000; // ms
const int LongMs = 30000;      ///< for an event that comes at once, on a machine that is busy

/// A window that hands its keys to the panel, as the screen does.
class Window : public QWidget
{
public:
    explicit Window(const Pauses &pauses)
        : panel(pauses, this), answered(&panel, SIGNAL(answered(QString))),
          m_isReadableSoon(pauses.unreadMs == 0)
    {
        resize(800, 400);
        panel.resize(800, 240);
        setFocusPolicy(Qt::StrongFocus);
        show();
    }

    void ask(Question::Kind kind)
    {
        Question question;
        question.id = 1;
        question.kind = kind;
        question.text = "Is it bright?";
        panel.ask(question, QString());
        while (m_isReadableSoon && !button("yes")->isEnabled())
            QCoreApplication::processEvents();
    }

    QPushButton *button(const char *name) { return panel.findChild<QPushButton *>(name); }

    /// Where the keys go.
    QWidget *keys() { return focusWidget() != nullptr ? focusWidget() : this; }

    QStringList replies()
    {
        for (int i = 0; i < 10; ++i) // until a pause of 0 ms is over
            QCoreApplication::processEvents();
        QStringList replies;
        while (!answered.isEmpty())
            replies.append(answered.takeFirst().at(0).toString());
        return replies;
    }

    QuestionPanel panel;
    QSignalSpy answered;

protected:
    void keyPressEvent(QKeyEvent *event) override { panel.key(*event); }

private:
    const bool m_isReadableSoon;
};

const Pauses Quick = {0, 0};

} // namespace

class TestQuestionPanel : public QObject
{
    Q_OBJECT

private slots:
    void aKeyAnswersALook_data();
    void aKeyAnswersALook();
    void otherKeysDoNot_data();
    void otherKeysDoNot();
    void aScannedCodeAnswersNoLook_data();
    void aScannedCodeAnswersNoLook();
    void aKeyAfterAScannedCodeAnswers();
    void aKeyThatIsHeldDownDoesNotAnswer();
    void nothingAnswersBeforeItCanBeRead_data();
    void nothingAnswersBeforeItCanBeRead();
    void aButtonAnswers_data();
    void aButtonAnswers();
    void enterConfirms();
    void aScannedCodeConfirmsNothing();
    void whatIsScannedIsSent();
    void nothingIsNotSent();
    void eachFieldIsEmptyAtFirst();
};

void TestQuestionPanel::aKeyAnswersALook_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("reply");
    QTest::newRow("y") << "y"
                       << "yes";
    QTest::newRow("Y") << "Y"
                       << "yes";
    QTest::newRow("n") << "n"
                       << "no";
    QTest::newRow("N") << "N"
                       << "no";
    QTest::newRow("y and Enter, as at a terminal") << "y\r"
                                                   << "yes";
}

void TestQuestionPanel::aKeyAnswersALook()
{
    QFETCH(QString, typed);
    QFETCH(QString, reply);
    Window window(Quick);
    window.ask(Question::YesNo);
    QTest::keyClicks(window.keys(), typed);
    QTRY_COMPARE_WITH_TIMEOUT(window.answered.size(), 1, LongMs);
    QCOMPARE(window.replies(), QStringList{reply});
}

void TestQuestionPanel::otherKeysDoNot_data()
{
    QTest::addColumn<int>("key");
    QTest::newRow("Enter") << int(Qt::Key_Return);
    QTest::newRow("Enter of the keypad") << int(Qt::Key_Enter);
    QTest::newRow("space bar") << int(Qt::Key_Space);
    QTest::newRow("x") << int(Qt::Key_X);
    QTest::newRow("arrow") << int(Qt::Key_Left);
    QTest::newRow("tabulator") << int(Qt::Key_Tab);
}

void TestQuestionPanel::otherKeysDoNot()
{
    QFETCH(int, key);
    Window window(Quick);
    window.ask(Question::YesNo);
    QTest::keyClick(window.keys(), Qt::Key(key));
    for (const Qt::Key next : {Qt::Key_Return, Qt::Key_Space}) // go to what has the focus now
        QTest::keyClick(window.keys(), next);
    QCOMPARE(window.replies(), QStringList());
}

void TestQuestionPanel::aScannedCodeAnswersNoLook_data()
{
    QTest::addColumn<QString>("code");
    QTest::newRow("number") << "KP-0042\r";
    QTest::newRow("begins with y") << "Y42\r";
    QTest::newRow("begins with n") << "nyn\r";
    QTest::newRow("ends with y") << "KP-Y\r";
    QTest::newRow("without an end") << "Y42";
    QTest::newRow("twice y") << "yy\r";
}

void TestQuestionPanel::aScannedCodeAnswersNoLook()
{
    QFETCH(QString, code);
    Window window(Pauses{0, Never});
    window.ask(Question::YesNo);
    QTest::keyClicks(window.keys(), code);
    QCOMPARE(window.replies(), QStringList());
}

void TestQuestionPanel::aKeyAfterAScannedCodeAnswers()
{
    Window window(Pauses{0, Never});
    window.ask(Question::YesNo);
    QTest::keyClicks(window.keys(), "KP-0042\r");
    QTest::keyClicks(window.keys(), "n\r");
    QCOMPARE(window.replies(), QStringList{"no"});
}

void TestQuestionPanel::aKeyThatIsHeldDownDoesNotAnswer()
{
    Window window(Quick);
    for (const Question::Kind kind : {Question::YesNo, Question::Confirm}) {
        window.ask(kind);
        for (const int key : {Qt::Key_Y, Qt::Key_Return}) {
            QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, key == Qt::Key_Y ? "y" : "\r",
                            true);
            QCoreApplication::sendEvent(window.keys(), &event);
        }
        QCOMPARE(window.replies(), QStringList());
    }
}

void TestQuestionPanel::nothingAnswersBeforeItCanBeRead_data()
{
    QTest::addColumn<int>("kind");
    QTest::newRow("look") << int(Question::YesNo);
    QTest::newRow("confirmation") << int(Question::Confirm);
}

void TestQuestionPanel::nothingAnswersBeforeItCanBeRead()
{
    QFETCH(int, kind);
    Window window(Pauses{Never, 0});
    window.ask(Question::Kind(kind));
    QTest::keyClick(window.keys(), Qt::Key_Return);
    QTest::keyClicks(window.keys(), "y\r");
    QTest::mouseClick(window.button("yes"), Qt::LeftButton);
    QTest::mouseClick(window.button("no"), Qt::LeftButton);
    QCOMPARE(window.replies(), QStringList());
    // Such keys do not count later either.
    window.ask(Question::Kind(kind));
    QVERIFY(!window.button("yes")->isEnabled());
    QCOMPARE(window.replies(), QStringList());
}

void TestQuestionPanel::aButtonAnswers_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reply");
    QTest::newRow("yes") << int(Question::YesNo) << "yes"
                         << "yes";
    QTest::newRow("no") << int(Question::YesNo) << "no"
                        << "no";
    QTest::newRow("done") << int(Question::Confirm) << "yes"
                          << "yes";
    QTest::newRow("OK") << int(Question::Text) << "yes"
                        << "KP-0042";
}

void TestQuestionPanel::aButtonAnswers()
{
    QFETCH(int, kind);
    QFETCH(QString, name);
    QFETCH(QString, reply);
    Window window(Pauses{0, Never});
    window.ask(Question::Kind(kind));
    QPushButton *button = window.panel.findChild<QPushButton *>(name);
    QCOMPARE(window.button("no")->isVisible(), kind == Question::YesNo);
    if (kind == Question::Text)
        QTest::keyClicks(window.keys(), "KP-0042");
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(window.replies(), QStringList{reply});
}

void TestQuestionPanel::enterConfirms()
{
    Window window(Quick);
    window.ask(Question::Confirm);
    QTest::keyClicks(window.keys(), "y");
    QCOMPARE(window.replies(), QStringList());
    window.ask(Question::Confirm);
    QTest::keyClick(window.keys(), Qt::Key_Return);
    QCOMPARE(window.replies(), QStringList{"yes"});
}

void TestQuestionPanel::aScannedCodeConfirmsNothing()
{
    Window window(Pauses{0, Never});
    window.ask(Question::Confirm);
    QTest::keyClicks(window.keys(), "KP-0042\r");
    QCOMPARE(window.replies(), QStringList());
    QTest::keyClick(window.keys(), Qt::Key_Return);
    QCOMPARE(window.replies(), QStringList{"yes"});
}

void TestQuestionPanel::whatIsScannedIsSent()
{
    // A scanner does not wait until a question can be read.
    Window window(Pauses{Never, Never});
    window.ask(Question::Text);
    QVERIFY(window.panel.findChild<QLineEdit *>("field")->isVisible());
    QTest::keyClicks(window.keys(), " KP-0042y ");
    QCOMPARE(window.replies(), QStringList());
    QTest::keyClick(window.keys(), Qt::Key_Return);
    QCOMPARE(window.replies(), QStringList{"KP-0042y"});
}

void TestQuestionPanel::nothingIsNotSent()
{
    Window window(Quick);
    window.ask(Question::Text);
    QTest::keyClick(window.keys(), Qt::Key_Return);
    QTest::keyClicks(window.keys(), "  ");
    QTest::keyClick(window.keys(), Qt::Key_Enter);
    QTest::mouseClick(window.button("yes"), Qt::LeftButton);
    QCOMPARE(window.replies(), QStringList());
}

void TestQuestionPanel::eachFieldIsEmptyAtFirst()
{
    Window window(Quick);
    window.ask(Question::Text);
    QTest::keyClicks(window.keys(), "KP-00");
    window.ask(Question::Text);
    QTest::keyClicks(window.keys(), "KP-0043\r");
    QCOMPARE(window.replies(), QStringList{"KP-0043"});
}

MFTOOL_TEST(TestQuestionPanel, Widgets)
#include "tst_questionpanel.moc"
