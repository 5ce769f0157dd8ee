/// Waiting for the end of what a UART is receiving.
///
/// A frame that the station wrote in one piece comes out of a UART's FIFO in
/// several: a driver without DMA hands over 16 bytes or so whenever the FIFO is
/// half full, or when nothing has followed for some characters' time. A reader
/// that is quick enough would take each piece for a message of its own.
#ifndef PROTOCOL_QUIETLINE_H
#define PROTOCOL_QUIETLINE_H

/// What the waiting below needs from a line.
class ReceivingLine
{
public:
    virtual ~ReceivingLine();

    /// Its speed in bits per second; 0 when it has none.
    virtual unsigned speed() const = 0;

    /// The count of bytes that a read would find now.
    virtual int waiting() const = 0;

    /// Waits that many microseconds.
    virtual void pause(unsigned microseconds) = 0;
};

/// Returns once the number of waiting bytes has not changed for as long as a FIFO may
/// hold back the next piece of a frame (36 characters, at least 3 ms), or after the time
/// of 1024 characters. Reads nothing.
void waitUntilQuiet(ReceivingLine &line);

/// Whether the driver of the terminal device @p fd says that it is a UART. A pseudo
/// terminal is not: it hands over a frame as it was written.
bool isUart(int fd);

/// The same for the device @p fd, at its present speed.
void waitUntilQuiet(int fd);

#endif
