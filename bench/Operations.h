#ifndef BENCH_OPERATIONS_H
#define BENCH_OPERATIONS_H

#include <cstddef>

namespace bench {

/// One thing that is measured: the library's way, the same required work written by hand, and what
/// one would otherwise take.
struct Operation
{
    const char* name;
    void (*own)();
    void (*floor)();
    void (*other)(); ///< null where there is none
};

extern const Operation operations[];
extern const std::size_t operationCount;

} // namespace bench

#endif
