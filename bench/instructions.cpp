#include "Operations.h"

#include <string>

#include <valgrind/callgrind.h>

// Runs each operation under callgrind: one dump for the library, one for the floor. Operations are
// repeated, so that rare events show as well.

namespace {

constexpr int repetitions = 100;

void measure(const std::string& name, bench::Function operation)
{
    // Symbols are bound and the allocator has its memory after this.
    for (int i = 0; i < 20; ++i)
        operation();
    CALLGRIND_DUMP_STATS; // of the preparation
    for (int i = 0; i < repetitions; ++i)
        operation();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

} // namespace

int main()
{
    for (const bench::Operation& operation : bench::operations) {
        measure(std::string("own ") + operation.name, operation.own);
        if (operation.floor)
            measure(std::string("floor ") + operation.name, operation.floor);
    }
}
