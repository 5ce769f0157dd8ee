/// Collects what is logged while it lives, so that a test can compare all of
/// it: the lines, their levels, their order, and that there are no others.
#ifndef TESTS_MESSAGELOG_H
#define TESTS_MESSAGELOG_H

#include <QStringList>
#include <QtGlobal>

class MessageLog
{
public:
    MessageLog()
    {
        lines().clear();
        m_previous = qInstallMessageHandler(record);
    }
    ~MessageLog() { qInstallMessageHandler(m_previous); }
    Q_DISABLE_COPY(MessageLog)

    /// Every message so far as "debug: text" or "warning: text"; forgets them.
    QStringList take() const
    {
        const QStringList taken = lines();
        lines().clear();
        return taken;
    }

private:
    static QStringList &lines()
    {
        static QStringList collected;
        return collected;
    }

    static void record(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        const char *level = type == QtDebugMsg     ? "debug: "
                            : type == QtWarningMsg ? "warning: "
                                                   : "other: ";
        lines().append(QLatin1String(level) + text);
    }

    QtMessageHandler m_previous;
};

#endif
