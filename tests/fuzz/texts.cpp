#include <cassert>

#include <chronal/Helpers.h>
#include <fabric-host/DebugSink.h>
#include <fabric-host/Printable.h>

#include "Output.h"
#include "Parsers.h"
#include "TimeText.h"

using namespace chronal::Helpers;
using namespace chronal::ctl;
using namespace chronal::tools;

/// The library's text of a span or a time is read as the same span or time.
static void readBack(nubOsalTime_struct time)
{
    const auto equals = [&](nubOsalTime_struct read) { return !nubOsalCompareTime(&read, &time); };
    const std::string span = getTimeSpanStr(time), date = getTimeStr(time);
    const bool isMarkerOrCut = span[0] == 'D' || std::abs(time.seconds / 86400) >= INT32_MAX;
    assert(isMarkerOrCut || equals(parseSpan(span)));
    assert(time.seconds / 3600 != 0 || parseDuration(span.substr(1)) <= std::chrono::hours(1));
    time.microseconds -= time.microseconds % 1000;
    assert(date.size() != 25 || date[0] != '\'' || equals(parseUtc(date.substr(1, 23))));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    const auto read = [&](auto parse) {
        try {
            return parse(text);
        } catch (const std::invalid_argument&) {
            return decltype(parse(text))();
        }
    };
    std::vector<std::string> remarks;
    const auto parseAny = [&](const std::string& given) { return parseUtc(given, &remarks); };
    const nubOsalTime_struct utc = read(parseAny), local = read(parseLocal);
    for (const nubOsalTime_struct& each : {utc, local, read(parseSpan)})
        readBack(each);
    assert(local.seconds == 0 || local.seconds == utc.seconds);
    assert(read(parseWait) == read(parseDuration));
    read(parseSource), read(parseText);
    read([](const std::string& given) { return fabric::host::setDebugSwitches(given), 0; });
    Arguments arguments;
    read([&](const std::string& given) { return readState(given, arguments), 0; });

    const auto isControl = [](unsigned char each) { return each < ' ' || each == 0x7f; };
    const std::string shown = fabric::host::printable(text);
    assert(std::none_of(shown.begin(), shown.end(), isControl));
    assert(fabric::host::printable(shown) == shown);
    const std::string json = asJson({"answer", "", {{"text", text}, {"time", Time{utc}}}});
    assert(std::find_if(json.begin(), json.end(), isControl) == json.end() - 1);
    return 0;
}
