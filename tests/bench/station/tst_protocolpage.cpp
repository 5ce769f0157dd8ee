#include "bench/station/frame.h"
#include "bench/station/messages.h"
#include "bench/station/requests.h"

#include <QtTest>

/// The frames that docs/protocol.md shows are right, since people copy them.
class TestProtocolPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyFrameIsRight();
    void everyMessageIsShown();
    void everyCommandSendsItsFrame();

private:
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

void TestProtocolPage::everyMessageIsShown()
{
    for (int type = 0; type <= 0xFFFF; ++type) {
        const auto number = static_cast<quint16>(type);
        if (!wire::senderOf(number))
            continue;
        const QString length = QStringLiteral("7E[0-9A-F]{4}") + wire::typeNumber(number);
        QVERIFY2(m_page.contains(QRegularExpression(length)), qPrintable(wire::typeNumber(number)));
    }
}

void TestProtocolPage::everyCommandSendsItsFrame()
{
    // | type | ... | `frame` | `command` |
    const QRegularExpression row(
        QStringLiteral("^\\| ([0-9A-F]{4}) \\|.*\\| `([^`]+)` \\| `([^`]+)` \\|$"),
        QRegularExpression::MultilineOption);
    int rows = 0;
    auto matches = row.globalMatch(m_page);
    while (matches.hasNext()) {
        const auto match = matches.next();
        QString error;
        const std::optional<wire::Frame> frame =
            wire::parseRequest(match.captured(3).split(' '), &error);
        QVERIFY2(frame.has_value(), qPrintable(error));
        QCOMPARE(wire::typeNumber(frame->type), match.captured(1));
        QCOMPARE(
            QString::fromLatin1(wire::buildFrame(wire::Sender::Station, frame->type, frame->data)),
            match.captured(2));
        ++rows;
    }
    QCOMPARE(rows, 21);
}

QTEST_GUILESS_MAIN(TestProtocolPage)
#include "tst_protocolpage.moc"
