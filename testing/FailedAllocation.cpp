#include <chronal-testing/FailedAllocation.h>

#include <cerrno>
#include <cstddef>

namespace {

// Of the calling thread; plain numbers, because they are used inside malloc().
thread_local unsigned left = 0; // allocations until one fails, or 0
thread_local bool failed = false;

bool failsNow()
{
    if (left == 0 || --left != 0)
        return false;
    failed = true;
    errno = ENOMEM;
    return true;
}

} // namespace

namespace chronal::testing {

FailedAllocation::FailedAllocation(unsigned number)
{
    failed = false;
    left = number;
}

FailedAllocation::~FailedAllocation() { left = 0; }

bool FailedAllocation::happened() const { return failed; }

} // namespace chronal::testing

#include "FailingAllocator.h" // uses failsNow()
