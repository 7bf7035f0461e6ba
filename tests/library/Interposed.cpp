#include "Interposed.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <ctime>

#include <fabric/Twine.h>

namespace interposed {

thread_local int tzsetCalls = 0;
thread_local std::vector<Release>* releases = nullptr;
thread_local bool symbolsAreUnknown = false;
thread_local std::string* timeCalls = nullptr;
thread_local std::int64_t universalMarker = 0;

namespace {

template <typename Function>
Function* original(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void note(const char* what, const nubOsalTime_struct& time)
{
    if (timeCalls)
        *timeCalls += what + std::to_string(time.seconds) + '.' + std::to_string(time.microseconds);
}

} // namespace
} // namespace interposed

extern "C" {

__attribute__((visibility("default"))) void tzset() noexcept { ++interposed::tzsetCalls; }

__attribute__((visibility("default"))) char** backtrace_symbols(void* const* addresses,
                                                                int count) noexcept
{
    return interposed::symbolsAreUnknown ? nullptr
                                         : interposed::original<char**(void* const*, int)>(
                                               "backtrace_symbols")(addresses, count);
}

void fabricTwineDeserReleaseMessage(std::uint32_t word, const fabric::MsgMeta* release,
                                    const nubEndianTable_t* table, void* payload)
{
    if (interposed::releases)
        interposed::releases->push_back({word, *release, table, payload});
    interposed::original<decltype(fabricTwineDeserReleaseMessage)>(
        "fabricTwineDeserReleaseMessage")(word, release, table, payload);
}

void nubOsalNormalizeTime(nubOsalTime_struct* time)
{
    interposed::note(" normalize ", *time);
    interposed::original<decltype(nubOsalNormalizeTime)>("nubOsalNormalizeTime")(time);
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    interposed::note(" compare ", *left);
    interposed::note(" with ", *right);
    if (interposed::universalMarker != 0)
        return right->seconds == interposed::universalMarker ? 0 : 1;
    return interposed::original<decltype(nubOsalCompareTime)>("nubOsalCompareTime")(left, right);
}
}
