#ifndef CHRONAL_TESTING_FAILED_ALLOCATION_H
#define CHRONAL_TESTING_FAILED_ALLOCATION_H

namespace chronal {
namespace testing {

/// Has one allocation of this thread fail: the one with this number, counted from 1 within the
/// scope. Needs glibc and chronal::testing-allocation, which replaces malloc(), calloc() and
/// realloc(), and with them operator new; a program with a sanitizer cannot be linked with it.
class FailedAllocation
{
public:
    /// Throws nothing; `number` is at least 1.
    explicit FailedAllocation(unsigned number);
    ~FailedAllocation();

    FailedAllocation(const FailedAllocation&) = delete;
    FailedAllocation& operator=(const FailedAllocation&) = delete;

    /// Returns true if there were so many allocations.
    bool happened() const;
};

} // namespace testing
} // namespace chronal

#endif
