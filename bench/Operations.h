#ifndef BENCH_OPERATIONS_H
#define BENCH_OPERATIONS_H

#include <vector>

namespace bench {

using Function = void (*)();

/// One measured operation: done by the library, and the same required work written by hand.
struct Operation
{
    const char* name;
    Function own;
    Function floor; ///< null where the floor of a similar operation is enough
};

extern const std::vector<Operation> operations;

} // namespace bench

#endif
