#ifndef CHRONAL_REFERENCE_TIME_ID_H
#define CHRONAL_REFERENCE_TIME_ID_H

#include <cstdint>

namespace chronal {

/// The sources of a reference time. The underlying type is fixed, so that any 32-bit word in a
/// received message is a valid value, also one without a name here.
enum referenceTimeId_enum : std::int32_t
{
    referenceTimeInvalid = 0,  ///< no valid source
    referenceTimeRtc = 1,      ///< real-time clock
    referenceTimeNtp = 2,      ///< NTP
    referenceTimeDvb = 3,      ///< DVB broadcast time
    referenceTimeTeletext = 4, ///< teletext time
    referenceTimeAtsc = 5      ///< ATSC broadcast time
};

/// A source of a reference time, as commands and callbacks pass it. Converts from and to the
/// enumeration.
struct ReferenceTimeId
{
    /// No source.
    constexpr ReferenceTimeId() : id(referenceTimeInvalid) {}
    /// Converts from the enumeration.
    constexpr ReferenceTimeId(referenceTimeId_enum source) : id(source) {}
    /// Converts to the enumeration.
    constexpr operator const referenceTimeId_enum&() const { return id; }

    referenceTimeId_enum id; ///< any word may occur in a received message
};

static_assert(sizeof(ReferenceTimeId) == 4, "records hold a source as one 32-bit word");

} // namespace chronal

#endif
