#include "Advice.h"

#include <string_view>

#include "TimeService.h"
#include "WireTime.h"

namespace chronal::ctl {

namespace {

/// `text` with the arguments in place of their names in braces.
std::string expanded(std::string_view text, const Arguments& given)
{
    std::string result;
    for (auto open = text.find('{'); open != std::string_view::npos; open = text.find('{')) {
        const auto close = text.find('}', open);
        result += text.substr(0, open);
        result += given.texts.at(std::string(text.substr(open + 1, close - open - 1)));
        text.remove_prefix(close + 1);
    }
    return result.append(text);
}

} // namespace

std::string probableCause(const std::vector<Advice>& advice, int error, const Arguments& given)
{
    for (const Advice& candidate : advice)
        if (candidate.error == error && (!candidate.applies || candidate.applies(given)))
            return "Probably " + expanded(candidate.text, given);
    return "";
}

bool isOutsideCalendar(const nubOsalTime_struct& utc)
{
    return !sim::readUtc(utc);
}

bool isOutsideLocalCalendar(const nubOsalTime_struct& local)
{
    const std::optional<sim::Local> time = sim::readLocal(local);
    return !time || time->time_since_epoch() < sim::largestDeviation ||
           time->time_since_epoch() >= sim::calendarEnd.time_since_epoch() - sim::largestDeviation;
}

bool isOverADay(const nubOsalTime_struct& span)
{
    return !sim::readDeviation(span);
}

bool isZero(const nubOsalTime_struct& span)
{
    return span.seconds == 0 && span.microseconds == 0;
}

bool isTooLong(const std::string& text)
{
    return text.size() > sim::longestText;
}

} // namespace chronal::ctl
