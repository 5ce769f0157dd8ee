/// What Qt 4.8, 5 and 6 name differently, or do not have, for the tests that run with all
/// of them.
#ifndef TESTS_SUPPORT_ANYQT_H
#define TESTS_SUPPORT_ANYQT_H

#include <QByteArray>
#include <QMetaMethod>
#include <QtTest>

inline QByteArray signatureOf(const QMetaMethod &method)
{
#if QT_VERSION < 0x050000
    return method.signature();
#else
    return method.methodSignature();
#endif
}

/// A list of texts, which Qt 4.8 does not take in braces.
template<typename... Text> QStringList strings(const Text &...texts)
{
    QStringList all;
    const int each[] = {0, (all.append(QString(texts)), 0)...};
    Q_UNUSED(each);
    return all;
}

/// What a signal's access() says: with Qt 4 only its own class may emit it.
inline QMetaMethod::Access accessOfSignals()
{
#if QT_VERSION < 0x050000
    return QMetaMethod::Protected;
#else
    return QMetaMethod::Public;
#endif
}

/// Handles events until @p isTrue, for @p msecs at most.
template<typename Condition> bool waitUntil(Condition isTrue, int msecs = 5000)
{
    QElapsedTimer time;
    time.start();
    while (!isTrue() && time.elapsed() < msecs)
        QTest::qWait(1);
    return isTrue();
}

#endif
