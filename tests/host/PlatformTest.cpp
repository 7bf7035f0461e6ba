#include "Sample.h"

#include <fabric/EventHandlerIdSet.h>
#include <nub/Debug.h>
#include <nub/Osal.h>

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <unistd.h>

#include <limits>
#include <stdexcept>
#include <thread>

namespace {

using namespace sample;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::int64_t earliest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();

TEST(Osal, NormalisingCarriesWholeSecondsAndWrapsAtTheEnds)
{
    const struct
    {
        nubOsalTime_struct time;
        std::int64_t seconds;
        std::int32_t microseconds;
    } rows[] = {
        {{0, 0}, 0, 0},
        {{0, 1500000}, 1, 500000},
        {{-1, -500000}, -2, 500000},
        {{0, -250000}, -1, 750000},
        {{5, -1000000}, 4, 0},
        {{0, least}, -2148, 516352},
        {{0, most}, 2147, 483647},
        {{latest, 1000000}, earliest, 0},
        {{earliest, -1}, latest, 999999},
        {{earliest, least}, latest - 2147, 516352},
    };
    for (const auto& row : rows) {
        nubOsalTime_struct time = row.time;
        nubOsalNormalizeTime(&time);
        EXPECT_EQ(row.seconds, time.seconds) << row.time.seconds << ' ' << row.time.microseconds;
        EXPECT_EQ(row.microseconds, time.microseconds);
    }
}

TEST(Osal, ComparingIsByValueAlsoWhereTheSumLeavesTheRange)
{
    const struct
    {
        nubOsalTime_struct left;
        nubOsalTime_struct right;
        int sign;
    } rows[] = {
        {{0, 1000000}, {1, 0}, 0},
        {{-1, 750000}, {0, -250000}, 0},
        {{1, 0}, {1, 1}, -1},
        {{2, -1}, {1, 999998}, 1},
        {{latest, 0}, {latest, 1000000}, -1},
        {{latest, 1000000}, {latest, 1000000}, 0},
        {{earliest, 0}, {earliest, -1000000}, 1},
        {{earliest, least}, {latest, most}, -1},
        {{latest, least}, {earliest, most}, 1},
    };
    const auto sign = [](int value) { return (value > 0) - (value < 0); };
    for (const auto& row : rows) {
        EXPECT_EQ(row.sign, sign(nubOsalCompareTime(&row.left, &row.right)))
            << row.left.seconds << ' ' << row.right.seconds;
        EXPECT_EQ(-row.sign, sign(nubOsalCompareTime(&row.right, &row.left)));
    }
}

int wanted(std::uint32_t category, std::uint32_t level)
{
    nubDebugChunk_t chunk = {category << 16 | level, 0, 0};
    return nubDebugCheckLevelGetFabricAndChunk(&chunk);
}

TEST(Debug, SwitchesSelectByCategoryAndLevel)
{
    const struct
    {
        const char* switches;
        bool at3000, at3001, otherAt5000;
    } rows[] = {
        {"", false, false, false},
        {"5:3000", true, false, false},
        {"5:65535,6:0", true, true, false},
        {"*:5000,5:2999", false, false, true},
        {"5:3000,*:5000", true, false, true},
        {"5:1,5:3000", true, false, false},
    };
    for (const auto& row : rows) {
        fabric::host::setDebugSwitches(row.switches);
        EXPECT_EQ(row.at3000, wanted(5, 3000) != 0) << row.switches;
        EXPECT_EQ(row.at3001, wanted(5, 3001) != 0) << row.switches;
        EXPECT_EQ(row.otherAt5000, wanted(65535, 5000) != 0) << row.switches;
    }
    fabric::host::setDebugSwitches("");
}

TEST(Debug, UnreadableSwitchesAreNamedAndChangeNothing)
{
    fabric::host::setDebugSwitches("5:3000");
    for (const char* const part : {"5", ":1", "5:", "-1:3", "65536:1", "1:65536", "1:1:1", "a:1",
                                   "1: 2", "4294967297:1", "**:1"}) {
        try {
            fabric::host::setDebugSwitches(std::string("*:1,") + part + ",6:6");
            ADD_FAILURE() << part;
        } catch (const std::invalid_argument& error) {
            EXPECT_THAT(error.what(), HasSubstr("'" + std::string(part) + "'"));
        }
        EXPECT_TRUE(wanted(5, 3000));
        EXPECT_FALSE(wanted(6, 1));
    }
    fabric::host::setDebugSwitches("");
}

TEST(DebugDeathTest, TheEnvironmentSwitchesLinesOnAndItsUnreadablePartsAreNamed)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process that has not read it yet
    setenv("NUB_DEBUG", "x,5:3000", 1);
    EXPECT_EXIT(std::_Exit(wanted(5, 3000) && !wanted(5, 3001) && !wanted(6, 1) ? 0 : 1),
                testing::ExitedWithCode(0), "cannot read 'x'");
    unsetenv("NUB_DEBUG");
}

/// What `action` writes to standard error, one write an element.
std::vector<std::string> standardErrorOf(const std::function<void()>& action)
{
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
    const int kept = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    std::vector<std::string> writes;
    action();
    dup2(kept, STDERR_FILENO);
    close(kept);
    close(ends[1]);
    std::vector<char> buffer(1 << 16);
    for (ssize_t got; (got = read(ends[0], buffer.data(), buffer.size())) > 0;)
        writes.emplace_back(buffer.data(), static_cast<std::size_t>(got));
    close(ends[0]);
    return writes;
}

TEST(Debug, ALineComesOutWholeWhateverItsLengthAndKeepsErrno)
{
    const nubDebugChunk_t chunk = {5 << 16 | 3000, 0, 0};
    for (const std::size_t length : {1U, 510U, 511U, 512U, 40000U}) {
        const std::string text(length, 'x');
        errno = EDOM;
        EXPECT_THAT(standardErrorOf([&] { nubDebugOutput0(&chunk, "%s\n", text.c_str()); }),
                    ElementsAre(text + "\n"));
        EXPECT_EQ(EDOM, errno);

        DebugLines lines("*:5000");
        nubDebugOutput0(&chunk, "%s\n", text.c_str());
        EXPECT_THAT(lines.journal.await(1), ElementsAre("5:3000 " + text + "\n"));
    }
}

TEST(Debug, LinesOfSeveralThreadsAreOneWriteEach)
{
    const nubDebugChunk_t chunk = {5 << 16 | 3000, 0, 0};
    const auto write = [&](char letter) {
        for (int line = 0; line < 20; ++line)
            nubDebugOutput0(&chunk, "%s\n", std::string(600, letter).c_str());
    };
    const std::vector<std::string> writes = standardErrorOf([&] {
        std::thread other(write, 'a');
        write('b');
        other.join();
    });
    EXPECT_EQ(40U, writes.size());
    for (const std::string& line : writes)
        EXPECT_EQ(std::string(600, line[0]) + "\n", line);
}

TEST(Debug, ASinkThatThrowsLosesNoLine)
{
    fabric::host::setDebugSink([](std::uint32_t, const std::string&) { throw 1; });
    const nubDebugChunk_t chunk = {0, 0, 0};
    EXPECT_THAT(standardErrorOf([&] { nubDebugOutput0(&chunk, "line %d\n", 1); }),
                ElementsAre("line 1\n"));
    fabric::host::setDebugSink({});
}

TEST(Twine, ReleasingFreesStringsAtAnyDepthOnceAndAcceptsNull)
{
    struct Outer
    {
        Inner times[2];
        Record nestedRecord;
        nubDeserString_t own;
    };
    const nubEndianEntry_t entries[] = {
        nested(offsetof(Outer, times), innerTable), nested(offsetof(Outer, times[1]), innerTable),
        nested(offsetof(Outer, nestedRecord), recordTable),
        nested(offsetof(Outer, own), __nub_EndianTable_nubDeserString_t), end};
    const nubEndianTable_t table = {sizeof(Outer), entries};
    Outer outer = {};
    setText(outer.nestedRecord.text, "nested");
    setText(outer.own, "own");
    const MsgMeta release = {0xffffffff, 0, 0, 0xff};
    fabricTwineDeserReleaseMessage(0, &release, &table, &outer);
    fabricTwineDeserReleaseMessage(0, &release, &table, &outer);
    fabricTwineDeserReleaseMessage(0, &release, &table, nullptr);
    EXPECT_EQ(nullptr, outer.nestedRecord.text.chars);
}

} // namespace
