#include "Operations.h"

#include <string>

#include <valgrind/callgrind.h>

// Runs each operation under callgrind: one dump for the library's way, one for the floor. Repeated,
// so that what an operation does only now and then is seen too.

namespace {

constexpr int repetitions = 100;

void measure(const std::string& name, void (*operation)())
{
    // Until symbols are bound and the allocator has what it needs.
    for (int i = 0; i < 20; ++i)
        operation();
    CALLGRIND_DUMP_STATS; // what was until now, of no operation
    for (int i = 0; i < repetitions; ++i)
        operation();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

} // namespace

int main()
{
    for (std::size_t i = 0; i < bench::operationCount; ++i) {
        const bench::Operation& operation = bench::operations[i];
        measure(std::string("own ") + operation.name, operation.own);
        if (operation.floor)
            measure(std::string("floor ") + operation.name, operation.floor);
    }
}
