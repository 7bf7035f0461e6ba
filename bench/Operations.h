#ifndef BENCH_OPERATIONS_H
#define BENCH_OPERATIONS_H

#include <cstddef>

namespace bench {

/// One thing that is measured: the library's way, and the same required work written by hand.
struct Operation
{
    const char* name;
    void (*own)();
    void (*floor)(); ///< null where the numbers of another of its kind tell enough
};

extern const Operation operations[];
extern const std::size_t operationCount;

} // namespace bench

#endif
