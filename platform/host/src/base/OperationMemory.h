#ifndef FABRIC_HOST_OPERATION_MEMORY_H
#define FABRIC_HOST_OPERATION_MEMORY_H

#include <cstddef>
#include <memory_resource>
#include <new>
#include <utility>

namespace fabric::host {

/// Provides the memory of one asynchronous operation at a time, so that starting it again cannot
/// fail. Asio frees the memory before it calls the operation's handler.
class OperationMemory final : public std::pmr::memory_resource
{
private:
    void* do_allocate(std::size_t size, std::size_t) override
    {
        if (used_ || size > sizeof(storage_))
            return ::operator new(size);
        used_ = true;
        return storage_;
    }

    void do_deallocate(void* memory, std::size_t, std::size_t) override
    {
        if (memory == storage_)
            used_ = false;
        else
            ::operator delete(memory);
    }

    bool do_is_equal(const memory_resource& other) const noexcept override
    {
        return this == &other;
    }

    alignas(std::max_align_t) unsigned char storage_[320]; // Boost 1.74 needs up to 200 bytes
    bool used_ = false;
};

/// A completion handler whose operation Asio allocates from `memory`.
template <typename Function>
struct PreallocatedHandler
{
    using allocator_type = std::pmr::polymorphic_allocator<std::byte>;
    allocator_type get_allocator() const noexcept { return memory; }

    template <typename... Arguments>
    void operator()(Arguments&&... arguments)
    {
        function(std::forward<Arguments>(arguments)...);
    }

    OperationMemory* memory;
    Function function;
};

/// `memory` outlives the operation.
template <typename Function>
PreallocatedHandler<Function> preallocated(OperationMemory& memory, Function function)
{
    return {&memory, std::move(function)};
}

} // namespace fabric::host

#endif
