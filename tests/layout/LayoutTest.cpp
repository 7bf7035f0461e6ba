#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

// What the device's middleware and its time service take for granted about the objects that they
// share with the library. Needs nothing of a host platform: an integrator runs this program alone,
// built against the device's own middleware.

namespace {

constexpr std::size_t word = sizeof(void*);
constexpr bool deviceWidth = word == 4;

#define TABLE(record) #record, &__nub_EndianTable_##record

/// The entries of each table: w and W for words of 32 and 64 bits, T and S for times and strings,
/// with the offset on the device in hexadecimal.
const struct Row
{
    const char* record;
    const nubEndianTable_t* table;
    std::uint32_t size;
    const char* entries;
} rows[] = {
    {TABLE(nubOsalTime_t), 16, "W00 w08"},
    {TABLE(chronalCmdDummy_t), 4, "w00"},
    {TABLE(chronalMsgDST_t), 4, "w00"},
    {TABLE(chronalMsgDtvTime_t), 16, "T00"},
    {TABLE(chronalMsgTimezone_t), 24, "S00 T08"},
    {TABLE(chronalMsgAutoTime_t), 4, "w00"},
    {TABLE(chronalMsgNtpData_t), 12, "S00 w08"},
    {TABLE(chronalMsgDateTime_t), 104, "T00 T10 T20 T30 T40 w50 S54 w5c w60 w64"},
    {TABLE(chronalMsgReplyResult_t), 4, "w00"},
    {TABLE(chronalMsgReplyTime_t), 64, "w00 T08 T18 T28 w38 w3c"},
    {TABLE(chronalMsgCmdTimeAtData_t), 24, "T00 w10"},
    {TABLE(chronalMsgCmdRefTimeData_t), 80, "w00 T08 T20 w18 T30 T40"},
    {TABLE(chronalMsgCmdRefTimeId_t), 4, "w00"},
};

char kindOf(const nubEndianEntry_t& entry)
{
    const nubEndianTable_t* const nested = entry.argument.table;
    switch (entry.code >> 16) {
    case 3:
        return nested == &__nub_EndianTable_nubOsalTime_t      ? 'T'
               : nested == &__nub_EndianTable_nubDeserString_t ? 'S'
                                                               : '?';
    case 4:
        return entry.argument.word == 0 ? 'w' : '?';
    case 8:
        return entry.argument.word == 0 ? 'W' : '?';
    }
    return '?';
}

/// The entries as the rows give them, or their kinds alone; stops behind the terminator.
std::string textOf(const nubEndianTable_t& table, bool withOffsets)
{
    std::string text;
    const nubEndianEntry_t* entry = table.entries;
    for (; entry->code != 0; ++entry) {
        text += text.empty() ? "" : " ";
        text += kindOf(*entry);
        for (const std::uint32_t digit : {entry->code >> 4 & 0xfff, entry->code & 15})
            if (withOffsets)
                text += digit < 16 ? "0123456789abcdef"[digit] : '?';
    }
    EXPECT_EQ(entry->argument.word, 0xffffffffU);
    return text;
}

TEST(EndianTables, DescribeTheRecordsOfTheDevice)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.record);
        const std::string entries = row.entries;
        // Where pointers are wider, a record that holds a string has a layout of its own.
        if (deviceWidth || entries.find('S') == std::string::npos) {
            EXPECT_EQ(row.table->size, row.size);
            EXPECT_EQ(textOf(*row.table, true), entries);
            continue;
        }
        std::string kinds;
        for (std::size_t at = 0; at < entries.size(); at += 4)
            kinds += (kinds.empty() ? "" : " ") + entries.substr(at, 1);
        EXPECT_EQ(textOf(*row.table, false), kinds);
    }
}

/// Whether the kernel writes to `address` when it is asked to: the byte that is there anyway.
bool canBeWritten(const void* address)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], address, 1), 1);
    const bool written = read(ends[0], const_cast<void*>(address), 1) == 1;
    EXPECT_TRUE(written || errno == EFAULT) << std::strerror(errno);
    close(ends[0]);
    close(ends[1]);
    return written;
}

template <typename Object>
void expectConstant(const Object* first, const Object* last)
{
    EXPECT_FALSE(canBeWritten(first));
    EXPECT_FALSE(canBeWritten(reinterpret_cast<const char*>(last + 1) - 1));
}

// The tables that this program names may be copies of its own, so the library is asked for its.
TEST(ConstantData, CannotBeWritten)
{
    int variable = 0;
    EXPECT_TRUE(canBeWritten(&variable)) << "or else the rest proves nothing";

    Dl_info info;
    ASSERT_NE(dladdr(rows[0].table->entries, &info), 0);
    void* const library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.record);
        const auto* const table = static_cast<const nubEndianTable_t*>(
            dlsym(library, (std::string("__nub_EndianTable_") + row.record).c_str()));
        ASSERT_NE(table, nullptr) << dlerror();
        expectConstant(table, table);
        const nubEndianEntry_t* terminator = table->entries;
        while (terminator->code != 0)
            ++terminator;
        expectConstant(table->entries, terminator);
    }
    // The offset and the type, the entries of the destructor, the reports and the callbacks.
    const auto* const virtualTable =
        static_cast<const void* const*>(dlsym(library, "_ZTVN7chronal11UserAdapterE"));
    ASSERT_NE(virtualTable, nullptr) << dlerror();
    expectConstant(virtualTable, virtualTable + 2 + 2 + 3 + 12 - 1);
    dlclose(library);
}

/// Where a member lies in an object.
template <typename Object, typename Member>
std::size_t offsetIn(const Object& object, const Member& member)
{
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&member) -
                                    reinterpret_cast<const char*>(&object));
}

/// The same, of a class that need not be constructed: the value of a pointer to a data member.
template <typename Pointer>
std::ptrdiff_t offsetOf(Pointer member)
{
    std::ptrdiff_t offset;
    static_assert(sizeof(offset) == sizeof(member), "as the C++ ABI has it");
    std::memcpy(&offset, &member, sizeof(offset));
    return offset;
}

TEST(Identity, LiesAsTheMiddlewareReadsIt)
{
    const fabric::MsgMeta meta = {};
    EXPECT_EQ(sizeof(meta), 16U);
    EXPECT_EQ(alignof(fabric::MsgMeta), 4U);
    EXPECT_EQ(offsetIn(meta, meta.serviceId), 0U);
    EXPECT_EQ(offsetIn(meta, meta.resourceId), 4U);
    EXPECT_EQ(offsetIn(meta, meta.operationId), 8U);
    EXPECT_EQ(offsetIn(meta, meta.kind), 12U);
    EXPECT_EQ(sizeof(meta.kind), 1U);

    const fabric::EndpointId endpoint = {};
    EXPECT_EQ(sizeof(endpoint), 8U);
    EXPECT_EQ(offsetIn(endpoint, endpoint.node), 0U);
    EXPECT_EQ(offsetIn(endpoint, endpoint.componentId), 4U);
}

TEST(Envelope, HoldsItsFieldsInOrder)
{
    const fabric::SerializableMessageData data(nullptr, 0, &__nub_EndianTable_chronalCmdDummy_t);
    EXPECT_EQ(sizeof(data), deviceWidth ? 16U : 32U);
    EXPECT_EQ(offsetIn(data, data.payload), word);
    EXPECT_EQ(offsetIn(data, data.releaseWord), 2 * word);
    EXPECT_EQ(offsetIn(data, data.endianTable), 3 * word);

    // The base is as large as the middleware has it.
    struct Event : fabric::Event
    {
        void* data[2];
    };
    EXPECT_EQ(offsetOf(&fabric::SerializableMessageEvent::data), offsetOf(&Event::data));
    EXPECT_EQ(sizeof(fabric::SerializableMessageEvent), sizeof(Event));
}

using Adapter = chronal::UserAdapter;
using Handler = fabric::Arg1Method<int, const fabric::Event&>;
using Bound = Handler::ClassSpecCaller<Adapter, const fabric::SerializableMessageEvent&>;

TEST(HandlerObject, HoldsItsCallerInItsOwnStorage)
{
    EXPECT_EQ(sizeof(Handler), 6 * word);
    EXPECT_EQ(sizeof(Bound), 4 * word) << "exactly fills the storage";
    const Handler handler(static_cast<Adapter*>(nullptr), &Adapter::callReplyResult);
    const Handler copy(handler);
    for (const Handler* object : {&handler, &copy}) {
        const void* words[6];
        std::memcpy(words, static_cast<const void*>(object), sizeof(words));
        EXPECT_EQ(words[1], reinterpret_cast<const char*>(object) + 2 * word)
            << "the pointer comes before the storage";
    }
}

/// The entry of a virtual function in the table of its class. A pointer to a virtual member
/// function starts with the offset of the entry, marked in the lowest bit on some targets.
template <typename Method>
std::size_t slotOf(Method method)
{
    std::uintptr_t offset;
    std::memcpy(&offset, &method, sizeof(offset));
    return (offset & ~std::uintptr_t(1)) / word;
}

template <typename... Methods>
std::vector<std::size_t> slotsOf(Methods... methods)
{
    return {slotOf(methods)...};
}

/// An application that names the protected callbacks and adds a virtual function of its own.
class Application : public Adapter
{
public:
    virtual void own();

    static std::vector<std::size_t> slots()
    {
        using A = Application;
        return slotsOf(
            &A::onServiceConnectionFailed, &A::onServiceDisconnected, &A::onServiceConnected,
            &A::onReplyResult, &A::onReplyTimeRefInfo, &A::onNotifyCurrentTime,
            &A::onNotifyDeviationChange, &A::onNotifyTimezoneChange, &A::onReplyTimeRefAt,
            &A::onReplyTimeAt, &A::onReplyUtcDeviationInfo, &A::onReplyDateTimeSettingsInfo,
            &A::onReplyTimezoneInfo, &A::onNotifyDtvTimeChange, &A::onNotifyDSTChange, &A::own);
    }
};

TEST(VirtualTables, KeepTheirOrder)
{
    using Slots = std::vector<std::size_t>;
    // The destructor comes first, with the two entries 0 and 1.
    EXPECT_EQ(Application::slots(),
              (Slots{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17}));
    using Caller = fabric::BaseArg1Method<int, const fabric::Event&>::Caller;
    EXPECT_EQ(
        slotsOf(&Caller::invoke, &Caller::getClassName, &Caller::getMethodName, &Caller::getObject),
        (Slots{2, 3, 4, 5}));
    // This table holds the three reports alone.
    using Client = fabric::ClientInterface;
    EXPECT_EQ(slotsOf(&Client::onServiceConnected, &Client::onServiceConnectionFailed,
                      &Client::onServiceDisconnected),
              (Slots{0, 1, 2}));
}

TEST(AdapterObject, HoldsItsBasesAndThenItsFields)
{
    struct Expected : fabric::StatePart, fabric::ClientInterface
    {
        fabric::EventHandlerIdSet handlerIds;
        void* pointers[3];
    };
    EXPECT_EQ(sizeof(Adapter), sizeof(Expected));
    EXPECT_EQ(sizeof(fabric::ClientInterface), word);
}

} // namespace
