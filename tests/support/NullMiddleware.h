#ifndef TEST_NULL_MIDDLEWARE_H
#define TEST_NULL_MIDDLEWARE_H

#include <fabric/AbstractApplication.h>
#include <fabric/AbstractComponent.h>
#include <fabric/SerializableMessage.h>
#include <fabric/ServiceInterface.h>

/// A middleware that does only what it must: it keeps nothing and allocates nothing.
namespace desk {

class NullService : public fabric::ServiceInterface
{
public:
    std::uint32_t getServiceId() override { return 1; }
};

class NullComponent : public fabric::AbstractComponent
{
public:
    NullComponent() : AbstractComponent(2) {}
    int addEventHandler(const fabric::MsgMeta&, int, const fabric::EventHandler&) override
    {
        return 0;
    }
    void removeEventHandler(int) override {}
};

class NullApplication : public fabric::AbstractApplication
{
public:
    using AbstractApplication::AbstractApplication;
    int addEventHandler(const fabric::MsgMeta&, int, const fabric::EventHandler&) override
    {
        return 0;
    }
    int sendEvent(fabric::MsgIds&, int, fabric::SerializableMessageEvent* event) override
    {
        delete event;
        return 0;
    }
};

} // namespace desk

#endif
