#ifndef NUB_DEBUG_H
#define NUB_DEBUG_H

#include <cstdint>

#include <fabric/Export.h>

/// Identifies a debug line to the platform: filled with {code, 0, 0} by the caller, completed by
/// the check.
struct nubDebugChunk_t
{
    std::uint32_t code;   ///< category in the upper 16 bits, level in the lower 16 bits
    std::uint32_t fabric; ///< the platform's own
    std::uint32_t chunk;  ///< the platform's own
};

extern "C" {

/// Whether lines of the chunk's code are wanted: nonzero if so. Cheap when they are not.
/// Any thread.
FABRIC_API int nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk);

/// Writes one line, printf-style. Only for a chunk that the check has accepted. Any thread; lines
/// of several threads do not mix.
FABRIC_API void nubDebugOutput0(const nubDebugChunk_t* chunk, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
}

#endif
