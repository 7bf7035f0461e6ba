#ifndef TESTS_LIBRARY_INTERPOSED_H
#define TESTS_LIBRARY_INTERPOSED_H

#include <cstdint>
#include <string>
#include <vector>

#include <fabric/MsgMeta.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

// C functions that this program defines in the place of the originals, so that the library's calls
// can be seen.

namespace interposed {

struct Release
{
    std::uint32_t word;
    fabric::MsgMeta release;
    const nubEndianTable_t* table;
    void* payload;
};

// Each thread has its own, since other tests call these functions on several threads.
extern thread_local int tzsetCalls;
extern thread_local std::vector<Release>* releases; ///< where to note releases; null for nowhere
extern thread_local bool symbolsAreUnknown;         ///< makes backtrace_symbols() find nothing
extern thread_local std::string* timeCalls; ///< where to note the calls below; null for nowhere
/// What nubOsalCompareTime() finds equal to the marker of so many seconds, whatever it is; 0: none.
extern thread_local std::int64_t universalMarker;

} // namespace interposed

#endif
