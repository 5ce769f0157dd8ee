/// The part of the kernel's /sys that the tool uses, as a pure state machine: a
/// tree of folders, links and attributes, where reading an attribute shows a
/// state and every write is one store that the attribute's driver accepts or
/// refuses. Knows nothing of FUSE or of time.
///
/// Paths are whole ("/sys/class/leds/ready/brightness") and may go through the
/// class links; errors are errno values, 0 for success.
#ifndef BENCH_KEYPAD_SYSFSMODEL_H
#define BENCH_KEYPAD_SYSFSMODEL_H

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

class SysfsModel
{
public:
    enum Operation { Open, Read, Write };
    enum NodeType { None, Folder, Link, Attribute };

    /// One write(2) to an attribute.
    struct Store {
        qint64 usec = 0; ///< microseconds since the keypad was prepared; filled in by the keeper
        QString path;    ///< by its class name where it has one
        QByteArray text; ///< as written
        int error = 0;   ///< errno value the writer got, 0 if it was accepted
    };

    struct Node {
        NodeType type = None;
        unsigned mode = 0; ///< permission bits
        QString target;    ///< of a link, relative as the kernel makes them
    };

    /// The board as it is after booting: LEDs ready, armed, trouble, ac, home and
    /// buzzer (maximum 255), backlight mxs-bl (maximum 255), GPIO export, the SD
    /// power pin, the bus voltage and the board revision (2).
    SysfsModel();

    /// The node itself, a link not followed at the path's end.
    Node node(const QString &path) const;
    /// Names in a folder, sorted.
    QStringList list(const QString &path) const;

    /// Whether an attribute can be opened for reading and for writing. ENOENT,
    /// EACCES where its mode forbids it (also to root, as in the kernel), or a fault.
    int open(const QString &path, bool reading, bool writing) const;
    /// What reading shows.
    QByteArray show(const QString &path, int *error = nullptr) const;
    /// One write(2). The effect is there when this returns.
    int store(const QString &path, const QByteArray &text);

    /// From outside, past all drivers: what reading shows from now on. For a pin's value
    /// it is the level at the pin, before active_low.
    bool set(const QString &path, const QByteArray &text);
    bool addLed(const QString &name, int maximum);
    bool addAttribute(const QString &path, const QByteArray &text, unsigned mode = 0644);
    bool remove(const QString &path);

    void fail(const QString &path, Operation operation, int error);
    void clearFault(const QString &path);

    /// The name that people use: by class where there is one.
    QString classPath(const QString &path) const;

private:
    enum Driver {
        Plain,
        LedBrightness,
        BacklightBrightness,
        GpioExport,
        GpioUnexport,
        PinDirection,
        PinActiveLow,
        PinValue
    };
    struct Entry {
        Node node;
        Driver driver = Plain;
        QByteArray text; ///< what reading shows, except for pins
    };
    struct Pin {
        bool output = false;
        bool activeLow = false;
        bool level = false; ///< at the pin
    };

    QString devicePath(const QString &path, bool followLast) const;
    int fault(const QString &path, Operation operation) const;
    Pin &pinOf(const QString &attribute);
    void addFolder(const QString &path);
    void addFile(const QString &path, Driver driver, unsigned mode, const QByteArray &text);
    void addDevice(const QString &classLink, const QString &device);
    void addPin(const QString &name);
    bool removeDevice(const QString &device);
    int storeLed(const QString &path, const QByteArray &text);
    int storeBacklight(const QString &path, const QByteArray &text);
    int exportPin(const QByteArray &text);
    int unexportPin(const QByteArray &text);
    int storeDirection(const QString &path, const QByteArray &text);
    int storeActiveLow(const QString &path, const QByteArray &text);
    int storeValue(const QString &path, const QByteArray &text);
    quint64 maximum(const QString &brightness) const;

    QMap<QString, Entry> m_entries; ///< by device path
    QHash<QString, Pin> m_pins;     ///< by name: "gpio17"; outlives the export
    QHash<QString, QMap<Operation, int>> m_faults;
};

#endif
