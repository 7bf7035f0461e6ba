#include "Parsers.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <stdexcept>

#include <chronal/Helpers.h>
#include <chronal/MessageRecords.h>
#include <fabric-host/Frame.h>

#include "TimeText.h"

namespace chronal::ctl {

namespace {

std::string upperCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

} // namespace

ReferenceTimeId parseSource(const std::string& text)
{
    const std::string name = upperCase(text);
    if (name == "TELETEXT")
        return referenceTimeTeletext;
    for (const ReferenceTimeId source :
         {referenceTimeInvalid, referenceTimeRtc, referenceTimeNtp, referenceTimeDvb,
          referenceTimeTeletext, referenceTimeAtsc})
        if (name == Helpers::getRefTimeStr(source))
            return source;
    throw std::invalid_argument("'" + text +
                                "' is not a source; expected RTC, NTP, DVB, TTX or ATSC");
}

void readState(const std::string& text, Arguments& given)
{
    const std::string name = upperCase(text);
    given.on = name == "ON";
    given.show = name == "GET";
    if (!given.on && !given.show && name != "OFF")
        throw std::invalid_argument("'" + text + "' is not a state; expected on, off or get");
}

std::chrono::microseconds parseWait(const std::string& text)
{
    const std::chrono::microseconds wait = tools::parseDuration(text);
    if (wait.count() == 0)
        throw std::invalid_argument("'" + text +
                                    "' is not a time to wait; expected for example 250ms or 5");
    return wait;
}

std::string parseText(const std::string& text)
{
    // A round number that leaves room in a frame for the message's other fields.
    constexpr std::size_t longest = 65000;
    static_assert(longest + sizeof(chronalMsgDateTime_t) + fabric::host::frameHeaderSize <
                  fabric::host::maxFrameSize);
    if (text.size() > longest)
        throw std::invalid_argument("has " + std::to_string(text.size()) +
                                    " characters; a message has room for " +
                                    std::to_string(longest));
    return text;
}

} // namespace chronal::ctl
