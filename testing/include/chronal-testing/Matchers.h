#ifndef CHRONAL_TESTING_MATCHERS_H
#define CHRONAL_TESTING_MATCHERS_H

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>

#include <chronal-testing/Command.h>
#include <chronal/Helpers.h>
#include <gmock/gmock.h>

/// GoogleMock matchers of commands, named like the functions of chronal::UserAdapter without "cmd",
/// with their arguments in the same order, but without `ids` and `negate`:
///
///     EXPECT_THAT(desk.commands(), ElementsAre(RefTimeFetch(referenceTimeDvb), TimezoneFetch()));
///
/// An argument is a value or a matcher of one: Time for a time, std::string for a text, int for
/// everything else. Arguments at the end may be left out; they match anything.
namespace chronal {

/// Prints the name of a source in failures.
inline void PrintTo(const referenceTimeId_enum& source, std::ostream* out)
{
    *out << Helpers::getRefTimeStr(source);
}

namespace testing {
namespace detail {

// What a field is compared as.
inline Time comparable(const nubOsalTime_struct& field) { return field; }
inline std::string comparable(const nubDeserString_t& field) { return text(field); }
inline std::int32_t comparable(std::int32_t field) { return field; }
inline referenceTimeId_enum comparable(referenceTimeId_enum field) { return field; }

inline Time expectation(const nubOsalTime_struct& value) { return value; }
inline referenceTimeId_enum expectation(const ReferenceTimeId& value) { return value.id; }
template <class Value>
const Value& expectation(const Value& valueOrMatcher)
{
    return valueOrMatcher;
}

template <class Record, class Value>
struct Field
{
    const char* name;
    Value Record::*member;
};

template <class Record, class Value>
Field<Record, Value> field(const char* name, Value Record::*member)
{
    return {name, member};
}

template <class Record, class Value, class Expected>
::testing::Matcher<const Command&> has(const sim::Message<Record>& message,
                                       const Field<Record, Value>& field, const Expected& expected)
{
    const auto member = field.member;
    return ::testing::ResultOf(
        field.name,
        [&message, member](const Command& command) {
            return comparable(command.as(message).*member);
        },
        expectation(expected));
}

// A name that does not match keeps the fields from being looked at.
template <class Record, class Fields, class Expected, std::size_t... Index>
::testing::Matcher<const Command&> command(const char* name, const sim::Message<Record>& message,
                                           const Fields& fields, const Expected& expected,
                                           std::index_sequence<Index...>)
{
    (void)fields;
    (void)expected;
    return ::testing::AllOf(
        ::testing::ResultOf(
            "name", [](const Command& sent) { return sent.name(); }, std::string(name)),
        has(message, std::get<Index>(fields), std::get<Index>(expected))...);
}

} // namespace detail

#define CHRONAL_F(member) detail::field(#member, &Record::member)
#define CHRONAL_COMMAND(name, message, fields)                                                     \
    template <class... Expected>                                                                   \
    ::testing::Matcher<const Command&> name(const Expected&... expected)                           \
    {                                                                                              \
        typedef decltype(sim::message)::Record Record;                                             \
        (void)sizeof(Record);                                                                      \
        return detail::command("cmd" #name, sim::message, std::make_tuple fields,                  \
                               std::tie(expected...), std::index_sequence_for<Expected...>());     \
    }

// clang-format off
CHRONAL_COMMAND(RefTimeSet, cmdRefTimeSet, (CHRONAL_F(time1), CHRONAL_F(time2), CHRONAL_F(refTimeId), CHRONAL_F(value)))
CHRONAL_COMMAND(RefLocalTimeSet, cmdRefLocalTimeSet, (CHRONAL_F(time1), CHRONAL_F(time2), CHRONAL_F(refTimeId), CHRONAL_F(value)))
CHRONAL_COMMAND(RefTimeFetch, cmdRefTimeFetch, (CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(NextTimeDeviationChangeSet, cmdNextTimeDeviationChangeSet, (CHRONAL_F(time1), CHRONAL_F(time2), CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(SendDaylightsavingInfo, cmdSendDaylightsavingInfo, (CHRONAL_F(time1), CHRONAL_F(time2), CHRONAL_F(time3), CHRONAL_F(time4), CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(NextTimeDeviationChangeFetch, cmdNextTimeDeviationChangeFetch, (CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(RefTimeSubscribe, cmdRefTimeSubscribe, (CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(RefTimeUnsubscribe, cmdRefTimeUnsubscribe, (CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(RefTimeLock, cmdRefTimeLock, (CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(RefTimeUnlock, cmdRefTimeUnlock, (CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(RefTimeAt, cmdRefTimeAt, (CHRONAL_F(time1), CHRONAL_F(refTimeId)))
CHRONAL_COMMAND(LocaltimeAt, cmdTimeAt, (CHRONAL_F(time)))
CHRONAL_COMMAND(UTCTimeAt, cmdTimeAt, (CHRONAL_F(time)))
CHRONAL_COMMAND(DateTimeSettingsSet, cmdDateTimeSettingsSet, (CHRONAL_F(time1), CHRONAL_F(time2), CHRONAL_F(time3), CHRONAL_F(time4), CHRONAL_F(value), CHRONAL_F(text)))
CHRONAL_COMMAND(TimezoneSyncEnableSet, cmdTimezoneSyncEnableSet, (CHRONAL_F(timezoneSyncEnable)))
CHRONAL_COMMAND(DateTimeNtpSet, cmdDateTimeNtpSet, (CHRONAL_F(text), CHRONAL_F(flag)))
CHRONAL_COMMAND(DateTimeNtpStart, cmdDateTimeNtpStart, ())
CHRONAL_COMMAND(DateTimeAutoTimeSet, cmdDateTimeAutoTimeSet, (CHRONAL_F(autoTime)))
CHRONAL_COMMAND(DateTimeSettingsFetch, cmdDateTimeSettingsFetch, ())
CHRONAL_COMMAND(TimezoneSet, cmdTimezoneSet, (CHRONAL_F(timezone)))
CHRONAL_COMMAND(TimezoneFetch, cmdTimezoneFetch, ())
CHRONAL_COMMAND(TimeInit, cmdTimeInit, ())
// clang-format on
#undef CHRONAL_COMMAND
#undef CHRONAL_F

} // namespace testing
} // namespace chronal

#endif
