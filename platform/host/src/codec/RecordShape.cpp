#include "RecordShape.h"

#include <atomic>
#include <memory>

namespace fabric {
namespace host {
namespace {

struct KnownShape
{
    KnownShape(const nubEndianTable_t& ofTable, const KnownShape* behind)
        : table(&ofTable), shape(ofTable), next(behind)
    {
    }

    const nubEndianTable_t* table;
    RecordShape shape;
    const KnownShape* next;
};

using Slot = std::atomic<const KnownShape*>;

// By the addresses of their tables. Shapes are added and never removed, so it takes no lock to
// find one.
constexpr std::size_t slots = 64;
Slot knownShapes[slots];

/// Apart from the finding, which every message does.
[[gnu::noinline]] const RecordShape& add(const nubEndianTable_t& table, Slot& slot)
{
    // Another thread may be adding the same one; both are right, and the later is found from now
    // on.
    std::unique_ptr<KnownShape> added(new KnownShape(table, slot.load(std::memory_order_relaxed)));
    while (!slot.compare_exchange_weak(added->next, added.get(), std::memory_order_release,
                                       std::memory_order_relaxed)) {
    }
    return added.release()->shape;
}

} // namespace

RecordShape::RecordShape(const nubEndianTable_t& table) : frameSize(0)
{
    forEachMember(table, [this](const RecordMember& member) {
        members.push_back(member);
        if (member.kind == RecordMember::string)
            strings.push_back(member.offset);
        // Of a string, its length.
        frameSize +=
            member.kind == RecordMember::word64 ? sizeof(std::uint64_t) : sizeof(std::uint32_t);
    });
}

const RecordShape& RecordShape::of(const nubEndianTable_t& table)
{
    Slot& slot = knownShapes[reinterpret_cast<std::uintptr_t>(&table) / sizeof(table) % slots];
    for (const KnownShape* known = slot.load(std::memory_order_acquire); known; known = known->next)
        if (known->table == &table)
            return known->shape;
    return add(table, slot);
}

} // namespace host
} // namespace fabric
