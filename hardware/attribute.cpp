#include "hardware/attribute.h"

#include <QFile>

bool writeAttribute(const QString &path, const QByteArray &text)
{
    QFile file(path);
    // Unbuffered: a buffered file keeps a refused text and stores it again when it is closed.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    file.write(text);
    return true;
}
