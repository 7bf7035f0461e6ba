#ifndef FABRIC_TWINE_H
#define FABRIC_TWINE_H

#include <cstdint>

#include <fabric/Export.h>
#include <fabric/MsgMeta.h>
#include <nub/Endian.h>

/// Frees the characters of all strings that `table` finds in the payload, but not the payload
/// itself. The payload may be null. `releaseWord` and `release` are for the middleware's own use.
/// Any thread may call it; it does not throw.
extern "C" FABRIC_API void fabricTwineDeserReleaseMessage(std::uint32_t releaseWord,
                                                          const fabric::MsgMeta* release,
                                                          const nubEndianTable_t* table,
                                                          void* payload);

#endif
