#include "bench/board/monitor.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QLocalSocket>

Monitor::Monitor() : m_socket(new QLocalSocket) {}

Monitor::~Monitor() = default;

bool Monitor::open(int descriptor, int limitMs)
{
    close();
    QJsonObject greeting;
    if (!m_socket->setSocketDescriptor(descriptor) || !next(&greeting, limitMs))
        return false;
    return execute(QStringLiteral("qmp_capabilities"), QJsonObject(), limitMs);
}

void Monitor::close()
{
    m_socket->abort();
}

bool Monitor::execute(const QString &command, const QJsonObject &arguments, int limitMs)
{
    QJsonObject request{{QStringLiteral("execute"), command}};
    if (!arguments.isEmpty())
        request.insert(QStringLiteral("arguments"), arguments);
    m_socket->write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
    m_socket->flush();
    QJsonObject message;
    while (next(&message, limitMs)) {
        if (message.contains(QLatin1String("return")))
            return true;
        if (message.contains(QLatin1String("error"))) {
            m_error = message.value(QLatin1String("error"))
                          .toObject()
                          .value(QLatin1String("desc"))
                          .toString();
            return false;
        }
        // An event: nobody here waits for one.
    }
    return false;
}

bool Monitor::next(QJsonObject *message, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    while (!m_socket->canReadLine()) {
        if (!m_socket->waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            m_error = QStringLiteral("the emulator does not answer");
            return false;
        }
    }
    *message = QJsonDocument::fromJson(m_socket->readLine()).object();
    return true;
}
