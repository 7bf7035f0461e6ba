#include <cstdlib>

#include <gmock/gmock.h>

#include <nub/Debug.h>

// A program of its own, since the environment is read once, at the first use in a process.

namespace {

bool wanted(std::uint32_t category, std::uint32_t level)
{
    nubDebugChunk_t chunk = {category << 16 | level, 0, 0};
    return nubDebugCheckLevelGetFabricAndChunk(&chunk) != 0;
}

TEST(DebugEnvironment, SwitchesLinesOnAndHasItsUnreadablePartsNamed)
{
    setenv("NUB_DEBUG", "x,5:3000", 1);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(wanted(5, 3000));
    EXPECT_FALSE(wanted(5, 3001));
    EXPECT_FALSE(wanted(6, 1));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("cannot read 'x'"));
}

} // namespace
