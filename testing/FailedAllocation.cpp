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

extern "C" {

// NOLINTBEGIN(readability-identifier-naming): the names are those of the C library
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
// NOLINTEND(readability-identifier-naming)

__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    return failsNow() ? nullptr : __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    return failsNow() ? nullptr : __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size)
{
    return failsNow() ? nullptr : __libc_realloc(block, size);
}
}
