#include "Interposed.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <ctime>

#include <fabric/Twine.h>

namespace interposed {

thread_local int tzsetCalls = 0;
thread_local std::vector<Release>* releases = nullptr;
thread_local bool symbolsAreUnknown = false;

namespace {

template <typename Function>
Function* original(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace
} // namespace interposed

extern "C" {

__attribute__((visibility("default"))) void tzset() noexcept
{
    ++interposed::tzsetCalls;
}

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
}
