#ifndef NUB_DEBUG_H
#define NUB_DEBUG_H

#include <cstdint>

#include <fabric/Export.h>

/// Identifies a debug line to the platform. The caller fills it with {code, 0, 0}, and the check
/// completes it.
struct nubDebugChunk_t
{
    std::uint32_t code;   ///< category in the upper 16 bits, level in the lower 16 bits
    std::uint32_t fabric; ///< for the platform's own use
    std::uint32_t chunk;  ///< for the platform's own use
};

extern "C" {

/// Returns nonzero if lines with the chunk's code are to be written. Cheap if they are not. Any
/// thread may call it.
FABRIC_API int nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk);

/// Writes one line, printf-style. The check must have returned nonzero for the chunk. Any thread
/// may call it; lines of several threads do not mix.
FABRIC_API void nubDebugOutput0(const nubDebugChunk_t* chunk, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
}

#endif
