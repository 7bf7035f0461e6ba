#ifndef TESTS_SHORTAGE_SHORTAGE_H
#define TESTS_SHORTAGE_SHORTAGE_H

#include <atomic>

struct Shortage
{
    std::atomic<int> left{0};   ///< allocations until one fails; 0: none fails, negative: all fail
    std::atomic<int> failed{0}; ///< number of allocations that have failed
};

/// The shortage of this process.
Shortage& shortage();

/// Makes the allocation with the given number fail if it happens during the object's lifetime.
struct Starved
{
    explicit Starved(int allocation)
    {
        shortage().failed = 0;
        shortage().left = allocation;
    }
    ~Starved() { shortage().left = 0; }

    Starved(const Starved&) = delete;
    Starved& operator=(const Starved&) = delete;
};

#endif
