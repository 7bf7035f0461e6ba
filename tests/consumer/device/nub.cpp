#include "device.h"

#include <cstdarg>
#include <cstdio>

static constexpr nubEndianEntry_t entries[] = {{0, std::uintptr_t(0xffffffff)}};
const nubEndianTable_t __nub_EndianTable_nubDeserString_t = {sizeof(nubDeserString_t), entries};

bool nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk)
{
    return chunk->words[0] == 0x050BB8;
}

int nubDebugOutput0(const void*, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vprintf(format, arguments);
    va_end(arguments);
    return length;
}

nubOsalTime_struct* nubOsalNormalizeTime(nubOsalTime_struct* time)
{
    for (; time->microseconds < 0; time->microseconds += 1000000)
        --time->seconds;
    time->seconds += time->microseconds / 1000000;
    time->microseconds %= 1000000;
    return time;
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    return left->seconds != right->seconds || left->microseconds != right->microseconds;
}

ltGuard::ltGuard(pthread_mutex_t* mutex) : held(mutex) { pthread_mutex_lock(held); }
ltGuard::~ltGuard() { pthread_mutex_unlock(held); }
