/// Catches what the code under test logs, with its level.
#ifndef TESTS_SUPPORT_LOGCATCHER_H
#define TESTS_SUPPORT_LOGCATCHER_H

#include <QString>
#include <QStringList>

/// While it lives, every message of every thread is kept instead of printed.
/// One at a time.
class LogCatcher
{
public:
    LogCatcher();
    ~LogCatcher();
    LogCatcher(const LogCatcher &) = delete;
    LogCatcher &operator=(const LogCatcher &) = delete;

    /// All messages so far, oldest first, each after "debug: ", "warning: " or "other: ".
    QStringList lines() const;
    int count(const QString &line) const;
    bool has(const QString &line) const { return count(line) > 0; }
    /// Like lines(), and forgets them.
    QStringList take();
    void clear();

private:
    QtMessageHandler m_previous;
};

#endif
