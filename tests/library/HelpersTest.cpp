#include "Journal.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include <chronal/Helpers.h>

namespace {

using namespace chronal::Helpers;

// Read while this program is being initialised: the markers hold their values by then.
const nubOsalTime_struct early[] = {deviationInvalid, deviationUnknown};

TEST(Markers, HoldTheirValuesDuringInitialisation)
{
    EXPECT_EQ(desk::text(early[0]), "{-360000 0}");
    EXPECT_EQ(desk::text(early[1]), "{-360001 0}");
}

// clang-format off
const struct SpanRow
{
    nubOsalTime_struct span;
    const char* normalized;
    bool negative;
    const char* absolute;
} spans[] = {
    {{0, 0}, "{0 0}", false, "{0 0}"}, {{0, 1}, "{0 1}", false, "{0 1}"},
    {{0, -1}, "{0 -1}", true, "{0 1}"}, {{-2, 500000}, "{-1 -500000}", true, "{1 500000}"},
    {{-1, 750000}, "{0 -250000}", true, "{0 250000}"}, {{-1, 999999}, "{0 -1}", true, "{0 1}"},
    {{3, 250000}, "{3 250000}", false, "{3 250000}"}, {{-4, 0}, "{-4 0}", true, "{4 0}"},
    {{0, 1500000}, "{1 500000}", false, "{1 500000}"}, {{-1, 1000000}, "{0 0}", false, "{0 0}"},
    {{1, -1500000}, "{0 -500000}", true, "{0 500000}"},
    {{0, INT32_MAX}, "{2147 483647}", false, "{2147 483647}"},
    {{0, INT32_MIN}, "{-2147 -483648}", true, "{2147 483648}"},
    {deviationInvalid, "{-360000 0}", true, "{360000 0}"},
    {{INT64_MAX, 999999}, "{9223372036854775807 999999}", false, "{9223372036854775807 999999}"},
    {{INT64_MAX, 1000000}, "{-9223372036854775808 0}", true, "{-9223372036854775808 0}"},
    {{INT64_MIN, 0}, "{-9223372036854775808 0}", true, "{-9223372036854775808 0}"},
    {{INT64_MIN, -1}, "{9223372036854775807 999999}", false, "{9223372036854775807 999999}"},
    {{INT64_MIN, 1}, "{-9223372036854775807 -999999}", true, "{9223372036854775807 999999}"},
};
// clang-format on

TEST(Spans, FollowTheSpanForm)
{
    for (const SpanRow& row : spans) {
        SCOPED_TRACE(desk::text(row.span));
        nubOsalTime_struct normalized = row.span;
        normalizeTimeSpan(&normalized);
        EXPECT_EQ(desk::text(normalized), row.normalized);
        EXPECT_EQ(isNegativeTimeSpan(row.span), row.negative);
        nubOsalTime_struct absolute = row.span;
        absTimeSpan(&absolute);
        EXPECT_EQ(desk::text(absolute), row.absolute);
    }
}

struct TextRow
{
    nubOsalTime_struct time;
    std::string text;
};

// clang-format off
const std::vector<TextRow> spanTexts = {
    {{0, 0}, "+0us"}, {{0, 999}, "+999us"}, {{0, 1000}, "+1ms"}, {{0, 1500}, "+1ms.500us"},
    {{0, -250000}, "-250ms"}, {{0, -1}, "-1us"}, {{-1, 500000}, "-500ms"}, {{5, 0}, "+5s"},
    {{5, 250000}, "+5s.250ms"}, {{5, 250}, "+5s.000ms.250us"}, {{59, 999999}, "+59s.999ms.999us"},
    {{60, 0}, "+1m"}, {{60, 1}, "+1m.00s.000ms.001us"}, {{90, 0}, "+1m.30s"},
    {{90, 500000}, "+1m.30s.500ms"}, {{-1800, 0}, "-30m"}, {{3600, 0}, "+1h"}, {{-3600, 0}, "-1h"},
    {{5400, 0}, "+1h.30m"}, {{3630, 0}, "+1h.00m.30s"}, {{3600, 1}, "+1h.00m.00s.000ms.001us"},
    {{86400, 0}, "+1d"}, {{90000, 0}, "+1d.01h"}, {{86460, 0}, "+1d.00h.01m"},
    {{86400, 500000}, "+1d.00h.00m.00s.500ms"}, {{-359999, 0}, "-4d.03h.59m.59s"},
    {{0, 1500000}, "+1s.500ms"}, {{-360000, 1}, "-4d.03h.59m.59s.999ms.999us"},
    {deviationInvalid, "DEVIATION_INVALID"}, {deviationUnknown, "DEVIATION_UNKNOWN"},
    {{-360001, 1000000}, "DEVIATION_INVALID"}, // equal in value
    {{86400LL * 4294967295LL, 0}, "+-1d"}, {{86400LL * 4294967297LL, 0}, "+1d"}, // 32 bits of days
    {{INT64_MAX, 999999}, "+579025220d.15h.30m.07s.999ms.999us"},
    {{INT64_MIN, 0}, "-579025220d.15h.30m.08s"},
};
const std::vector<TextRow> timeTexts = {
    {{0, 0}, "'1970-01-01 00:00:00.000'"}, {{1700000000, 123456}, "'2023-11-14 22:13:20.123'"},
    {{86399, 999999}, "'1970-01-01 23:59:59.999'"}, {{0, 1500000}, "'1970-01-01 00:00:01.500'"},
    {{1, -1}, "'1970-01-01 00:00:00.999'"}, {{2147483647, 0}, "'2038-01-19 03:14:07.000'"},
    {{-1, 0}, "-1s"}, {{-1, 999999}, "-1us"},
    {deviationInvalid, "DEVIATION_INVALID"}, {deviationUnknown, "DEVIATION_UNKNOWN"},
};
const std::vector<TextRow> lateTexts = {
    {{2147483648, 0}, "'2038-01-19 03:14:08.000'"},
    {{253402300800, 0}, "'10000-01-01 00:00:00.000'"},
    {{67767976233532799, 0}, "'2147483647-12-31 23:59:59.000'"},
    {{67767976233532800, 0}, "<out of range>"}, {{67768036191676799, 0}, "<out of range>"},
    {{INT64_MAX, 999999}, "<out of range>"},
};
const std::vector<TextRow> lateTextsOf32Bits = {
    {{2147483648, 0}, "'1901-12-13 20:45:52.000'"},
    {{INT64_MAX, 999999}, "'1969-12-31 23:59:59.999'"},
};
// clang-format on

void expectTexts(std::string (*function)(const nubOsalTime_struct&),
                 const std::vector<TextRow>& rows)
{
    for (const TextRow& row : rows)
        EXPECT_EQ(function(row.time), row.text) << desk::text(row.time);
}

TEST(SpanText, ShowsEveryUnitDownToTheLastThatIsNotZero) { expectTexts(getTimeSpanStr, spanTexts); }

/// The time zone of this program, set before the C library asks for it.
[[maybe_unused]] const int zoneSet = setenv("TZ", "XYZ-05:30", 1);

TEST(TimeText, ShowsTheCalendarInUtc)
{
    const std::time_t epoch = 0;
    std::tm local;
    localtime_r(&epoch, &local);
    ASSERT_EQ(local.tm_hour, 5) << "local time has to differ from UTC";
    expectTexts(getTimeStr, timeTexts);
}

TEST(TimeText, ShowsLateTimesAsWideAsTimeIs)
{
    expectTexts(getTimeStr, sizeof(std::time_t) == 8 ? lateTexts : lateTextsOf32Bits);
}

// clang-format off
const struct PlatformCallsRow
{
    std::string (*function)(const nubOsalTime_struct&);
    nubOsalTime_struct time;
    std::int64_t equalToMarker;
    std::vector<std::string> calls;
} platformCallsRows[] = {
    {getTimeSpanStr, {0, 1500000}, 0,
     {"compare {0 1500000} with {-360000 0}", "compare {0 1500000} with {-360001 0}",
      "normalize {0 1500000}", "normalize {0 1500000}", "normalize {1 500000}", "+1s.500ms"}},
    {getTimeSpanStr, {0, 0}, -360000, {"compare {0 0} with {-360000 0}", "DEVIATION_INVALID"}},
    {getTimeStr, {0, 0}, -360000,
     {"normalize {0 0}", "normalize {0 0}", "'1970-01-01 00:00:00.000'"}},
    {getTimeStr, {-1, 0}, -360001,
     {"normalize {-1 0}", "compare {-1 0} with {-360000 0}", "compare {-1 0} with {-360001 0}",
      "DEVIATION_UNKNOWN"}},
};
// clang-format on

// The platform decides which times equal a marker, so it is asked about every time.
TEST(Text, AsksThePlatformWhateverTheValue)
{
    for (const PlatformCallsRow& row : platformCallsRows) {
        desk::Journal journal;
        journal.equalToMarker = row.equalToMarker;
        const std::string result = row.function(row.time);
        desk::Journal::note(result);
        EXPECT_EQ(journal.take(), row.calls);
    }
}

TEST(SourceText, NamesTheSources)
{
    const std::pair<std::int32_t, const char*> rows[] = {
        {0, "INVAL"}, {1, "RTC"},  {2, "NTP"},       {3, "DVB"},
        {4, "TTX"},   {5, "ATSC"}, {6, "<unknown>"}, {-1, "<unknown>"}};
    for (const auto& row : rows)
        EXPECT_EQ(getRefTimeStr(static_cast<chronal::referenceTimeId_enum>(row.first)), row.second);
}

} // namespace
