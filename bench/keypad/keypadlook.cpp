#include "bench/keypad/keypadlook.h"

#include "bench/keypad/hostclient.h"
#include "bench/keypad/screen.h"
#include "bench/keypad/xvfb.h"

#include <QDeadlineTimer>
#include <QImageWriter>
#include <QThread>

namespace
{

const int lookMsecs = 5; ///< between two looks, since a screen announces nothing

} // namespace

QString KeypadDisplay::open(QString *xDisplay) const
{
    xDisplay->clear();
    if (kind == Xvfb) {
        ::Xvfb &server = ::Xvfb::shared();
        if (!server.start())
            return server.errorString();
        *xDisplay = server.display();
    } else if (kind == Existing) {
        *xDisplay = name.isEmpty() ? qEnvironmentVariable("DISPLAY") : name;
        if (xDisplay->isEmpty())
            return QStringLiteral("there is no DISPLAY");
        if (!Screen::canOpen(xDisplay->toLocal8Bit()))
            return QStringLiteral("the X display \"%1\" cannot be opened").arg(*xDisplay);
    }
    return QString();
}

KeypadLook::KeypadLook(HostClient *host) : m_host(host) {}

KeypadLook::~KeypadLook() = default;

QString KeypadLook::whyNoDisplay(KeypadDisplay::Kind kind)
{
    KeypadDisplay display;
    display.kind = kind;
    QString name;
    return display.open(&name);
}

bool KeypadLook::openDisplay(const KeypadDisplay &wanted)
{
    const QString reason = wanted.open(&m_display);
    return reason.isEmpty() || m_host->failed(reason);
}

Screen *KeypadLook::touchable()
{
    if (!m_screen && !m_display.isEmpty())
        m_screen.reset(new Screen(m_display.toLatin1()));
    if (m_screen && m_screen->isValid())
        return m_screen.data();
    return nullptr;
}

QImage KeypadLook::screen()
{
    const Screen *shown = touchable();
    return shown != nullptr ? shown->image() : QImage();
}

bool KeypadLook::screenshot(const QString &file)
{
    const QImage image = screen();
    if (image.isNull())
        return m_host->failed(QStringLiteral("there is no display to look at"));
    QImageWriter writer(file);
    return writer.write(image) ||
           m_host->failed(QStringLiteral("cannot write %1: %2").arg(file, writer.errorString()));
}

QRgb KeypadLook::pixel(int x, int y)
{
    const QImage image = screen();
    return image.valid(x, y) ? image.pixel(x, y) : 0;
}

bool KeypadLook::waitForPixel(int x, int y, QRgb colour, int msecs)
{
    const QDeadlineTimer deadline(msecs);
    while ((pixel(x, y) & 0xffffff) != (colour & 0xffffff)) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(lookMsecs);
    }
    return true;
}
