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
class Watch
{
public:
    explicit Watch(int allocationThatFails)
    {
        untilFailure = allocationThatFails;
        outstanding = 0;
        watching = true;
    }
    ~Watch() { watching = false; }
};

/// Counts an allocation. Returns whether it succeeds.
bool allocated()
{
    if (!watching)
        return true;
    if (untilFailure-- == 0)
        return false;
    ++outstanding;
    return true;
}

void freed(const void* block)
{
    if (watching && block)
        --outstanding;
}

} // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);

void* __wrap_malloc(std::size_t size) { return allocated() ? __real_malloc(size) : nullptr; }

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return allocated() ? __real_calloc(count, size) : nullptr;
}

void __wrap_free(void* block)
{
    freed(block);
    __real_free(block);
}
}

void* operator new(std::size_t size)
{
    void* const block = allocated() ? __real_malloc(size) : nullptr;
    if (!block)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept
{
    freed(block);
    __real_free(block);
}

void operator delete(void* block, std::size_t) noexcept { ::operator delete(block); }

namespace {

/// Overrides nothing.
class Adapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
};

class Allocation : public ::testing::Test
{
protected:
    /// The allocations of a command: record, owner, reference count, event, characters.
    static int allocationsOf(const CommandRow& row)
    {
        return std::string(row.values).find(':') == std::string::npos ? 4 : 5;
    }

    fabric::StateHolder holder_;
    desk::NullComponent component_;
    desk::NullApplication application_{holder_};
    desk::NullService service_;
    Adapter adapter_{application_, component_};
    fabric::MsgIds ids_ = {};
};

TEST_F(Allocation, ThatFailsLosesNothingInAnyCommand)
{
    adapter_.setServiceInterface(&service_);
    for (const CommandRow& row : commandRows) {
        for (int failing = 0; failing < allocationsOf(row); ++failing) {
            const Watch watch(failing);
            EXPECT_THROW(row.send(adapter_, ids_), std::bad_alloc) << row.name << failing;
            EXPECT_EQ(outstanding, 0) << row.name << failing;
        }
    }
}

TEST_F(Allocation, IsMadeNoMoreOftenThanACommandNeeds)
{
    adapter_.setServiceInterface(&service_);
    for (const CommandRow& row : commandRows) {
        const Watch watch(allocationsOf(row));
        EXPECT_NO_THROW(row.send(adapter_, ids_)) << row.name;
    }
}

TEST_F(Allocation, IsNotMadeWithoutAServiceInterface)
{
    for (const CommandRow& row : commandRows) {
        const Watch watch(0);
        EXPECT_NO_THROW(row.send(adapter_, ids_)) << row.name;
    }
}

TEST_F(Allocation, IsNotMadeForTheRegistrations)
{
    adapter_.setServiceInterface(&service_);
    for (int connection = 0; connection < 3; ++connection)
        adapter_.onServiceConnected(); // afterwards the set of ids has room for another twelve
    const Watch watch(0);
    EXPECT_NO_THROW(adapter_.onServiceConnected());
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
        EXPECT_THROW((adapter_.*receiver)(event), std::bad_alloc);
        EXPECT_EQ(data.use_count(), 2);
    }
}

// The string only claims to be that long: its length is changed where libstdc++ keeps it.
TEST_F(Allocation, IsRefusedForAStringOf4GiB)
{
    if (sizeof(std::size_t) == 4)
        GTEST_SKIP() << "no string is that long";
    adapter_.setServiceInterface(&service_);
    std::string zone;
    const auto setLength = [&](std::uint64_t length) {
        std::memcpy(reinterpret_cast<char*>(&zone) + sizeof(void*), &length, sizeof(length));
    };
    setLength(std::uint64_t{1} << 32);
    EXPECT_THROW(adapter_.cmdTimezoneSet(ids_, zone), std::bad_alloc);
    setLength(0);
}

} // namespace
