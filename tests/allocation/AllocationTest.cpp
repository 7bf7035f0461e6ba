#include "../library/CommandRows.h"
#include "../shortage/Shortage.h"
#include "../support/NullMiddleware.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>

#include <gtest/gtest.h>
#include <malloc.h>

namespace {

struct Allocation : ::testing::Test
{
    /// Overrides nothing.
    struct Adapter : chronal::UserAdapter
    {
        using UserAdapter::UserAdapter;
    };

    /// Returns whether the allocation with this number happened, and threw as it failed.
    template <class Operation>
    static bool throwsAt(int allocation, Operation operation)
    {
        const Starved starved(allocation);
        try {
            operation();
            EXPECT_EQ(shortage().failed, 0);
            return false;
        } catch (const std::bad_alloc&) {
            return true;
        }
    }

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
        // Record, owner, reference count, event, and the characters of a string.
        const int needed = std::string(row.values).find(':') == std::string::npos ? 4 : 5;
        for (int allocation = 1; allocation <= needed + 1; ++allocation) {
            const auto run = [&] { return throwsAt(allocation, [&] { row.send(adapter, ids); }); };
            std::size_t before = 0;
            for (int i = 0; i < 40; ++i) {
                EXPECT_EQ(run(), allocation <= needed) << row.name << " " << allocation;
                before = i == 20 ? mallinfo2().uordblks : before; // now the caches are full
            }
            EXPECT_EQ(mallinfo2().uordblks, before) << row.name << " " << allocation;
        }
    }
}

TEST_F(Allocation, IsNotMadeWithoutAServiceInterfaceOrForRegistrations)
{
    for (const CommandRow& row : commandRows)
        EXPECT_FALSE(throwsAt(1, [&] { row.send(adapter, ids); })) << row.name;
    adapter.setServiceInterface(&service);
    for (int connection = 0; connection < 3; ++connection)
        adapter.onServiceConnected(); // afterwards the set of ids has room for another twelve
    EXPECT_FALSE(throwsAt(1, [&] { adapter.onServiceConnected(); }));
}

TEST_F(Allocation, ThatFailsInAReceiverThrowsWithoutAnOverrideToo)
{
    const nubEndianTable_t& table = __nub_EndianTable_chronalMsgTimezone_t;
    const auto data = fabric::SerializableMessageData::create(table.size, table);
    nubDeserString_t& zone = static_cast<chronalMsgTimezone_t*>(data->payload)->timezone;
    zone.length = 64; // more than a std::string holds in itself
    zone.chars = static_cast<char*>(std::calloc(1, zone.length + 1));
    const fabric::SerializableMessageEvent event({}, {}, data);
    setenv("TZ", "UTC0", 1); // tzset() allocates nothing for a zone without a file
    tzset();
    for (const auto receiver :
         {&Adapter::callReplyTimezoneInfo, &Adapter::callNotifyTimezoneChange})
        EXPECT_TRUE(throwsAt(1, [&] { (adapter.*receiver)(event); }));
    EXPECT_EQ(data.use_count(), 2);
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
