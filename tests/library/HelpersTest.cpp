#include "Desk.h"

#include <cstdlib>
#include <ctime>

#include <chronal/Helpers.h>

namespace {

using namespace chronal::Helpers;

// Read while this program is being initialised: the markers hold their values by then.
const nubOsalTime_struct early[] = {deviationInvalid, deviationUnknown};

/// The time zone of this program, set before the C library asks for it.
[[maybe_unused]] const int zoneSet = setenv("TZ", "XYZ-05:30", 1);

/// The span form, " < 0" if the span is negative, and the absolute value.
std::string spanForms(const nubOsalTime_struct& span)
{
    nubOsalTime_struct normalized = span;
    normalizeTimeSpan(&normalized);
    nubOsalTime_struct absolute = span;
    absTimeSpan(&absolute);
    return words(normalized, isNegativeTimeSpan(span) ? "< 0" : "", absolute);
}

/// The calls of the platform, if every time equals one of the markers, or none for 0.
template <std::int64_t marker, std::string (*function)(const nubOsalTime_struct&)>
std::string callsOf(const nubOsalTime_struct& time)
{
    Desk desk;
    desk.equalToMarker = marker;
    return desk.during([&] { Desk::note(function(time)); });
}

struct Row
{
    nubOsalTime_struct time;
    std::string text;
};

void expectTexts(std::string (*function)(const nubOsalTime_struct&), const std::vector<Row>& rows)
{
    for (const Row& row : rows)
        EXPECT_EQ(function(row.time), row.text) << words(row.time);
}

// clang-format off
TEST(Spans, FollowTheSpanForm)
{
    expectTexts(spanForms, {
        {{0, 0}, "{0 0}  {0 0}"}, {{0, 1}, "{0 1}  {0 1}"}, {{0, -1}, "{0 -1} < 0 {0 1}"},
        {{-2, 500000}, "{-1 -500000} < 0 {1 500000}"}, {{-1, 750000}, "{0 -250000} < 0 {0 250000}"},
        {{3, 250000}, "{3 250000}  {3 250000}"}, {{-4, 0}, "{-4 0} < 0 {4 0}"},
        {{-1, 1000000}, "{0 0}  {0 0}"}, {{1, -1500000}, "{0 -500000} < 0 {0 500000}"},
        {{0, INT32_MAX}, "{2147 483647}  {2147 483647}"},
        {{0, INT32_MIN}, "{-2147 -483648} < 0 {2147 483648}"},
        {{INT64_MAX, 1000000}, "{-9223372036854775808 0} < 0 {-9223372036854775808 0}"},
        {{INT64_MIN, 0}, "{-9223372036854775808 0} < 0 {-9223372036854775808 0}"},
        {{INT64_MIN, -1}, "{9223372036854775807 999999}  {9223372036854775807 999999}"},
        {{INT64_MIN, 1}, "{-9223372036854775807 -999999} < 0 {9223372036854775807 999999}"},
        {early[0], "{-360000 0} < 0 {360000 0}"}, {early[1], "{-360001 0} < 0 {360001 0}"},
    });
}

TEST(SpanText, ShowsEveryUnitDownToTheLastThatIsNotZero)
{
    expectTexts(getTimeSpanStr, {
        {{0, 0}, "+0us"}, {{0, 999}, "+999us"}, {{0, 1000}, "+1ms"}, {{0, 1500}, "+1ms.500us"},
        {{0, -1}, "-1us"}, {{-1, 500000}, "-500ms"}, {{5, 0}, "+5s"}, {{5, 250}, "+5s.000ms.250us"},
        {{59, 999999}, "+59s.999ms.999us"}, {{60, 0}, "+1m"}, {{60, 1}, "+1m.00s.000ms.001us"},
        {{90, 500000}, "+1m.30s.500ms"}, {{-1800, 0}, "-30m"}, {{3600, 0}, "+1h"},
        {{3630, 0}, "+1h.00m.30s"}, {{3600, 1}, "+1h.00m.00s.000ms.001us"}, {{86400, 0}, "+1d"},
        {{90000, 0}, "+1d.01h"}, {{86460, 0}, "+1d.00h.01m"}, {{-359999, 0}, "-4d.03h.59m.59s"},
        {{0, 1500000}, "+1s.500ms"}, {{-360000, 1}, "-4d.03h.59m.59s.999ms.999us"},
        {deviationInvalid, "DEVIATION_INVALID"}, {deviationUnknown, "DEVIATION_UNKNOWN"},
        {{-360001, 1000000}, "DEVIATION_INVALID"}, // equal in value
        {{86400LL * 4294967295LL, 0}, "+-1d"}, {{86400LL * 4294967297LL, 0}, "+1d"}, // 32 bits
        {{INT64_MAX, 999999}, "+579025220d.15h.30m.07s.999ms.999us"},
        {{INT64_MIN, 0}, "-579025220d.15h.30m.08s"},
    });
}

TEST(TimeText, ShowsTheCalendarInUtc)
{
    const std::time_t epoch = 0;
    ASSERT_EQ(std::localtime(&epoch)->tm_hour, 5) << "local time has to differ from UTC";
    expectTexts(getTimeStr, {
        {{0, 0}, "'1970-01-01 00:00:00.000'"}, {{1700000000, 123456}, "'2023-11-14 22:13:20.123'"},
        {{86399, 999999}, "'1970-01-01 23:59:59.999'"}, {{1, -1}, "'1970-01-01 00:00:00.999'"},
        {{2147483647, 0}, "'2038-01-19 03:14:07.000'"}, {{-1, 999999}, "-1us"},
    });
    expectTexts(getTimeStr, sizeof(std::time_t) == 4 ? std::vector<Row>{
        {{2147483648, 0}, "'1901-12-13 20:45:52.000'"},
        {{INT64_MAX, 999999}, "'1969-12-31 23:59:59.999'"},
    } : std::vector<Row>{
        {{253402300800, 0}, "'10000-01-01 00:00:00.000'"},
        {{67767976233532799, 0}, "'2147483647-12-31 23:59:59.000'"},
        {{67767976233532800, 0}, "<out of range>"}, {{67768036191676799, 0}, "<out of range>"},
        {{INT64_MAX, 999999}, "<out of range>"},
    });
}

// The platform decides which times equal a marker, so it is asked about every time.
TEST(Text, AsksThePlatformWhateverTheValue)
{
    expectTexts(callsOf<0, getTimeSpanStr>, {{{0, 1500000},
        "compare {0 1500000} with {-360000 0}\ncompare {0 1500000} with {-360001 0}\n"
        "normalize {0 1500000}\nnormalize {0 1500000}\nnormalize {1 500000}\n+1s.500ms\n"}});
    expectTexts(callsOf<-360000, getTimeSpanStr>, {{{0, 0},
        "compare {0 0} with {-360000 0}\nDEVIATION_INVALID\n"}});
    expectTexts(callsOf<-360000, getTimeStr>, {{{0, 0},
        "normalize {0 0}\nnormalize {0 0}\n'1970-01-01 00:00:00.000'\n"}});
    expectTexts(callsOf<-360001, getTimeStr>, {{{-1, 0},
        "normalize {-1 0}\ncompare {-1 0} with {-360000 0}\ncompare {-1 0} with {-360001 0}\n"
        "DEVIATION_UNKNOWN\n"}});
}
// clang-format on

TEST(SourceText, NamesTheSources)
{
    std::string names;
    for (const int source : {-1, 0, 1, 2, 3, 4, 5, 6})
        names += getRefTimeStr(static_cast<chronal::referenceTimeId_enum>(source)) + ' ';
    EXPECT_EQ(names, "<unknown> INVAL RTC NTP DVB TTX ATSC <unknown> ");
}

} // namespace
