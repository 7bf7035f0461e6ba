// The middleware of a device. It differs from platform/include wherever docs/porting.md permits:
// objects have other sizes, functions are not virtual, members are held by value, and there are no
// typedefs or export macros.

#ifndef DEVICE_H
#define DEVICE_H

#include <pthread.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

struct nubEndianTable_t;

union nubEndianArgument_t
{
    constexpr nubEndianArgument_t(const nubEndianTable_t* nested) : table(nested) {}
    constexpr nubEndianArgument_t(std::uintptr_t plain) : word(plain) {}

    const nubEndianTable_t* table;
    std::uintptr_t word;
};

struct nubEndianEntry_t
{
    std::uint32_t code;
    nubEndianArgument_t argument;
};

struct nubEndianTable_t
{
    std::uint32_t size;
    const nubEndianEntry_t* entries;
};

constexpr int nubEndianRecord = 3, nubEndianWord32 = 4, nubEndianWord64 = 8;

struct nubDeserString_t
{
    std::uint32_t length;
    char* chars;
};

struct alignas(8) nubOsalTime_struct
{
    std::int64_t seconds;
    std::int32_t microseconds, padding;
};

struct nubDebugChunk_t
{
    std::uint32_t words[3];
};

namespace fabric {
struct MsgMeta
{
    std::uint32_t serviceId, resourceId, operationId;
    std::uint8_t kind;
};
} // namespace fabric

extern "C" {
extern const nubEndianTable_t __nub_EndianTable_nubDeserString_t;
bool nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk);
int nubDebugOutput0(const void* chunk, const char* format, ...);
nubOsalTime_struct* nubOsalNormalizeTime(nubOsalTime_struct* time);
int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right);
void fabricTwineDeserReleaseMessage(unsigned word, const fabric::MsgMeta* release,
                                    const nubEndianTable_t* table, void* payload);
}

struct ltGuard
{
    explicit ltGuard(pthread_mutex_t* mutex);
    ~ltGuard();

    pthread_mutex_t* held;
};

namespace fabric {

struct EndpointId
{
    std::int32_t node;
    std::uint32_t componentId;
};

struct MsgIds
{
    explicit MsgIds(const std::string& name) : text(name) {}
    MsgIds(const MsgIds&) = delete;

    std::string text;
};

struct Event
{
    /// Throws std::length_error while `refused` is set.
    Event(const MsgMeta& identity, const EndpointId& sender);
    virtual ~Event();

    static bool refused;

    const std::int64_t stamp;
    const MsgMeta meta;
    const EndpointId from;
    const MsgIds ids;
};

struct SerializableMessageData
{
    SerializableMessageData(void* record, unsigned word, const nubEndianTable_t* table)
        : payload(record), releaseWord(word), endianTable(table)
    {
    }
    SerializableMessageData(const SerializableMessageData&) = delete;
    virtual ~SerializableMessageData()
    {
        const MsgMeta release = {~0U, 0, 0, 0xFF};
        fabricTwineDeserReleaseMessage(releaseWord, &release, endianTable, payload);
        std::free(payload);
    }

    static boost::shared_ptr<SerializableMessageData> create(unsigned long size,
                                                             const nubEndianTable_t& table)
    {
        return boost::make_shared<SerializableMessageData>(std::calloc(size, 1), 0U, &table);
    }

    void* const payload;
    const unsigned releaseWord;
    const nubEndianTable_t* const endianTable;
};

struct SerializableMessageEvent : Event
{
    SerializableMessageEvent(const MsgMeta& identity, const EndpointId& sender,
                             boost::shared_ptr<SerializableMessageData> owner)
        : Event(identity, sender), data(owner)
    {
    }

    const boost::shared_ptr<SerializableMessageData> data;
};

template <class Result, class Argument>
struct BaseArg1Method
{
    struct Caller
    {
        virtual ~Caller() {}
        virtual Result invoke(Argument argument) = 0;
        virtual std::string getClassName() = 0;
        virtual std::string getMethodName() = 0;
        virtual void* getObject() = 0;
    };

    virtual ~BaseArg1Method() {}

    Caller* caller;
};

template <class Result, class Argument>
struct Arg1Method : BaseArg1Method<Result, Argument>
{
    using Caller = typename BaseArg1Method<Result, Argument>::Caller;

    template <class Class, class Parameter>
    struct ClassSpecCaller : Caller
    {
        ClassSpecCaller(Class* target, Result (Class::*function)(Parameter))
            : object(target), method(function)
        {
        }
        Result invoke(Argument argument) override
        {
            return (object->*method)(static_cast<Parameter>(argument));
        }
        std::string getClassName() override { return "a class"; }
        std::string getMethodName() override { return "a method"; }
        void* getObject() override { return object; }

        Class* object;
        Result (Class::*method)(Parameter);
    };

    template <class Class, class Parameter>
    Arg1Method(Class* object, Result (Class::*method)(Parameter))
    {
        this->caller = new (storage) ClassSpecCaller<Class, Parameter>(object, method);
    }
    Arg1Method(const Arg1Method& other) : BaseArg1Method<Result, Argument>(other)
    {
        std::memcpy(storage, other.storage, sizeof(storage));
        this->caller = reinterpret_cast<Caller*>(storage);
    }

    void* storage[4];
};

struct StateHolder
{
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
};

struct StatePart
{
    explicit StatePart(StateHolder& state) : holder(state) {}
    virtual ~StatePart() {}
    pthread_mutex_t* stateMutex() { return &holder.lock; }

    StateHolder& holder;
    char name[13] = {};
};

using Handler = Arg1Method<int, const Event&>;
int add(const MsgMeta& key, const Handler& handler);

struct AbstractComponent
{
    int addEventHandler(const MsgMeta& key, int, const Handler& handler) const
    {
        return add(key, handler);
    }

    const std::string name = "component";
    const std::uint32_t componentId = 42;
};

struct AbstractApplication
{
    int addEventHandler(const MsgMeta& key, int, const Handler& handler)
    {
        return add(key, handler);
    }
    int sendEvent(MsgIds& ids, int flags, Event* event);
    static int registrations();
    /// Hands the event to the handlers of its identity.
    void deliver(const Event& event);

    char reserved[100] = {};
    StateHolder stateHolder;
};

struct ServiceInterface
{
    std::uint32_t getServiceId() const { return 7; }
};

struct ClientInterface
{
    virtual void onServiceConnected() = 0;
    virtual void onServiceConnectionFailed(int reason) = 0;
    virtual void onServiceDisconnected(int reason) = 0;
};

struct EventHandlerIdSet
{
    explicit EventHandlerIdSet(const AbstractComponent&) {}
    ~EventHandlerIdSet() { reset(); }
    void addHandler(int id) { mask |= 1 << id; }
    void reset();

    std::int64_t mask = 0;
    char reserved[31] = {};
};

} // namespace fabric

#endif
