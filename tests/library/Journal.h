#ifndef TESTS_LIBRARY_JOURNAL_H
#define TESTS_LIBRARY_JOURNAL_H

#include <pthread.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <fabric/MsgMeta.h>
#include <nub/Endian.h>
#include <nub/Osal.h>

namespace desk {

/// Notes, in order, the calls that the library makes on the thread that created the journal: those
/// of the functions that Journal.cpp defines in place of the originals, and those of the middleware
/// in Desk.h. A thread without a journal gets the originals, without debug lines.
class Journal
{
public:
    /// A note that is made while `mutex` is locked ends with " (locked)".
    explicit Journal(pthread_mutex_t* mutex = nullptr);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    static void note(const std::string& call);

    /// Returns the notes that were made since the last call.
    std::vector<std::string> take();

    std::function<void(const std::string& call)> onNote; ///< may throw
    bool linesWanted = true;                             ///< the answer of the debug check
    bool symbolsKnown = true;       ///< without them backtrace_symbols() finds nothing
    std::int64_t equalToMarker = 0; ///< if not 0, any time compares equal to this many seconds

private:
    pthread_mutex_t* mutex_;
    std::vector<std::string> notes_;
};

std::string text(const nubOsalTime_struct& time);
std::string text(const fabric::MsgMeta& identity);

/// The note of a call of fabricTwineDeserReleaseMessage().
std::string releaseNote(std::uint32_t word, const fabric::MsgMeta& release,
                        const nubEndianTable_t* table, const void* payload);

} // namespace desk

#endif
