#ifndef TESTS_LIBRARY_COMMAND_ROWS_H
#define TESTS_LIBRARY_COMMAND_ROWS_H

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

/// One call of a command, and the message that it has to send.
struct CommandRow
{
    const char* name;
    std::function<void(chronal::UserAdapter&, fabric::MsgIds&)> send;
    std::uint32_t resourceId;
    std::uint32_t operationId;
    const nubEndianTable_t* table;
    const char* values;         ///< of the record's members, in the order of its table
    const char* line = nullptr; ///< the debug line
};

/// The padding of every time that a row passes to a command.
constexpr std::uint32_t paddingOfCaller = 0xA5A5A5A5U;

/// At least one row for each of the 22 commands.
extern const std::vector<CommandRow> commandRows;

inline void PrintTo(const CommandRow& row, std::ostream* out) { *out << row.name; }

#endif
