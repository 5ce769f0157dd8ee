#include "bench/keypad/sysfsmodel.h"

#include <cerrno>
#include <cstdlib>

namespace
{

const char devices[] = "/sys/devices/";
const char pinFolder[] = "/sys/devices/virtual/gpio/";
const int pins = 160; // the i.MX28's five banks of 32

/// What the kernel's kstrtoul and kstrtol accept: digits of the base with an
/// optional sign and one line end, nothing else; text ends at a NUL.
int parseNumber(const QByteArray &text, int base, bool negativeToo, qint64 *value)
{
    QByteArray digits(text.constData()); // up to the first NUL
    if (digits.endsWith('\n'))
        digits.chop(1);
    if (digits.isEmpty() || strchr("+-0123456789", digits.at(0)) == nullptr)
        return EINVAL;
    const bool negative = digits.startsWith('-');
    if (negative && !negativeToo)
        return EINVAL;
    const QByteArray unsignedDigits = negative || digits.startsWith('+') ? digits.mid(1) : digits;
    if (unsignedDigits.isEmpty() || !isdigit(static_cast<unsigned char>(unsignedDigits.at(0))))
        return EINVAL;
    char *end = nullptr;
    errno = 0;
    const long long parsed = strtoll(digits.constData(), &end, base);
    if (*end != '\0')
        return EINVAL;
    if (errno == ERANGE)
        return ERANGE;
    *value = parsed;
    return 0;
}

QByteArray line(qint64 number)
{
    return QByteArray::number(number) + '\n';
}

QString parentOf(const QString &path)
{
    return path.left(path.lastIndexOf(QLatin1Char('/')));
}

QString nameOf(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

bool within(const QString &path, const QString &folder)
{
    return path == folder || path.startsWith(folder + QLatin1Char('/'));
}

/// "../../devices/x" as seen from the folder of "/sys/class/leds/y".
QString absoluteTarget(const QString &link, const QString &target)
{
    QString folder = parentOf(link);
    QString rest = target;
    while (rest.startsWith(QLatin1String("../"))) {
        rest.remove(0, 3);
        folder = parentOf(folder);
    }
    return folder + QLatin1Char('/') + rest;
}

} // namespace

SysfsModel::SysfsModel()
{
    addFolder(QStringLiteral("/sys"));
    for (const char *led : {"ready", "armed", "trouble", "ac", "home", "buzzer"})
        addLed(QLatin1String(led), 255);

    const QString backlight = QStringLiteral("/sys/devices/platform/backlight/backlight/mxs-bl");
    addDevice(QStringLiteral("/sys/class/backlight/mxs-bl"), backlight);
    addFile(backlight + QLatin1String("/brightness"), BacklightBrightness, 0644, "100\n");
    addFile(backlight + QLatin1String("/max_brightness"), Plain, 0444, "255\n");

    addFile(QStringLiteral("/sys/class/gpio/export"), GpioExport, 0200, QByteArray());
    addFile(QStringLiteral("/sys/class/gpio/unexport"), GpioUnexport, 0200, QByteArray());
    addPin(QStringLiteral("sd_power"));
    m_pins[QStringLiteral("sd_power")].output = true;

    const QString supply = QStringLiteral("/sys/devices/platform/corlink/power_supply/corlink");
    addDevice(QStringLiteral("/sys/class/power_supply/corlink"), supply);
    addFile(supply + QLatin1String("/voltage_now"), Plain, 0444, "12345\n");
    // Without a line end, or the revision would not be read as a number.
    addFile(QStringLiteral("/sys/board_revision/marlow_revision"), Plain, 0444, "2");
}

void SysfsModel::addFolder(const QString &path)
{
    for (QString folder = path; !folder.isEmpty() && !m_entries.contains(folder);
         folder = parentOf(folder)) {
        Entry entry;
        entry.node.type = Folder;
        entry.node.mode = 0755;
        m_entries.insert(folder, entry);
    }
}

void SysfsModel::addFile(const QString &path, Driver driver, unsigned mode, const QByteArray &text)
{
    addFolder(parentOf(path));
    Entry entry;
    entry.node.type = Attribute;
    entry.node.mode = mode;
    entry.driver = driver;
    entry.text = text;
    m_entries.insert(path, entry);
}

void SysfsModel::addDevice(const QString &classLink, const QString &device)
{
    addFolder(device);
    addFolder(parentOf(classLink));
    Entry entry;
    entry.node.type = Link;
    entry.node.mode = 0777;
    entry.node.target = QLatin1String("../../") + device.mid(int(sizeof("/sys/")) - 1);
    m_entries.insert(classLink, entry);
}

bool SysfsModel::addLed(const QString &name, int maximum)
{
    const QString device = QLatin1String("/sys/devices/platform/leds/leds/") + name;
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || m_entries.contains(device))
        return false;
    addDevice(QLatin1String("/sys/class/leds/") + name, device);
    addFile(device + QLatin1String("/brightness"), LedBrightness, 0644, "0\n");
    addFile(device + QLatin1String("/max_brightness"), Plain, 0444, line(maximum));
    return true;
}

void SysfsModel::addPin(const QString &name)
{
    const QString device = QLatin1String(pinFolder) + name;
    addDevice(QLatin1String("/sys/class/gpio/") + name, device);
    addFile(device + QLatin1String("/active_low"), PinActiveLow, 0644, QByteArray());
    addFile(device + QLatin1String("/direction"), PinDirection, 0644, QByteArray());
    addFile(device + QLatin1String("/value"), PinValue, 0644, QByteArray());
}

bool SysfsModel::addAttribute(const QString &path, const QByteArray &text, unsigned mode)
{
    const QString parent = devicePath(parentOf(path), true);
    if (!within(parent, QStringLiteral("/sys")) || m_entries.value(parent).node.type == Attribute)
        return false;
    addFile(parent + QLatin1Char('/') + nameOf(path), Plain, mode, text);
    return true;
}

bool SysfsModel::remove(const QString &path)
{
    const QString device = devicePath(path, true);
    if (!m_entries.contains(device) || device == QLatin1String("/sys"))
        return false;
    return removeDevice(device);
}

bool SysfsModel::removeDevice(const QString &device)
{
    for (auto it = m_entries.begin(); it != m_entries.end();) {
        const bool dangling =
            it->node.type == Link && within(absoluteTarget(it.key(), it->node.target), device);
        if (dangling || within(it.key(), device))
            it = m_entries.erase(it);
        else
            ++it;
    }
    return true;
}

QString SysfsModel::devicePath(const QString &path, bool followLast) const
{
    const QStringList parts = path.split(QLatin1Char('/'));
    QString resolved;
    for (int i = 1; i < parts.size(); ++i) {
        resolved += QLatin1Char('/') + parts.at(i);
        const auto it = m_entries.constFind(resolved);
        const bool last = i == parts.size() - 1;
        if (it != m_entries.constEnd() && it->node.type == Link && (!last || followLast))
            resolved = absoluteTarget(resolved, it->node.target);
    }
    return resolved;
}

QString SysfsModel::classPath(const QString &path) const
{
    const QString device = devicePath(path, false);
    if (!device.startsWith(QLatin1String(devices)))
        return device;
    for (auto it = m_entries.constBegin(); it != m_entries.constEnd(); ++it) {
        if (it->node.type != Link)
            continue;
        const QString target = absoluteTarget(it.key(), it->node.target);
        if (within(device, target))
            return it.key() + device.mid(target.size());
    }
    return device;
}

SysfsModel::Node SysfsModel::node(const QString &path) const
{
    return m_entries.value(devicePath(path, false)).node;
}

QStringList SysfsModel::list(const QString &path) const
{
    const QString folder = devicePath(path, true);
    QStringList names;
    for (auto it = m_entries.constBegin(); it != m_entries.constEnd(); ++it) {
        if (it.key() != folder && parentOf(it.key()) == folder)
            names.append(nameOf(it.key()));
    }
    return names;
}

void SysfsModel::fail(const QString &path, Operation operation, int error)
{
    m_faults[classPath(path)][operation] = error;
}

void SysfsModel::clearFault(const QString &path)
{
    m_faults.remove(classPath(path));
}

int SysfsModel::fault(const QString &path, Operation operation) const
{
    return m_faults.value(classPath(path)).value(operation, 0);
}

int SysfsModel::open(const QString &path, bool reading, bool writing) const
{
    const auto it = m_entries.constFind(devicePath(path, true));
    if (it == m_entries.constEnd())
        return ENOENT;
    if (it->node.type != Attribute)
        return EISDIR;
    if (const int error = fault(path, Open))
        return error;
    const bool readable = (it->node.mode & 0444) != 0;
    const bool writable = (it->node.mode & 0222) != 0;
    return (reading && !readable) || (writing && !writable) ? EACCES : 0;
}

SysfsModel::Pin &SysfsModel::pinOf(const QString &attribute)
{
    return m_pins[nameOf(parentOf(attribute))];
}

QByteArray SysfsModel::show(const QString &path, int *error) const
{
    const QString device = devicePath(path, true);
    const auto it = m_entries.constFind(device);
    const int failure = it == m_entries.constEnd() ? ENODEV : fault(path, Read);
    if (error != nullptr)
        *error = failure;
    if (failure != 0)
        return QByteArray();
    const Pin pin = m_pins.value(nameOf(parentOf(device)));
    switch (it->driver) {
    case PinDirection:
        return pin.output ? "out\n" : "in\n";
    case PinActiveLow:
        return line(pin.activeLow);
    case PinValue:
        return line(pin.level != pin.activeLow);
    default:
        return it->text;
    }
}

bool SysfsModel::set(const QString &path, const QByteArray &text)
{
    const QString device = devicePath(path, true);
    // A pin has a level whether it is exported or not.
    static const QString pinPrefix = QStringLiteral("/sys/class/gpio/gpio");
    const bool level = device.startsWith(pinPrefix) && nameOf(device) == QLatin1String("value");
    const auto it = m_entries.find(device);
    if (it == m_entries.end() && !level)
        return false;
    const Driver driver = level ? PinValue : it->driver;
    if (driver == PinValue)
        pinOf(device).level = text.trimmed() == "1";
    else if (driver == PinActiveLow)
        pinOf(device).activeLow = text.trimmed() == "1";
    else if (driver == PinDirection)
        pinOf(device).output = text.trimmed() == "out";
    else
        it->text = text;
    return true;
}

int SysfsModel::store(const QString &path, const QByteArray &text)
{
    const QString device = devicePath(path, true);
    const auto it = m_entries.find(device);
    if (it == m_entries.end())
        return ENODEV;
    if (const int error = fault(path, Write))
        return error;
    switch (it->driver) {
    case LedBrightness:
        return storeLed(device, text);
    case BacklightBrightness:
        return storeBacklight(device, text);
    case GpioExport:
        return exportPin(text);
    case GpioUnexport:
        return unexportPin(text);
    case PinDirection:
        return storeDirection(device, text);
    case PinActiveLow:
        return storeActiveLow(device, text);
    case PinValue:
        return storeValue(device, text);
    case Plain:
        break;
    }
    it->text = text;
    return 0;
}

quint64 SysfsModel::maximum(const QString &brightness) const
{
    const QString path = parentOf(brightness) + QLatin1String("/max_brightness");
    return m_entries.value(path).text.trimmed().toULongLong();
}

int SysfsModel::storeLed(const QString &path, const QByteArray &text)
{
    qint64 value = 0;
    if (const int error = parseNumber(text, 10, false, &value))
        return error;
    const qint64 most = qint64(maximum(path));
    m_entries[path].text = line(qMin(value, most));
    return 0;
}

int SysfsModel::storeBacklight(const QString &path, const QByteArray &text)
{
    qint64 value = 0;
    if (const int error = parseNumber(text, 0, false, &value))
        return error;
    if (value > qint64(maximum(path)))
        return EINVAL;
    m_entries[path].text = line(value);
    return 0;
}

int SysfsModel::exportPin(const QByteArray &text)
{
    qint64 number = 0;
    if (const int error = parseNumber(text, 0, true, &number))
        return error;
    if (number < 0 || number >= pins)
        return EINVAL;
    const QString name = QStringLiteral("gpio%1").arg(number);
    if (m_entries.contains(QLatin1String(pinFolder) + name))
        return EBUSY;
    addPin(name);
    return 0;
}

int SysfsModel::unexportPin(const QByteArray &text)
{
    qint64 number = 0;
    if (const int error = parseNumber(text, 0, true, &number))
        return error;
    const QString name = QStringLiteral("gpio%1").arg(number);
    const QString device = QLatin1String(pinFolder) + name;
    if (!m_entries.contains(device))
        return EINVAL;
    // The kernel forgets the polarity of a pin it frees; direction and level are the chip's.
    m_pins[name].activeLow = false;
    removeDevice(device);
    return 0;
}

int SysfsModel::storeDirection(const QString &path, const QByteArray &text)
{
    QByteArray word(text.constData());
    if (word.endsWith('\n'))
        word.chop(1);
    Pin &pin = pinOf(path);
    if (word == "in") {
        pin.output = false;
        return 0;
    }
    if (word != "out" && word != "low" && word != "high")
        return EINVAL;
    pin.output = true;
    pin.level = word == "high";
    return 0;
}

int SysfsModel::storeActiveLow(const QString &path, const QByteArray &text)
{
    qint64 value = 0;
    if (const int error = parseNumber(text, 0, true, &value))
        return error;
    pinOf(path).activeLow = value != 0;
    return 0;
}

int SysfsModel::storeValue(const QString &path, const QByteArray &text)
{
    Pin &pin = pinOf(path);
    if (!pin.output)
        return EPERM;
    qint64 value = 0;
    if (const int error = parseNumber(text, 0, true, &value))
        return error;
    pin.level = (value != 0) != pin.activeLow;
    return 0;
}
