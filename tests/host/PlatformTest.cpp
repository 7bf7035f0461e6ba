#include "Sample.h"

#include <nub/Debug.h>
#include <nub/Osal.h>

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <limits>
#include <thread>

namespace {

using namespace sample;

typedef std::pair<nubOsalTime_struct, nubOsalTime_struct> Pair;

constexpr std::int64_t earliest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();

TEST(Osal, NormalisingKeepsTheValueAndWrapsAtTheEnds)
{
    const Pair rows[] = {
        {{0, 0}, {0, 0}},
        {{0, 1500000}, {1, 500000}},
        {{-1, -500000}, {-2, 500000}},
        {{5, -1000000}, {4, 0}},
        {{0, least}, {-2148, 516352}},
        {{0, most}, {2147, 483647}},
        {{latest, 1000000}, {earliest, 0}},
        {{earliest, least}, {latest - 2147, 516352}},
    };
    for (const auto& [time, normal] : rows) {
        nubOsalTime_struct normalised = time;
        nubOsalNormalizeTime(&normalised);
        EXPECT_EQ(normal.seconds, normalised.seconds) << time.microseconds;
        EXPECT_EQ(normal.microseconds, normalised.microseconds) << time.microseconds;
        const bool wraps = (time.seconds < 0) != (normal.seconds < 0) && time.seconds != 0;
        EXPECT_EQ(wraps, nubOsalCompareTime(&time, &normal) != 0) << time.microseconds;
    }
}

TEST(Osal, ComparingIsByValueAlsoWhereTheSumLeavesTheRange)
{
    const Pair rows[] = {
        {{1, 0}, {1, 1}},
        {{1, 999998}, {2, -1}},
        {{latest, 0}, {latest, 1000000}},
        {{earliest, -1000000}, {earliest, 0}},
        {{earliest, least}, {latest, most}},
        {{earliest, most}, {latest, least}},
    };
    for (const auto& [earlier, later] : rows) {
        EXPECT_LT(nubOsalCompareTime(&earlier, &later), 0) << later.seconds;
        EXPECT_GT(nubOsalCompareTime(&later, &earlier), 0) << later.seconds;
        EXPECT_EQ(nubOsalCompareTime(&later, &later), 0) << later.seconds;
    }
}

int wanted(std::uint32_t category, std::uint32_t level)
{
    nubDebugChunk_t chunk = {category << 16 | level, 0, 0};
    return nubDebugCheckLevelGetFabricAndChunk(&chunk);
}

TEST(Debug, SwitchesSelectByCategoryAndLevel)
{
    const std::pair<const char*, std::vector<int>> rows[] = {
        {"", {0, 0, 0}},
        {"5:3000", {1, 0, 0}},
        {"5:65535,6:0", {1, 1, 0}},
        {"*:5000,5:2999", {0, 0, 1}},
        {"5:3000,*:5000", {1, 0, 1}},
        {"5:1,5:3000", {1, 0, 0}},
    };
    for (const auto& [switches, expected] : rows) {
        fabric::host::setDebugSwitches(switches);
        EXPECT_THAT(expected, ElementsAre(wanted(5, 3000), wanted(5, 3001), wanted(65535, 5000)))
            << switches;
    }
    fabric::host::setDebugSwitches("");
}

TEST(Debug, UnreadableSwitchesAreNamedAndChangeNothing)
{
    fabric::host::setDebugSwitches("5:3000");
    for (const std::string part : {"5", ":1", "5:", "-1:3", "65536:1", "1:65536", "1:1:1", "a:1",
                                   "1: 2", "4294967297:1", "**:1"}) {
        EXPECT_THAT([&] { fabric::host::setDebugSwitches("*:1," + part + ",6:6"); },
                    testing::ThrowsMessage<std::invalid_argument>(HasSubstr("'" + part + "'")));
        EXPECT_TRUE(wanted(5, 3000) && !wanted(6, 1));
    }
    fabric::host::setDebugSwitches("");
}

/// Returns what `action` writes to standard error, and expects at most one write.
std::string standardErrorOf(const std::function<void()>& action)
{
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
    const int kept = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    action();
    dup2(kept, STDERR_FILENO);
    std::string text(1 << 16, ' ');
    const ssize_t length = recv(ends[0], text.data(), text.size(), MSG_DONTWAIT);
    EXPECT_EQ(-1, recv(ends[0], text.data(), 1, MSG_DONTWAIT)) << "a second write";
    for (const int each : {kept, ends[0], ends[1]})
        close(each);
    return text.substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

TEST(Debug, ALineGoesToTheSinkOrIsOneWriteWhateverItsLengthAndKeepsErrno)
{
    const nubDebugChunk_t chunk = {5 << 16 | 3000, 0, 0};
    for (const std::size_t length : {1U, 510U, 511U, 512U, 40000U}) {
        const std::string line = std::string(length, 'x') + '\n';
        const auto write = [&] {
            errno = EDOM;
            nubDebugOutput0(&chunk, "%s", line.c_str());
            EXPECT_EQ(EDOM, errno);
        };
        EXPECT_EQ(line, standardErrorOf(write));
        std::string taken;
        fabric::host::setDebugSink([&](std::uint32_t code, const std::string& text) {
            EXPECT_EQ(chunk.code, code);
            taken = text;
        });
        EXPECT_EQ("", standardErrorOf(write));
        EXPECT_EQ(line, taken);
        fabric::host::setDebugSink([](auto&&...) { throw 1; });
        EXPECT_EQ(line, standardErrorOf(write)) << "a sink that throws";
        fabric::host::setDebugSink({});
    }
}

TEST(Debug, ALineContainsNoControlCharacterBeforeItsEnd)
{
    const nubDebugChunk_t chunk = {5 << 16 | 3000, 0, 0};
    const auto write = [&] { nubDebugOutput0(&chunk, "%s\n", "\x1b[2J\nforged \u202e \u00fc"); };
    EXPECT_EQ("\\x1b[2J\\x0aforged \\u202e \u00fc\n", standardErrorOf(write));
}

TEST(Debug, ALineIsWrittenInFullByAThreadThatIsBeingCancelled)
{
    const nubDebugChunk_t chunk = {5 << 16 | 3000, 0, 0};
    bool written = false;
    fabric::host::setDebugSink([](auto&&...) { pthread_testcancel(); });
    std::thread([&] {
        pthread_cancel(pthread_self());
        nubDebugOutput0(&chunk, "line\n");
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        written = true;
    }).join();
    fabric::host::setDebugSink({});
    EXPECT_TRUE(written);
}

TEST(Twine, ReleasingFreesStringsAtAnyDepthOnceAndAcceptsNull)
{
    static const nubEndianEntry_t entries[] = {nested(0, recordTable),
                                               nested(sizeof(Record), recordTable), end};
    static const nubEndianTable_t table = {2 * sizeof(Record), entries};
    const MsgMeta release = {0xffffffff, 0, 0, 0xff};
    Record records[2] = {};
    for (Record& each : records)
        each.text.chars = strdup("text");
    for (Record* const payload : {records, records, static_cast<Record*>(nullptr)})
        fabricTwineDeserReleaseMessage(0, &release, &table, payload);
    for (const Record& each : records)
        EXPECT_EQ(nullptr, each.text.chars);
}

} // namespace
