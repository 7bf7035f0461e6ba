#ifndef TESTS_SHORTAGE_SHORTAGE_H
#define TESTS_SHORTAGE_SHORTAGE_H

#include <atomic>

struct Shortage
{
    std::atomic<int> left{0};   ///< allocations until one fails; 0: none does, negative: all do
    std::atomic<int> failed{0}; ///< allocations so far
};

/// This process's.
Shortage& shortage();

/// Has an allocation of this process fail, if it comes while the object lives.
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
