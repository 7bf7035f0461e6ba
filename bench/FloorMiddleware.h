#ifndef BENCH_FLOOR_MIDDLEWARE_H
#define BENCH_FLOOR_MIDDLEWARE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <chronal/ReferenceTimeId.h>
#include <fabric/SerializableMessage.h>
#include <nub/Osal.h>

/// The parts of a floor's messages, and the interfaces that take them. The floors are in another
/// file, so that the compiler cannot see through a virtual call.
namespace bench::floors {

/// Frees a record's strings; takes the same arguments as the middleware's release function.
using Release = void (*)(std::uint32_t word, const fabric::MsgMeta* release,
                         const nubEndianTable_t* table, void* record);

/// The owner of a record, with the release function in place of the record's table. The destructor
/// is virtual as in the library's class, which others may derive from.
struct Owner
{
    Owner(void* bytes, Release release) : record(bytes), releaseWord(0), releaseStrings(release) {}
    virtual ~Owner()
    {
        const fabric::MsgMeta release = {0xFFFFFFFFU, 0, 0, 0xFF};
        releaseStrings(releaseWord, &release, nullptr, record);
        std::free(record);
    }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    void* record;
    std::uint32_t releaseWord;
    Release releaseStrings;
};
static_assert(sizeof(Owner) == sizeof(fabric::SerializableMessageData), "the same allocation");

/// Counts the uses of a record's owner as the control block of a shared pointer does.
struct ControlBlock
{
    void* table;
    std::atomic<int> uses;
    std::atomic<int> observers;
    Owner* owner;

    void acquire() { uses.fetch_add(1, std::memory_order_relaxed); }
    void release()
    {
        if (uses.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        delete owner;
        delete this;
    }
};

/// The destructor is virtual for the same reason.
struct Event
{
    Event(const fabric::MsgMeta& what, const fabric::EndpointId& from, ControlBlock* shared)
        : identity(what), sender(from), ids(), owner(shared->owner), block(shared)
    {
    }
    virtual ~Event() { block->release(); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    fabric::MsgMeta identity;
    fabric::EndpointId sender;
    fabric::MsgIds ids;
    Owner* owner;
    ControlBlock* block;
};
static_assert(sizeof(Event) == sizeof(fabric::SerializableMessageEvent), "the same allocation");

class Service
{
public:
    virtual ~Service();
    virtual std::uint32_t serviceId();
};

class Application
{
public:
    virtual ~Application();
    virtual int sendEvent(fabric::MsgIds& ids, int flags, Event* event);
};

/// Ignores everything that it receives.
class Listener
{
public:
    virtual void time(const fabric::MsgIds& ids, const nubOsalTime_struct& deviation,
                      const nubOsalTime_struct& utc, const nubOsalTime_struct& local,
                      const chronal::ReferenceTimeId& id, bool flag, int value);
    virtual void settings(const fabric::MsgIds& ids, const nubOsalTime_struct& time0,
                          const nubOsalTime_struct& time1, const nubOsalTime_struct& time2,
                          const nubOsalTime_struct& time3, const nubOsalTime_struct& time4,
                          const int& value, const std::string& text, const bool& flag1,
                          const bool& flag2, const bool& timezoneSyncEnable);
    virtual void zone(const fabric::MsgIds& ids, const std::string& name,
                      const nubOsalTime_struct& when);
    virtual ~Listener();

    /// Positions of the functions in the virtual table.
    enum Entry : std::size_t
    {
        timeEntry,
        settingsEntry,
        zoneEntry
    };
};

inline const void* const* tableOf(const Listener& listener)
{
    const void* const* table;
    std::memcpy(&table, static_cast<const void*>(&listener), sizeof(table));
    return table;
}

extern Service* service;
extern Application* application;
extern Listener* bareListener;
extern Listener* overridingListener;

inline void* checked(void* block)
{
    if (!block)
        throw std::bad_alloc();
    return block;
}

/// Makes a record and its owner, with one use.
inline ControlBlock* created(std::size_t size, Release releaseStrings)
{
    void* const record = checked(std::calloc(1, size));
    Owner* const owner = new Owner(record, releaseStrings);
    return new ControlBlock{nullptr, {1}, {1}, owner};
}

template <typename Record>
inline Record& recordOf(const ControlBlock& block)
{
    return *static_cast<Record*>(block.owner->record);
}

inline void set(nubDeserString_t& field, const char* chars, std::size_t length)
{
    field.length = static_cast<std::uint32_t>(length);
    field.chars = static_cast<char*>(checked(std::malloc(length + 1)));
    std::memcpy(field.chars, chars, length);
    field.chars[length] = '\0';
}

} // namespace bench::floors

#endif
