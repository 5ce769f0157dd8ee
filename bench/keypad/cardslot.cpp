#include "bench/keypad/cardslot.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <unistd.h>

using HostProtocol::CardKind;

namespace
{

QString failure(const char *what, const QByteArray &folder)
{
    return QStringLiteral("cannot %1 %2: %3")
        .arg(QLatin1String(what), QString::fromUtf8(folder),
             QString::fromLocal8Bit(strerror(errno)));
}

bool mountCard(const QByteArray &folder, unsigned long flags)
{
    return mount("card", folder.constData(), "tmpfs", flags, "size=1m") == 0;
}

void fill(const QByteArray &file)
{
    const int fd = open(file.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const QByteArray page(4096, 'x');
    while (write(fd, page.constData(), size_t(page.size())) > 0)
        continue;
    close(fd);
}

bool makeReadOnly(const QByteArray &folder)
{
    // A worker that has just written to the card may still be ending.
    for (int attempt = 0; attempt < 200; ++attempt) {
        if (mountCard(folder, MS_REMOUNT | MS_RDONLY))
            return true;
        if (errno != EBUSY)
            return false;
        usleep(1000);
    }
    return false;
}

} // namespace

QString CardSlot::setCard(const QString &dir, CardKind::Card kind)
{
    const QByteArray folder = dir.toUtf8();
    const bool plain =
        kind == CardKind::Writable || kind == CardKind::ReadOnly || kind == CardKind::Full;
    if (m_flawedCards.contains(dir) || (!plain && m_cards.contains(dir))) {
        if (umount2(folder.constData(), MNT_DETACH) != 0)
            return failure("unmount", folder);
        m_flawedCards.remove(dir);
        m_cards.remove(dir);
    }
    if (kind == CardKind::NoFolder)
        return rmdir(folder.constData()) == 0 || errno == ENOENT ? QString()
                                                                 : failure("remove", folder);
    std::error_code ignored;
    std::filesystem::create_directories(folder.constData(), ignored);
    return plain ? setPlainCard(dir, kind) : setFlawedCard(dir);
}

QString CardSlot::setFlawedCard(const QString &dir)
{
    const QByteArray folder = dir.toUtf8();
    const int device = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (device < 0)
        return failure("open /dev/fuse for", folder);
    const QSharedPointer<FlawedCard> card(new FlawedCard);
    m_flawedCards.insert(dir, card);
    return card->mount(device, folder);
}

QString CardSlot::setPlainCard(const QString &dir, CardKind::Card kind)
{
    const QByteArray folder = dir.toUtf8();
    if (!m_cards.contains(dir) && !mountCard(folder, MS_NOSUID | MS_NODEV))
        return failure("mount a card at", folder);
    m_cards.insert(dir);
    if (!mountCard(folder, MS_REMOUNT))
        return failure("make writable", folder);
    const QByteArray filler = folder + "/filler";
    unlink(filler.constData());
    if (kind == CardKind::Full)
        fill(filler);
    if (kind == CardKind::ReadOnly && !makeReadOnly(folder))
        return failure("make read-only", folder);
    return QString();
}
