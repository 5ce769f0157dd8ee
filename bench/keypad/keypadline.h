/// The two ends of the keypad's serial line: the tool's pty, whose slave is
/// /dev/ttySP0, and a station's pty, whose slave any program of the PC can
/// open. Bytes go from one master to the other once bridging has begun.
///
/// Both slaves are kept open here, so that neither side sees a hang-up when the other one
/// is not there (yet).
#ifndef BENCH_KEYPAD_KEYPADLINE_H
#define BENCH_KEYPAD_KEYPADLINE_H

#include <QByteArray>
#include <QString>

class KeypadLine
{
public:
    KeypadLine() = default;
    ~KeypadLine();
    KeypadLine(const KeypadLine &) = delete;
    KeypadLine &operator=(const KeypadLine &) = delete;

    /// Makes both ptys, raw. @return empty, or the reason in one line
    QString open();
    /// Closes everything: whoever has /dev/ttySP0 open reads EIO.
    void hangUp();
    /// Bytes that arrived for the tool while nobody had the line open are lost.
    void flushInput();

    QString toolPath() const { return m_tool.path; }       ///< empty after hangUp()
    QString stationPath() const { return m_station.path; } ///< empty after hangUp()
    int toolMaster() const { return m_tool.master; }
    int stationMaster() const { return m_station.master; }

    /// From now on the two functions below carry the bytes.
    void bridge();
    /// Carries what the tool sent, after its master became readable.
    void fromTool();
    /// Carries what the station sent, after its master became readable.
    void fromStation();

private:
    struct Pty {
        int master = -1;
        int slave = -1;
        QString path;

        QString open();
        void close();
        void push(const QByteArray &bytes);
    };

    Pty m_tool;
    Pty m_station;
};

#endif
