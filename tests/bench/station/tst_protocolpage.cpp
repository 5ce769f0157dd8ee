#include "bench/station/frame.h"
#include "bench/station/meaning.h"
#include "bench/station/messages.h"
#include "bench/station/requests.h"
#include "tests/support/testprogram.h"

#include <QtTest>

/// The frames that docs/protocol.md shows are right, since people copy them.
class TestProtocolPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyFrameIsRight();
    void everyMessageIsShown();
    void answersAreThoseOfTheTable();
    void lengthsAreThoseOfTheTable();
    void everyCommandSendsItsFrame();

private:
    QList<QStringList> rows(int columns) const;

    QString m_page;
};

namespace
{

/// Sender and content of a frame between backquotes; the text is tried as each side's.
std::optional<wire::Report> rightFrame(const QString &text)
{
    for (const wire::Sender sender : {wire::Sender::Station, wire::Sender::Keypad}) {
        const wire::Report report = wire::checkFrame(sender, text.toLatin1());
        if (report.ok() && wire::senderOf(report.frame.type) == sender)
            return report;
    }
    return std::nullopt;
}

} // namespace

void TestProtocolPage::initTestCase()
{
    QFile page(QStringLiteral(MFTOOL_SOURCE_DIR "/docs/protocol.md"));
    QVERIFY2(page.open(QIODevice::ReadOnly), qPrintable(page.errorString()));
    m_page = QString::fromUtf8(page.readAll());
}

void TestProtocolPage::everyFrameIsRight()
{
    const QRegularExpression quoted(QStringLiteral("`(7[Ee][^`\n]{14,}7[Ff])`( \\(wrong\\))?"));
    int right = 0;
    int wrong = 0;
    auto matches = quoted.globalMatch(m_page);
    while (matches.hasNext()) {
        const auto match = matches.next();
        const bool saidWrong = !match.captured(2).isEmpty();
        const std::optional<wire::Report> report = rightFrame(match.captured(1));
        QVERIFY2(report.has_value() != saidWrong, qPrintable(match.captured(1)));
        if (report)
            QCOMPARE(wire::meaningOf(report->frame).complaint, QString());
        ++(saidWrong ? wrong : right);
    }
    QVERIFY(right > 40);
    QCOMPARE(wrong, 2);
}

/// Every row of the two tables, of requests with seven columns and of replies with four.
QList<QStringList> TestProtocolPage::rows(int columns) const
{
    QList<QStringList> found;
    const QStringList lines = m_page.split('\n');
    for (const QString &line : lines) {
        static const QRegularExpression type(QStringLiteral("^\\| [0-9A-F]{4} \\|"));
        const QStringList cells = line.mid(2).split(QStringLiteral(" |"));
        if (type.match(line).hasMatch() && cells.size() == columns + 1)
            found.append(cells);
    }
    return found;
}

void TestProtocolPage::everyMessageIsShown()
{
    QSet<QString> shown;
    for (const QStringList &row : rows(7) + rows(4))
        shown.insert(row.first());
    for (const wire::Message &message : wire::messages()) {
        const QString number = wire::typeNumber(message.type);
        // The generic replies have a table of their own.
        if (message.sender == wire::Sender::Keypad && message.type < 0x1000)
            QVERIFY2(m_page.contains(QStringLiteral("| %1 | `7E").arg(number)), message.name);
        else
            QVERIFY2(shown.remove(number), message.name);
    }
    QVERIFY2(shown.isEmpty(), "the page has a type that the table of messages lacks");
}

void TestProtocolPage::answersAreThoseOfTheTable()
{
    static const QRegularExpression number(QStringLiteral("\\b[0-9A-F]{4}\\b"));
    static const QRegularExpression length(QStringLiteral("(?:length|^ *data): \\**(NAK|NA)\\b"));
    for (const QStringList &row : rows(7)) {
        const QString command = row.at(6);
        const auto answers = wire::answersTo(quint16(row.at(0).toUInt(nullptr, 16)));
        QVERIFY2(answers, qPrintable(command));
        QVERIFY2(row.at(3).contains("ACK") == answers->ack, qPrintable(command));
        const auto reply = number.match(row.at(3));
        QCOMPARE(reply.captured().toUInt(nullptr, 16), uint(answers->reply));
        const auto refusal = length.match(row.at(4));
        if (refusal.hasMatch())
            QCOMPARE(refusal.captured(1), wire::typeName(answers->wrongLength));
    }
}

/// A length that is refused is one that the table of messages fixes.
void TestProtocolPage::lengthsAreThoseOfTheTable()
{
    for (const QStringList &row : rows(7)) {
        const wire::Message *message = wire::messageOf(quint16(row.at(0).toUInt(nullptr, 16)));
        QVERIFY2(message, qPrintable(row.at(6)));
        const bool isText = message->layouts.back().size == wire::AnySize;
        const bool saysLength = row.at(4).contains("length: ") || row.at(4).contains("data: ");
        QVERIFY2(saysLength != isText, qPrintable(row.at(6)));
    }
}

void TestProtocolPage::everyCommandSendsItsFrame()
{
    QStringList commands;
    for (const QStringList &row : rows(7)) {
        const QString command = row.at(6).mid(1).remove('`').trimmed();
        QString error;
        const std::optional<wire::Frame> frame = wire::parseRequest(command.split(' '), &error);
        QVERIFY2(frame.has_value(), qPrintable(error));
        QCOMPARE(wire::typeNumber(frame->type), row.at(0));
        QCOMPARE(
            QString::fromLatin1(wire::buildFrame(wire::Sender::Station, frame->type, frame->data)),
            row.at(5).mid(1).remove('`').trimmed());
        commands.append(command);
    }
    // Every command of the table of messages has its row.
    for (const wire::Message &message : wire::messages()) {
        if (message.sender != wire::Sender::Station)
            continue;
        for (const wire::Layout &layout : message.layouts) {
            const auto rowOf =
                std::find_if(commands.begin(), commands.end(), [&layout](const QString &command) {
                    return command == layout.text ||
                           command.startsWith(QLatin1String(layout.text) + QLatin1Char(' '));
                });
            QVERIFY2(rowOf != commands.end(), layout.text);
            commands.erase(rowOf);
        }
    }
    QCOMPARE(commands, QStringList());
}

MFTOOL_TEST(TestProtocolPage, EventLoop)
#include "tst_protocolpage.moc"
