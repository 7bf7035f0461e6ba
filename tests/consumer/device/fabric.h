// This middleware differs from platform/include wherever docs/porting.md permits: objects have
// other sizes, functions are not virtual, members are held by value, and there are no typedefs or
// export macros.

#ifndef DEVICE_FABRIC_H
#define DEVICE_FABRIC_H

#include <pthread.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "nub.h"

namespace fabric {

struct MsgMeta
{
    std::uint32_t serviceId;
    std::uint32_t resourceId;
    std::uint32_t operationId;
    std::uint8_t kind;
};

struct EndpointId
{
    std::int32_t node;
    std::uint32_t componentId;
};

class MsgIds
{
public:
    explicit MsgIds(const std::string& name) : text(name) {}
    MsgIds(const MsgIds&) = delete;

    std::string text;
};

} // namespace fabric

extern "C" void fabricTwineDeserReleaseMessage(unsigned word, const fabric::MsgMeta* release,
                                               const nubEndianTable_t* table, void* payload);

namespace fabric {

class Event
{
public:
    /// Throws std::length_error while `refused` is set.
    Event(const MsgMeta& identity, const EndpointId& sender);
    virtual ~Event();

    static bool refused;

    const std::int64_t stamp;
    const MsgMeta meta;
    const EndpointId from;
    const MsgIds ids;
};

class SerializableMessageData
{
public:
    SerializableMessageData(void* record, unsigned word, const nubEndianTable_t* table)
        : payload(record), releaseWord(word), endianTable(table)
    {
    }

    virtual ~SerializableMessageData()
    {
        const MsgMeta release = {~0U, 0, 0, 0xFF};
        fabricTwineDeserReleaseMessage(releaseWord, &release, endianTable, payload);
        std::free(payload);
    }

    SerializableMessageData(const SerializableMessageData&) = delete;

    static boost::shared_ptr<SerializableMessageData> create(unsigned long size,
                                                             const nubEndianTable_t& table)
    {
        return boost::make_shared<SerializableMessageData>(std::calloc(size, 1), 0U, &table);
    }

    void* const payload;
    const unsigned releaseWord;
    const nubEndianTable_t* const endianTable;
};

class SerializableMessageEvent : public Event
{
public:
    SerializableMessageEvent(const MsgMeta& identity, const EndpointId& sender,
                             boost::shared_ptr<SerializableMessageData> owner)
        : Event(identity, sender), data(owner)
    {
    }

    const boost::shared_ptr<SerializableMessageData> data;
};

template <class Result, class Argument>
class BaseArg1Method
{
public:
    class Caller
    {
    public:
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
class Arg1Method : public BaseArg1Method<Result, Argument>
{
    using Caller = typename BaseArg1Method<Result, Argument>::Caller;

public:
    template <class Class, class Parameter>
    class ClassSpecCaller : public Caller
    {
    public:
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

    private:
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

private:
    void* storage[4];
};

class StateHolder
{
public:
    StateHolder();

    pthread_mutex_t lock;
};

class StatePart
{
public:
    explicit StatePart(StateHolder& state);
    virtual ~StatePart();

    pthread_mutex_t* stateMutex();

private:
    StateHolder& holder;
    std::int64_t generation;
    char name[5];
};

class AbstractComponent
{
public:
    explicit AbstractComponent(std::uint32_t id);

    int addEventHandler(const MsgMeta& key, int flags,
                        const Arg1Method<int, const Event&>& handler) const;

    const std::string name;
    const std::uint32_t componentId;
};

class AbstractApplication
{
public:
    int addEventHandler(const MsgMeta& key, int flags,
                        const Arg1Method<int, const Event&>& handler);
    int sendEvent(MsgIds& ids, int flags, Event* event);

    static int registrations();
    /// Hands the event to the handlers of its identity.
    void deliver(const Event& event);

    char reserved[100] = {};
    StateHolder stateHolder;
};

class ServiceInterface
{
public:
    std::uint32_t getServiceId() const;
};

class ClientInterface
{
public:
    virtual void onServiceConnected() = 0;
    virtual void onServiceConnectionFailed(int reason) = 0;
    virtual void onServiceDisconnected(int reason) = 0;
};

class EventHandlerIdSet
{
public:
    explicit EventHandlerIdSet(const AbstractComponent& owner);
    ~EventHandlerIdSet();

    void addHandler(int id);
    void reset();

private:
    std::int64_t mask;
    char reserved[31];
};

} // namespace fabric

#endif
