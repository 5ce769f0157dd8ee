/// What the tests use of QtTest and QtCore that Qt 4.8 has not. With Qt 4 the build
/// includes it ahead of each test; with later versions only the tests of it do.
#ifndef TESTS_SUPPORT_QTTEST4_H
#define TESTS_SUPPORT_QTTEST4_H

#include <QtCore/QByteArray>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtTest/QtTest>

#include "tests/support/anyqt.h"

#include <stdlib.h>

namespace qttest4
{

inline void skip(const char *reason, const char *file, int line)
{
#if QT_VERSION < 0x050000
    QTest::qSkip(reason, QTest::SkipSingle, file, line);
#else
    QTest::qSkip(reason, file, line);
#endif
}

class SignalSpy : public QSignalSpy
{
public:
    SignalSpy(QObject *sender, const char *signal) : QSignalSpy(sender, signal) {}

    /// Until one more signal has come; false when none comes.
    bool wait(int msecs = 5000)
    {
        const int before = int(count());
        return waitUntil([&] { return count() > before; }, msecs);
    }
};

/// Removes a folder with all that is in it; links are not followed.
inline bool removeFolder(const QString &path)
{
    QDir folder(path);
    const QFileInfoList entries =
        folder.entryInfoList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::Hidden | QDir::System);
    for (int i = 0; i < int(entries.size()); ++i) {
        const QFileInfo &entry = entries.at(i);
        if (entry.isDir() && !entry.isSymLink())
            removeFolder(entry.filePath());
        else
            QFile::remove(entry.filePath());
    }
    return folder.rmdir(path);
}

class TemporaryDir
{
public:
    TemporaryDir()
    {
        const QString name = QDir(QDir::tempPath()).filePath(QLatin1String("tst-XXXXXX"));
        QByteArray pattern = QFile::encodeName(name);
        if (::mkdtemp(pattern.data()))
            m_path = QFile::decodeName(pattern);
    }
    ~TemporaryDir()
    {
        if (isValid())
            removeFolder(m_path);
    }
    TemporaryDir(const TemporaryDir &) = delete;
    TemporaryDir &operator=(const TemporaryDir &) = delete;

    bool isValid() const { return !m_path.isEmpty(); }
    QString path() const { return m_path; }
    QString filePath(const QString &name) const { return QDir(m_path).filePath(name); }

private:
    QString m_path;
};

struct MessageLogContext {
};
typedef void (*MessageHandler)(QtMsgType, const MessageLogContext &, const QString &);

inline MessageHandler &messageHandler()
{
    static MessageHandler handler = nullptr;
    return handler;
}

#if QT_VERSION < 0x050000
typedef QtMsgHandler QtsHandler;
inline QtsHandler installInQt(QtsHandler handler)
{
    return qInstallMsgHandler(handler);
}
inline void passOn(QtMsgType type, const char *text)
{
    messageHandler()(type, MessageLogContext(), QString::fromLocal8Bit(text));
}
#else
typedef QtMessageHandler QtsHandler;
inline QtsHandler installInQt(QtsHandler handler)
{
    return qInstallMessageHandler(handler);
}
inline void passOn(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    messageHandler()(type, MessageLogContext(), text);
}
#endif

/// Null means the handler from before the first, QtTest's own, both as the former handler
/// and as the next one.
inline MessageHandler installMessageHandler(MessageHandler handler)
{
    static QtsHandler first = nullptr;
    const MessageHandler before = messageHandler();
    // First of all, since other threads may be logging.
    if (!handler && before)
        installInQt(first);
    messageHandler() = handler;
    if (handler && !before)
        first = installInQt(passOn);
    return before;
}

} // namespace qttest4

#undef QTRY_VERIFY
#undef QTRY_VERIFY_WITH_TIMEOUT
#undef QTRY_COMPARE
#undef QTRY_COMPARE_WITH_TIMEOUT
#undef QSKIP
#undef QTEST_GUILESS_MAIN
#undef QStringLiteral
#undef QSignalSpy

#define QTRY_VERIFY_WITH_TIMEOUT(condition, msecs)                                                 \
    do {                                                                                           \
        waitUntil([&]() -> bool { return bool(condition); }, msecs);                               \
        QVERIFY(condition);                                                                        \
    } while (false)
#define QTRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 5000)
#define QTRY_COMPARE_WITH_TIMEOUT(actual, expected, msecs)                                         \
    do {                                                                                           \
        waitUntil([&]() -> bool { return (actual) == (expected); }, msecs);                        \
        QCOMPARE(actual, expected);                                                                \
    } while (false)
#define QTRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 5000)
#define QSKIP(reason)                                                                              \
    do {                                                                                           \
        qttest4::skip(reason, __FILE__, __LINE__);                                                 \
        return;                                                                                    \
    } while (false)
#define QTEST_GUILESS_MAIN(Test)                                                                   \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        QCoreApplication application(argc, argv);                                                  \
        Test test;                                                                                 \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
#define QStringLiteral(text) QString::fromUtf8(text)
#define QSignalSpy qttest4::SignalSpy
#define QTemporaryDir qttest4::TemporaryDir
#define QMessageLogContext qttest4::MessageLogContext
#define QtMessageHandler qttest4::MessageHandler
#define qInstallMessageHandler qttest4::installMessageHandler
#define qunsetenv ::unsetenv

#if QT_VERSION < 0x050000
typedef QList<QByteArray> QByteArrayList;
Q_DECLARE_METATYPE(QList<QByteArray>)
Q_DECLARE_METATYPE(QList<bool>)
Q_DECLARE_METATYPE(QList<int>)
#endif

#endif
