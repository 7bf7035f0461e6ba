#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iomanip>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

// What the device's middleware and its time service take for granted about the objects that they
// share with the library. Needs nothing of a host platform: an integrator runs this program alone,
// built against the device's own middleware.

namespace {

constexpr std::size_t word = sizeof(void*);

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

/// The entries as the rows give them, up to the terminator.
std::string textOf(const nubEndianEntry_t* entry)
{
    std::ostringstream text;
    for (; entry->code != 0; ++entry) {
        const std::string kinds = entry->argument.table == &__nub_EndianTable_nubOsalTime_t ? "???T"
                                  : entry->argument.table == &__nub_EndianTable_nubDeserString_t
                                      ? "???S"
                                  : entry->argument.word == 0 ? "????w???W"
                                                              : "";
        const std::size_t kind = entry->code >> 16;
        text << (kind < kinds.size() ? kinds[kind] : '?') << std::hex << std::setw(2)
             << std::setfill('0') << (entry->code & 0xffff) << " ";
    }
    EXPECT_EQ(entry->argument.word, 0xffffffffU);
    return text.str();
}

TEST(EndianTables, DescribeTheRecordsOfTheDevice)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.record);
        std::string expected = row.entries + std::string(" "), found = textOf(row.table->entries);
        // Where pointers are wider, a record that holds a string has a layout of its own.
        if (word == 4 || expected.find('S') == std::string::npos)
            EXPECT_EQ(row.table->size, row.size);
        else
            for (std::string* entries : {&expected, &found})
                *entries = std::regex_replace(*entries, std::regex("[0-9a-f]{2}"), "");
        EXPECT_EQ(found, expected);
    }
}

/// Asks the kernel to overwrite the byte at `address` with the same value.
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

// The tables that this program names may be copies of its own, so the library is asked for its.
TEST(ConstantData, CannotBeWritten)
{
    int variable = 0;
    ASSERT_TRUE(canBeWritten(&variable));

    Dl_info info;
    ASSERT_NE(dladdr(rows[0].table->entries, &info), 0);
    void* const library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const Row& row : rows) {
        const auto* const table = static_cast<const nubEndianTable_t*>(
            dlsym(library, (std::string("__nub_EndianTable_") + row.record).c_str()));
        ASSERT_NE(table, nullptr) << dlerror();
        EXPECT_FALSE(canBeWritten(table)) << row.record;
        EXPECT_FALSE(canBeWritten(table->entries)) << row.record;
    }
    const void* const virtualTable = dlsym(library, "_ZTVN7chronal11UserAdapterE");
    ASSERT_NE(virtualTable, nullptr) << dlerror();
    EXPECT_FALSE(canBeWritten(virtualTable));
    dlclose(library);
}

/// The offset of a member in its object, or that of a virtual function in its table: the first word
/// of a pointer to it, in which some targets mark virtual functions with the lowest bit.
template <typename Pointer>
std::size_t offsetOf(Pointer member)
{
    std::size_t offset;
    std::memcpy(&offset, &member, sizeof(offset));
    return offset & ~std::size_t(1);
}

/// Expects each member `unit` bytes after the one before.
template <typename... Pointers>
void expectInOrder(std::size_t unit, std::size_t first, Pointers... members)
{
    for (const std::size_t offset : {offsetOf(members)...})
        EXPECT_EQ(offset, unit * first++);
}

using Adapter = chronal::UserAdapter;

TEST(Messages, LieAsTheMiddlewareReadsThem)
{
    using M = fabric::MsgMeta;
    expectInOrder(4, 0, &M::serviceId, &M::resourceId, &M::operationId, &M::kind);
    using E = fabric::EndpointId;
    expectInOrder(4, 0, &E::node, &E::componentId);
    using D = fabric::SerializableMessageData;
    expectInOrder(word, 1, &D::payload, &D::releaseWord, &D::endianTable);
    EXPECT_EQ(sizeof(D), 4 * word);
    struct EventWithPointer : fabric::Event
    {
        void* data[2];
    };
    EXPECT_EQ(sizeof(fabric::SerializableMessageEvent), sizeof(EventWithPointer));
}

TEST(HandlerObject, HoldsItsCallerInItsOwnStorage)
{
    using Handler = fabric::Arg1Method<int, const fabric::Event&>;
    const Handler handler(static_cast<Adapter*>(nullptr), &Adapter::callReplyResult);
    const Handler copy(handler);
    for (const Handler* object : {&handler, &copy}) {
        const void* words[6];
        static_assert(sizeof(Handler) == sizeof(words), "its table, the pointer, four words");
        std::memcpy(words, static_cast<const void*>(object), sizeof(words));
        EXPECT_EQ(words[1], reinterpret_cast<const char*>(object) + 2 * word);
    }
}

/// An application that names the protected callbacks and adds a virtual function of its own.
struct Application : Adapter
{
    virtual void own();

    static void expectOrder()
    {
        using A = Application;
        // The destructor comes first, with the two entries 0 and 1.
        expectInOrder(word, 2, &A::onServiceConnectionFailed, &A::onServiceDisconnected,
                      &A::onServiceConnected, &A::onReplyResult, &A::onReplyTimeRefInfo,
                      &A::onNotifyCurrentTime, &A::onNotifyDeviationChange,
                      &A::onNotifyTimezoneChange, &A::onReplyTimeRefAt, &A::onReplyTimeAt,
                      &A::onReplyUtcDeviationInfo, &A::onReplyDateTimeSettingsInfo,
                      &A::onReplyTimezoneInfo, &A::onNotifyDtvTimeChange, &A::onNotifyDSTChange,
                      &A::own);
    }
};

TEST(VirtualTables, KeepTheirOrder)
{
    Application::expectOrder();
    using C = fabric::BaseArg1Method<int, const fabric::Event&>::Caller;
    expectInOrder(word, 2, &C::invoke, &C::getClassName, &C::getMethodName, &C::getObject);
    // This table holds the three reports alone.
    using I = fabric::ClientInterface;
    expectInOrder(word, 0, &I::onServiceConnected, &I::onServiceConnectionFailed,
                  &I::onServiceDisconnected);
}

} // namespace
