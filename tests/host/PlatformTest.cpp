#include "Sample.h"

#include <nub/Debug.h>
#include <nub/Osal.h>

#include <pthread.h>
#include <sys/socket.h>

#include <limits>
#include <thread>

#include <fabric-host/Printable.h>

namespace {

using namespace sample;

constexpr std::int64_t earliest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();

TEST(Osal, NormalisingKeepsTheValueAndWrapsAtTheEnds)
{
    const std::pair<nubOsalTime_struct, nubOsalTime_struct> rows[] = {
        {{0, 0}, {0, 0}},
        {{0, 1500000}, {1, 500000}},
        {{-1, -500000}, {-2, 500000}},
        {{5, -1000000}, {4, 0}},
        {{0, least}, {-2148, 516352}},
        {{0, most}, {2147, 483647}},
        {{latest, 1000000}, {earliest, 0}},
        {{earliest, least}, {latest - 2147, 516352}},
    };
    for (auto [time, normal] : rows) {
        const bool wraps = time.seconds == latest || time.seconds == earliest;
        EXPECT_EQ(wraps, nubOsalCompareTime(&time, &normal) != 0) << normal.seconds;
        nubOsalNormalizeTime(&time);
        EXPECT_EQ(std::pair(normal.seconds, normal.microseconds),
                  std::pair(time.seconds, time.microseconds));
    }
}

TEST(Osal, ComparingIsByValueAlsoWhereTheSumLeavesTheRange)
{
    const nubOsalTime_struct ascending[] = {
        {earliest, least}, {earliest, 0}, {earliest, most}, {-1, -500000}, {0, 0},        {1, 1},
        {1, 999998},       {2, -1},       {latest, least},  {latest, 0},   {latest, most}};
    for (const nubOsalTime_struct& one : ascending)
        for (const nubOsalTime_struct& two : ascending) {
            const int result = nubOsalCompareTime(&one, &two);
            EXPECT_EQ((&one > &two) - (&one < &two), (result > 0) - (result < 0))
                << &one - ascending << ", " << &two - ascending;
        }
}

bool wanted(std::uint32_t category, std::uint32_t level)
{
    nubDebugChunk_t chunk = {category << 16 | level, 0, 0};
    return nubDebugCheckLevelGetFabricAndChunk(&chunk) != 0;
}

/// Returns which of some lines are enabled.
std::string enabled()
{
    std::string all;
    for (const auto& [category, level] : {std::pair(5U, 3000U), {5, 3001}, {6, 1}, {65535, 5000}})
        all += wanted(category, level) ? '1' : '0';
    return all;
}

// The environment is read once in a process; a suite with this ending comes before all others.
TEST(DebugEnvironmentDeathTest, EnablesLinesUntilSwitchesReplaceIt)
{
    setenv("NUB_DEBUG", "x,5:3000,\x1b", 1);
    const auto complaint =
        testing::StrEq("NUB_DEBUG: cannot read 'x', expected CATEGORY:LEVEL\n"
                       "NUB_DEBUG: cannot read '\\x1b', expected CATEGORY:LEVEL\n");
    EXPECT_EXIT(_exit(enabled() == "1000" && enabled() == "1000"), testing::ExitedWithCode(1),
                complaint);
    EXPECT_EXIT((setDebugSwitches("6:1"), _exit(enabled() == "0010")), testing::ExitedWithCode(1),
                complaint);
    unsetenv("NUB_DEBUG");
}

TEST(Debug, SwitchesSelectByCategoryAndLevel)
{
    const std::pair<const char*, const char*> rows[] = {
        {"", "0000"},           {"5:3000", "1000"},        {"5:65535,6:0", "1100"},
        {"6:1", "0010"},        {"*:5000,5:2999", "0011"}, {"5:3000,*:5000", "1011"},
        {"5:1,5:3000", "1000"}, {"65535:65535", "0001"},
    };
    for (const auto& [switches, expected] : rows) {
        setDebugSwitches(switches);
        EXPECT_EQ(expected, enabled()) << switches;
    }
    for (const std::string part : {"5", ":1", "5:", "-1:3", "65536:1", "1:65536", "1:1:1", "a:1",
                                   "1: 2", "4294967297:1", "**:1"}) {
        EXPECT_THAT([&] { setDebugSwitches("*:1," + part + ",6:6"); },
                    testing::ThrowsMessage<std::invalid_argument>(HasSubstr("'" + part + "'")));
        EXPECT_EQ("0001", enabled()) << "changed by " << part;
    }
    setDebugSwitches("");
}

constexpr nubDebugChunk_t chunk = {5 << 16 | 3000, 0, 0};

/// Writes a line and returns the single write to standard error that it causes, if any.
std::string standardErrorOf(const std::string& line)
{
    int ends[2];
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends));
    const int kept = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    errno = EDOM;
    nubDebugOutput0(&chunk, "%s", line.c_str());
    EXPECT_EQ(EDOM, errno);
    dup2(kept, STDERR_FILENO);
    std::string text(1 << 16, ' ');
    const ssize_t length = recv(ends[0], text.data(), text.size(), MSG_DONTWAIT);
    EXPECT_EQ(-1, recv(ends[0], text.data(), 1, MSG_DONTWAIT)) << "a second write";
    for (const int each : {kept, ends[0], ends[1]})
        close(each);
    return text.substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

TEST(Debug, ALineGoesToTheSinkOrIsOneWriteWhateverItsLength)
{
    for (const std::size_t length : {1U, 510U, 511U, 512U, 40000U}) {
        const std::string line = std::string(length, 'x') + '\n';
        EXPECT_EQ(line, standardErrorOf(line));
        std::string taken;
        setDebugSink([&](std::uint32_t code, const std::string& text) {
            EXPECT_EQ(chunk.code, code);
            taken = text;
        });
        EXPECT_EQ("", standardErrorOf(line));
        EXPECT_EQ(line, taken);
        setDebugSink([](auto&&...) { throw 1; });
        EXPECT_EQ(line, standardErrorOf(line)) << "a sink that throws";
        setDebugSink({});
    }
    EXPECT_EQ("", standardErrorOf(""));
    EXPECT_EXIT((close(STDERR_FILENO), nubDebugOutput0(&chunk, "line\n"), _exit(0)),
                testing::ExitedWithCode(0), "");
}

TEST(Debug, ALineContainsNoControlCharacterBeforeItsEnd)
{
    EXPECT_EQ("\\x1b[2J\\x0aforged \\u202e \u00fc\n",
              standardErrorOf("\x1b[2J\nforged \u202e \u00fc\n"));
    EXPECT_EQ("\\x7f\n", standardErrorOf("\x7f"));
    std::string taken;
    setDebugSink([&](std::uint32_t, const std::string& text) { taken = text; });
    nubDebugOutput0(&chunk, "a%cb\n", 0);
    setDebugSink({});
    EXPECT_EQ(taken, "a\\x00b\n");
}

TEST(Printable, WhatIsNotVisibleOrNotUtf8IsEscaped)
{
    const std::pair<std::string, std::string> rows[] = {
        {" ~\u00a0\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff", ""},
        {{"\0\x1f\x7f", 3}, "\\x00\\x1f\\x7f"},
        {"\u0080\u009f\u00ad\u200b\ufeff\U000e0001",
         "\\u0080\\u009f\\u00ad\\u200b\\ufeff\\U000e0001"},
        {"\x80\xbf\xc1\xbf\xf5\x80", "\\x80\\xbf\\xc1\\xbf\\xf5\\x80"},
        {"\xc3\xe4\x80g\xf0\x9f\x98", "\\xc3\\xe4\\x80g\\xf0\\x9f\\x98"},
        {"\xe0\x9f\xbf\xed\xa0\x80", "\\xe0\\x9f\\xbf\\xed\\xa0\\x80"},
        {"\xf0\x8f\xbf\xbf\xf4\x90\x80\x80", "\\xf0\\x8f\\xbf\\xbf\\xf4\\x90\\x80\\x80"},
    };
    for (const auto& [text, shown] : rows)
        EXPECT_EQ(shown.empty() ? text : shown, printable(text));
    EXPECT_EQ("\\x27\u00fc\\x5c", printable("'\u00fc\\", "'\\"));
}

TEST(Debug, ALineIsWrittenInFullByAThreadThatIsBeingCancelled)
{
    bool written = false;
    setDebugSink([](auto&&...) { pthread_testcancel(); });
    std::thread([&] {
        pthread_cancel(pthread_self());
        nubDebugOutput0(&chunk, "line\n");
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        written = true;
    }).join();
    setDebugSink({});
    EXPECT_TRUE(written);
}

TEST(Twine, ReleasingFreesStringsAtAnyDepthOnceAndAcceptsNull)
{
    static const nubEndianEntry_t entries[] = {entry(nubEndianRecord, 0, &recordTable),
                                               entry(nubEndianRecord, sizeof(Record), &recordTable),
                                               end};
    static const nubEndianTable_t table = {2 * sizeof(Record), entries};
    const MsgMeta release = {0xffffffff, 0, 0, 0xff};
    Record records[2] = {};
    for (int round = 0; round < 2; ++round) {
        for (Record& each : records)
            each.text.chars = strdup("text");
        for (Record* const payload : {records, records, static_cast<Record*>(nullptr)})
            fabricTwineDeserReleaseMessage(0, &release, &table, payload);
        for (const Record& each : records)
            EXPECT_EQ(nullptr, each.text.chars);
    }
    EXPECT_EQ(end.argument.word, __nub_EndianTable_nubDeserString_t.entries[1].argument.word);
}

} // namespace
