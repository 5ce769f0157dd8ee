/// The write and read-back test of the SD card.
#ifndef HARDWARE_SDCARDTEST_H
#define HARDWARE_SDCARDTEST_H

#include <QString>

/// Status codes of the test, as the station gets them.
enum SdCardStatus {
    SdCardGood = 0,        ///< all ten bytes were read back as written
    SdCardMissing = 1,     ///< no card is mounted; the test did not run
    SdCardNotWritable = 2, ///< no file could be opened for writing
    SdCardFault = 3        ///< a byte differed, or a file could not be deleted or read
};

/// Writes ten random bytes to a file on the card and reads them back. The file
/// stays on the card; the next test deletes it first. Blocks until the card has
/// answered. Reseeds rand().
/// @param mountDir  the folder where the card is mounted
/// @param status    receives a SdCardStatus
/// @param values    receives the values read back; untouched when nothing is read
/// @return milliseconds that reading took; -1 when an old file could not be
///         deleted, -2 when the file could not be opened for writing, -3 when
///         it could not be opened for reading
qint64 sdCardTest(const QString &mountDir, int &status, int (&values)[10]);

#endif
