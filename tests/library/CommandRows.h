#ifndef TESTS_LIBRARY_COMMAND_ROWS_H
#define TESTS_LIBRARY_COMMAND_ROWS_H

#include <functional>
#include <string>
#include <vector>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

/// A time as a caller may have it: with its padding set.
union CallersTime
{
    struct
    {
        alignas(8) std::int64_t seconds = 0;
        std::int32_t microseconds = 0;
        std::uint32_t padding = 0xA5A5A5A5U;
    } words = {};
    nubOsalTime_struct time;

    operator const nubOsalTime_struct&() const { return time; }
};

/// One call of a command, and the message that it has to send.
struct CommandRow
{
    std::string name;
    std::function<void(chronal::UserAdapter&, fabric::MsgIds&)> send;
    std::string values;    ///< resource, operation, record, its members in the order of its table
    std::string line = ""; ///< the debug line
};

/// At least one row for each of the 22 commands.
extern const std::vector<CommandRow> commandRows;

#endif
