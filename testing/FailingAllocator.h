#ifndef CHRONAL_TESTING_FAILING_ALLOCATOR_H
#define CHRONAL_TESTING_FAILING_ALLOCATOR_H

#include <cstddef>

// Replaces the allocator of the program or module that includes this, in one source file.
// Allocation fails where failsNow(), which that file defines before, returns true and sets errno.

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

#endif
