#ifndef FABRIC_TWINE_H
#define FABRIC_TWINE_H

#include <cstdint>

#include <fabric/Export.h>
#include <fabric/MsgMeta.h>
#include <nub/Endian.h>

/// Frees what a payload record owns, the character buffers of its strings, as `table` tells. Leaves
/// the payload buffer itself to the caller and accepts a null payload. `releaseWord` and `release`
/// are for the middleware's own bookkeeping. Any thread; never throws.
extern "C" FABRIC_API void fabricTwineDeserReleaseMessage(std::uint32_t releaseWord,
                                                          const fabric::MsgMeta* release,
                                                          const nubEndianTable_t* table,
                                                          void* payload);

#endif
