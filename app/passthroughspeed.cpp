#include "app/passthroughspeed.h"

#include <QtDebug>

namespace
{

const int defaultSpeed = 115200;
const int speeds[] = {9600, 19200, 38400, 57600, defaultSpeed};

bool isOffered(int speed)
{
    for (const int offered : speeds) {
        if (offered == speed)
            return true;
    }
    return false;
}

} // namespace

int passthroughSpeed(const QStringList &arguments)
{
    const int option = static_cast<int>(arguments.indexOf(QLatin1String("-b")));
    if (option < 0 || option + 1 >= arguments.size())
        return defaultSpeed;

    const int speed = arguments.at(option + 1).toInt();
    if (!isOffered(speed)) {
        qDebug("Invalid QB740 baud rate specified, defaulting to %d", defaultSpeed);
        return defaultSpeed;
    }
    qDebug("Using baud rate %d", speed);
    return speed;
}
