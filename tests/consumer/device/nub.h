// The platform facilities of the same device as fabric.h.

#ifndef DEVICE_NUB_H
#define DEVICE_NUB_H

#include <pthread.h>

#include <cstdint>

struct nubEndianTable_t;

union nubEndianArgument_t
{
    constexpr nubEndianArgument_t(const nubEndianTable_t* nested) : table(nested) {}
    constexpr nubEndianArgument_t(std::uintptr_t plain) : word(plain) {}

    const nubEndianTable_t* table;
    std::uintptr_t word;
};

struct nubEndianEntry_t
{
    std::uint32_t code;
    nubEndianArgument_t argument;
};

struct nubEndianTable_t
{
    std::uint32_t size;
    const nubEndianEntry_t* entries;
};

constexpr int nubEndianRecord = 3;
constexpr int nubEndianWord32 = 4;
constexpr int nubEndianWord64 = 8;

struct nubDeserString_t
{
    std::uint32_t length;
    char* chars;
};

struct alignas(8) nubOsalTime_struct
{
    std::int64_t seconds;
    std::int32_t microseconds;
    std::int32_t padding;
};

struct nubDebugChunk_t
{
    std::uint32_t words[3];
};

extern "C" {
extern const nubEndianTable_t __nub_EndianTable_nubDeserString_t;

bool nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk);
int nubDebugOutput0(const void* chunk, const char* format, ...);

nubOsalTime_struct* nubOsalNormalizeTime(nubOsalTime_struct* time);
int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right);
}

class ltGuard
{
public:
    explicit ltGuard(pthread_mutex_t* mutex);
    ~ltGuard();

private:
    pthread_mutex_t* held;
    int result;
};

#endif
