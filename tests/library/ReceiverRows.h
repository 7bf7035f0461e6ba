#ifndef TESTS_LIBRARY_RECEIVER_ROWS_H
#define TESTS_LIBRARY_RECEIVER_ROWS_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

/// One message from the service, and the callback that it has to become.
struct ReceiverRow
{
    int (chronal::UserAdapter::*receiver)(const fabric::SerializableMessageEvent&);
    std::function<boost::shared_ptr<fabric::SerializableMessageData>()> data;
    const char* call;  ///< with the message ids 7/9
    const char* frame; ///< on the wire, in hexadecimal; null for a record that never travelled
    int tzsetCalls = 0;
};

inline void PrintTo(const ReceiverRow& row, std::ostream* out) { *out << row.call; }

/// At least one row for each of the twelve receivers.
extern const std::vector<ReceiverRow> receiverRows;

/// A message that holds a time zone of `length` characters, out of `size` ones.
boost::shared_ptr<fabric::SerializableMessageData> zoneOf(const char* characters, std::size_t size,
                                                          std::uint32_t length);

#endif
