/// QtTest as version 4.8 declares it, where that of Qt 5 takes more. For a compiler that
/// reads tests, ahead of their shims; such a test cannot be run.
#ifndef TESTS_API_QTTEST48_H
#define TESTS_API_QTTEST48_H

#include <QtTest/QtTest>

namespace qttest48
{

class SignalSpy : public QSignalSpy
{
public:
    SignalSpy(QObject *sender, const char *signal) : QSignalSpy(sender, signal) {}
};

inline bool verify(bool statement)
{
    return statement;
}

// Values of two types are only compared where there is a function for the two.
template<typename T> bool compare(const T &, const T &)
{
    return true;
}
template<typename T> bool compare(const T *, const T *)
{
    return true;
}
template<typename T1, typename T2> bool compare(const T1 &, const T2 &) = delete;
inline bool compare(const bool &, const int &)
{
    return true;
}
inline bool compare(const qint64 &, const qint32 &)
{
    return true;
}
inline bool compare(const qint32 &, const qint64 &)
{
    return true;
}
inline bool compare(const QString &, const QLatin1String &)
{
    return true;
}

} // namespace qttest48

#undef QVERIFY
#undef QCOMPARE
#define QVERIFY(statement)                                                                         \
    do {                                                                                           \
        if (!qttest48::verify((statement)))                                                        \
            return;                                                                                \
    } while (false)
#define QCOMPARE(actual, expected)                                                                 \
    do {                                                                                           \
        if (!qttest48::compare(actual, expected))                                                  \
            return;                                                                                \
    } while (false)
#define QSignalSpy qttest48::SignalSpy

#include "tests/support/qttest4.h"

#endif
