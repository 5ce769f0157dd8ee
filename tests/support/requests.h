/// Requests for the tests that send all of them, with the answers written out.
/// tests/fuzz/seeds.py reads the rows of both tables, too.
#ifndef TESTS_SUPPORT_REQUESTS_H
#define TESTS_SUPPORT_REQUESTS_H

#include <QByteArray>
#include <QList>

/// A type and how many characters of data it takes.
struct RequestType {
    quint16 type;
    int length;          ///< -1 takes any
    const char *refusal; ///< the reply to any other length
};

/// The kept corpus of the fuzzer counts on this order.
const RequestType requestTypes[] = {
    {0x6001, 0, "0005"},  {0x6002, -1, ""},    {0x603C, 2, "0005"}, {0x6143, 4, "0005"},
    {0x6144, 14, "0005"}, {0x6147, 4, "0005"}, {0x6161, 6, "0005"}, {0x7000, -1, ""},
    {0x7010, 2, "0005"},  {0x7020, 2, "0003"}, {0x7030, 2, "0005"}, {0x7040, 2, "0005"},
    {0x7041, -1, ""},     {0x7050, -1, ""},    {0x7053, 0, "0005"}, {0x7060, 0, "0005"},
    {0x7070, 0, "0005"},  {0x7080, 0, "0005"}, {0x1234, -1, ""},
};

/// One request and what comes back.
struct SampleRequest {
    quint16 type;
    const char *data;
    const char *replies;    ///< "0004", "7071 00", a relayed line as "line AT+X, 0004"
    const char *later = ""; ///< reply that comes when a program has ended

    /// "7000 bars"
    QByteArray name() const { return (QByteArray::number(type, 16) + ' ' + data).trimmed(); }
    /// The frame that comes last: its type and its data.
    quint16 lastType() const { return quint16(lastReply().left(4).toUInt(nullptr, 16)); }
    QByteArray lastData() const { return lastReply().mid(5); }

private:
    QByteArray lastReply() const
    {
        return *later ? QByteArray(later) : QByteArray(replies).split(',').last().trimmed();
    }
};

/// Right and wrong ones to a tool that has just started on the virtual keypad; what
/// one switches on, the next switches off.
const SampleRequest sampleRequests[] = {
    {0x6002, "ABCD", "6003 ABCD"},
    {0x603C, "01", "603D 010220140101 1.2  0000000000000000"},
    {0x603C, "02", "0003"},
    {0x6143, "0064", "0004"},
    {0x6143, "00FF", "0004"},
    {0x6143, "0164", "0003"},
    {0x6143, "0101", "0004"},
    {0x6143, "0100", "0004"},
    {0x6144, "000F0000000000", "0004"},
    {0x6144, "00", "0005"},
    {0x6144, "01FF0000000000", "0003"},
    {0x6147, "80FF", "0004"},
    {0x6147, "0000", "0004"},
    {0x6147, "0155", "0003"},
    {0x6161, "010502", "6162 0105020100000000000000000000"}, // there is no card
    {0x6161, "021E02", "0003"},
    {0x7000, "bars", "0004"},
    {0x7000, "no such picture", "0005"},
    {0x7000, "", "0004"},
    {0x7010, "32", "0004"},
    {0x7020, "01", "0004"},
    {0x7020, "00", "0004"},
    {0x7020, "", "0003"},
    {0x7030, "01", "0004"},
    {0x7030, "00", "0004"},
    {0x7040, "01", "0004"},
    {0x7041, "AT+X", "line AT+X, 0004"},
    {0x7040, "00", "0004"},
    {0x7041, "AT+X", "0004"},
    {0x7053, "", "0003"}, // nothing is being flashed
    {0x7053, "00", "0005"},
    {0x7060, "00", "0005"},
    {0x7070, "", "7071 00"},
    {0x7070, "00", "0005"},
    {0x7080, "", "7081 00012345"},
    {0x7080, "00", "0005"},
    {0x1234, "", "0003"},
    {0x7050, "", "0004", "7052 01"},
    {0x7060, "", "0004", "7061 01"},
    {0x6001, "00", "0005"},
    {0x6001, "", "0004"},
};

/// Those that neither start a program nor end the tool.
inline QList<SampleRequest> harmlessRequests()
{
    QList<SampleRequest> harmless;
    for (const SampleRequest &request : sampleRequests) {
        if (!*request.later && (request.type != 0x6001 || *request.data))
            harmless.append(request);
    }
    return harmless;
}

#endif
