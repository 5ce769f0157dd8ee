#include "bench/line/jsonstream.h"

#include <QJsonDocument>

void JsonStream::say(const char *event, QJsonObject object)
{
    object.insert(QStringLiteral("event"), QLatin1String(event));
    if (!m_fixture.isEmpty())
        object.insert(QStringLiteral("fixture"), m_fixture);
    const QByteArray line = QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), m_out);
    if (m_interrupt != nullptr)
        m_interrupt->flush(m_out);
    else
        std::fflush(m_out);
}
