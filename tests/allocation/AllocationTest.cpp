#include "../library/CommandRows.h"
#include "../library/Desk.h"
#include "../support/NullMiddleware.h"

#include <cstdlib>
#include <new>
#include <set>

// This program contains the library's own object files, linked so that their allocations come here.
// Each allocation of each command fails once; nothing may be lost then.

namespace {

int allocationsUntilFailure = -1; ///< negative: none fails
std::set<void*> outstanding;      ///< blocks that the library has and nobody has freed
bool watching = false;

bool failsNow()
{
    return watching && allocationsUntilFailure >= 0 && allocationsUntilFailure-- == 0;
}

void* noted(void* block)
{
    if (watching) {
        watching = false; // the set allocates for itself
        outstanding.insert(block);
        watching = true;
    }
    return block;
}

void forget(void* block)
{
    if (watching) {
        watching = false;
        outstanding.erase(block);
        watching = true;
    }
}

/// Watches allocations while it lives.
class Watch
{
public:
    explicit Watch(int allocationThatFails)
    {
        allocationsUntilFailure = allocationThatFails;
        outstanding.clear();
        watching = true;
    }
    ~Watch() { watching = false; }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
};

} // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void __wrap_free(void* block);

void* __wrap_malloc(std::size_t size) { return failsNow() ? nullptr : noted(__real_malloc(size)); }

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return failsNow() ? nullptr : noted(__real_calloc(count, size));
}

void __wrap_free(void* block)
{
    forget(block);
    __real_free(block);
}
}

void* operator new(std::size_t size)
{
    if (failsNow())
        throw std::bad_alloc();
    void* const block = __real_malloc(size);
    if (!block)
        throw std::bad_alloc();
    return noted(block);
}

void operator delete(void* block) noexcept
{
    forget(block);
    __real_free(block);
}

void operator delete(void* block, std::size_t) noexcept { ::operator delete(block); }

namespace {

class CountingApplication : public desk::NullApplication
{
public:
    using NullApplication::NullApplication;
    int sendEvent(fabric::MsgIds& ids, int flags, fabric::SerializableMessageEvent* event) override
    {
        ++sent;
        return NullApplication::sendEvent(ids, flags, event);
    }

    int sent = 0;
};

class Allocation : public ::testing::Test
{
protected:
    fabric::StateHolder holder;
    desk::NullComponent component;
    CountingApplication application{holder};
    desk::NullService service;
    desk::BareAdapter adapter{application, component};
    fabric::MsgIds ids = {};
};

TEST_F(Allocation, ThatFailsLosesNothingInAnyCommand)
{
    adapter.setServiceInterface(&service);
    for (const CommandRow& row : commandRows) {
        SCOPED_TRACE(row.name);
        // Record, owner, reference count and event; the characters of a string.
        const bool holdsString = std::string(row.values).find(':') != std::string::npos;
        const int allocations = holdsString ? 5 : 4;
        row.send(adapter, ids); // from here on the platform knows where the record's strings are
        for (int failing = 0; failing < allocations; ++failing) {
            application.sent = 0;
            bool threw = false;
            {
                const Watch watch(failing);
                try {
                    row.send(adapter, ids);
                } catch (const std::bad_alloc&) {
                    threw = true;
                }
            }
            EXPECT_TRUE(threw) << failing;
            EXPECT_EQ(application.sent, 0) << failing;
            EXPECT_EQ(outstanding.size(), 0U) << failing;
        }
        {
            const Watch watch(allocations);
            row.send(adapter, ids);
        }
        EXPECT_EQ(application.sent, 1) << "needs no further allocation";
        EXPECT_EQ(outstanding.size(), 0U);
    }
}

TEST_F(Allocation, ThatFailsInAReceiverThrowsWithoutAnOverrideToo)
{
    const auto data = fabric::SerializableMessageData::create(
        sizeof(chronalMsgTimezone_t), __nub_EndianTable_chronalMsgTimezone_t);
    nubDeserString_t& zone = static_cast<chronalMsgTimezone_t*>(data->payload)->timezone;
    zone.length = 64; // more than std::string holds in itself
    zone.chars = static_cast<char*>(std::calloc(1, zone.length + 1));
    const fabric::SerializableMessageEvent event({}, {}, data);
    {
        const Watch watch(0);
        EXPECT_THROW(adapter.callReplyTimezoneInfo(event), std::bad_alloc);
    }
    EXPECT_EQ(data.use_count(), 2);
}

TEST_F(Allocation, IsNoneWithoutAServiceInterface)
{
    for (const CommandRow& row : commandRows) {
        const Watch watch(0);
        EXPECT_NO_THROW(row.send(adapter, ids)) << row.name;
    }
    EXPECT_EQ(application.sent, 0);
}

TEST_F(Allocation, IsNoneForTheRegistrations)
{
    adapter.setServiceInterface(&service);
    for (int connection = 0; connection < 3; ++connection)
        adapter.onServiceConnected(); // afterwards the set of ids has room for another twelve
    const Watch watch(0);
    EXPECT_NO_THROW(adapter.onServiceConnected());
}

} // namespace
