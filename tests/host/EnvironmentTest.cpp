#include <cstdlib>

#include <gmock/gmock.h>

#include <nub/Debug.h>

// This is a separate program because the environment is read only once in a process.

namespace {

bool wanted(std::uint32_t category, std::uint32_t level)
{
    nubDebugChunk_t chunk = {category << 16 | level, 0, 0};
    return nubDebugCheckLevelGetFabricAndChunk(&chunk) != 0;
}

TEST(DebugEnvironment, EnablesLinesAndReportsUnreadableParts)
{
    setenv("NUB_DEBUG", "x,5:3000", 1);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(wanted(5, 3000));
    EXPECT_FALSE(wanted(5, 3001));
    EXPECT_FALSE(wanted(6, 1));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("cannot read 'x'"));
}

} // namespace
