/// Waiting for the end of what a UART is receiving.
///
/// A frame that the station wrote in one piece comes out of a UART's FIFO in
/// several: a driver without DMA hands over 16 bytes or so whenever the FIFO is
/// half full, or when nothing has followed for some characters' time. A reader
/// that is quick enough would take each piece for a message of its own.
#ifndef PROTOCOL_QUIETLINE_H
#define PROTOCOL_QUIETLINE_H

/// What the waiting needs of a line.
class ReceivingLine
{
public:
    virtual ~ReceivingLine();

    /// Its speed in bits per second; 0 when it has none.
    virtual unsigned speed() const = 0;

    /// The count of bytes that a read would find now.
    virtual int waiting() const = 0;

    /// Lets so many microseconds pass.
    virtual void pause(unsigned microseconds) = 0;
};

/// Returns once the count of waiting bytes has stood still for the time that a
/// FIFO may keep a frame's next piece back (36 characters, 3 ms at least), or
/// after the time of 1024 characters. Reads nothing.
void waitUntilQuiet(ReceivingLine &line);

/// Whether the terminal device @p fd is a UART by its driver's own word. A pseudo
/// terminal is not: it hands over a frame as it was written.
bool isUart(int fd);

/// The same for the device @p fd, at the speed that it has at the moment.
void waitUntilQuiet(int fd);

#endif
