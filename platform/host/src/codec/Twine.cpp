#include <fabric/Twine.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "RecordLayout.h"

using namespace fabric::host;

namespace {

constexpr nubEndianEntry_t stringEntries[] = {
    {(nubEndianWord32 << 16) | offsetof(nubDeserString_t, length),
     nubEndianArgument_t(std::uintptr_t{0})},
    {0, nubEndianArgument_t(std::uintptr_t{0xffffffff})},
};

constexpr std::uint32_t noString = UINT32_MAX;

/// Caches where a record has its string, so that a release need not walk the table. Nearly all
/// records have at most one string; others are not cached.
struct KnownRecord
{
    std::uint32_t string = noString; ///< its offset; this and the next are written before `table`
    const nubEndianEntry_t* entries = nullptr; ///< differ if a module's place was taken by another
    std::atomic<const nubEndianTable_t*> table{nullptr};
};

/// Indexed by a hash of the table's address. A record whose entry is in use is walked every time,
/// which is only slower.
KnownRecord knownRecords[64];

KnownRecord& placeOf(const nubEndianTable_t& table) noexcept
{
    return knownRecords[reinterpret_cast<std::uintptr_t>(&table) / sizeof(table) % 64];
}

void release(void* payload, std::uint32_t offset) noexcept
{
    auto* const string =
        reinterpret_cast<nubDeserString_t*>(static_cast<unsigned char*>(payload) + offset);
    std::free(string->chars);
    string->chars = nullptr;
}

/// Not inlined, so that the release that runs for every message stays short.
[[gnu::noinline]] void releaseByWalk(const nubEndianTable_t& table, void* payload) noexcept
{
    std::uint32_t last = noString;
    std::size_t count = 0;
    forEachMember(table, [&](const RecordMember& member) {
        if (member.kind != RecordMember::string)
            return;
        release(payload, last = member.offset);
        ++count;
    });
    KnownRecord& known = placeOf(table);
    if (count > 1 || known.table.load(std::memory_order_relaxed))
        return;
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    if (known.table.load(std::memory_order_relaxed))
        return;
    known.string = last;
    known.entries = table.entries;
    known.table.store(&table, std::memory_order_release);
}

} // namespace

// The characters have no entry: the conversion recognises a string by this table's address.
const nubEndianTable_t __nub_EndianTable_nubDeserString_t = {sizeof(nubDeserString_t),
                                                             stringEntries};

void fabricTwineDeserReleaseMessage(std::uint32_t, const fabric::MsgMeta*,
                                    const nubEndianTable_t* table, void* payload)
{
    if (!table || !payload)
        return;
    const KnownRecord& known = placeOf(*table);
    if (known.table.load(std::memory_order_acquire) != table || known.entries != table->entries)
        releaseByWalk(*table, payload);
    else if (known.string != noString)
        release(payload, known.string);
}
