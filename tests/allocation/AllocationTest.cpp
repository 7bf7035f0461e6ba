#include "../library/CommandRows.h"
#include "../support/NullMiddleware.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <gtest/gtest.h>

// This program is linked from the library's object files, so that their allocations come here.

namespace {

bool watching = false;
int untilFailure = 0; ///< the number of allocations that succeed before one fails
int outstanding = 0;  ///< the number of blocks that have not been freed

/// Makes one allocation fail, and counts blocks, while it lives.
struct Watch
{
    explicit Watch(int allocationThatFails)
    {
        untilFailure = allocationThatFails;
        outstanding = 0;
        watching = true;
    }
    ~Watch() { watching = false; }
};

/// Returns what `allocate` does, unless this allocation is to fail.
template <class Allocate>
void* counted(Allocate allocate)
{
    if (watching && untilFailure-- == 0)
        return nullptr;
    outstanding += watching;
    return allocate();
}

} // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size)
{
    return counted([=] { return __real_malloc(size); });
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return counted([=] { return __real_calloc(count, size); });
}

void __wrap_free(void* block)
{
    outstanding -= watching && block;
    __real_free(block);
}
}

void* operator new(std::size_t size)
{
    void* const block = __wrap_malloc(size);
    return block ? block : throw std::bad_alloc();
}

void operator delete(void* block) noexcept { __wrap_free(block); }
void operator delete(void* block, std::size_t) noexcept { __wrap_free(block); }

namespace {

struct Allocation : ::testing::Test
{
    /// Overrides nothing.
    struct Adapter : chronal::UserAdapter
    {
        using UserAdapter::UserAdapter;
    };

    fabric::StateHolder holder;
    desk::NullComponent component;
    desk::NullApplication application{holder};
    desk::NullService service;
    Adapter adapter{application, component};
    fabric::MsgIds ids = {};
};

TEST_F(Allocation, IsMadeByACommandFourTimesPlusOncePerStringAndLosesNothingIfItFails)
{
    adapter.setServiceInterface(&service);
    for (const CommandRow& row : commandRows) {
        SCOPED_TRACE(row.name);
        // Record, owner, reference count, event, and the characters of a string.
        const int needed = std::string(row.values).find(':') == std::string::npos ? 4 : 5;
        for (int failing = 0; failing < needed; ++failing) {
            const Watch watch(failing);
            EXPECT_THROW(row.send(adapter, ids), std::bad_alloc) << failing;
            EXPECT_EQ(outstanding, 0) << failing;
        }
        const Watch watch(needed);
        EXPECT_NO_THROW(row.send(adapter, ids));
    }
}

TEST_F(Allocation, IsNotMadeWithoutAServiceInterfaceOrForRegistrations)
{
    for (const CommandRow& row : commandRows) {
        const Watch watch(0);
        EXPECT_NO_THROW(row.send(adapter, ids)) << row.name;
    }
    adapter.setServiceInterface(&service);
    for (int connection = 0; connection < 3; ++connection)
        adapter.onServiceConnected(); // afterwards the set of ids has room for another twelve
    const Watch watch(0);
    EXPECT_NO_THROW(adapter.onServiceConnected());
}

TEST_F(Allocation, ThatFailsInAReceiverThrowsWithoutAnOverrideToo)
{
    const nubEndianTable_t& table = __nub_EndianTable_chronalMsgTimezone_t;
    const auto data = fabric::SerializableMessageData::create(table.size, table);
    nubDeserString_t& zone = static_cast<chronalMsgTimezone_t*>(data->payload)->timezone;
    zone.length = 64; // more than a std::string holds in itself
    zone.chars = static_cast<char*>(std::calloc(1, zone.length + 1));
    const fabric::SerializableMessageEvent event({}, {}, data);
    for (const auto receiver :
         {&Adapter::callReplyTimezoneInfo, &Adapter::callNotifyTimezoneChange}) {
        const Watch watch(0);
        EXPECT_THROW((adapter.*receiver)(event), std::bad_alloc);
        EXPECT_EQ(data.use_count(), 2);
    }
}

// The string only claims to be that long: its length is changed where libstdc++ keeps it.
TEST_F(Allocation, IsRefusedForAStringOf4GiB)
{
    if (sizeof(std::size_t) == 4)
        GTEST_SKIP() << "no string is that long";
    adapter.setServiceInterface(&service);
    std::string zone;
    const auto setLength = [&](std::uint64_t length) {
        std::memcpy(reinterpret_cast<char*>(&zone) + sizeof(void*), &length, sizeof(length));
    };
    setLength(std::uint64_t{1} << 32);
    EXPECT_THROW(adapter.cmdTimezoneSet(ids, zone), std::bad_alloc);
    setLength(0);
}

} // namespace
