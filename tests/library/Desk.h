#ifndef TESTS_LIBRARY_DESK_H
#define TESTS_LIBRARY_DESK_H

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <chronal/MessageRecords.h>
#include <chronal/UserAdapter.h>

using Data = boost::shared_ptr<fabric::SerializableMessageData>;

std::ostream& operator<<(std::ostream& out, const nubOsalTime_struct& time);

/// The number of the characters and the characters, with a dot for each NUL.
std::string shown(std::string characters);

/// The name of a record's table, and its members in the order of the table. All padding has to be
/// zero, except that of a caller's time.
std::string shown(const fabric::SerializableMessageData& data);

/// Joins the values with spaces.
template <typename... Values>
std::string words(const Values&... values)
{
    std::ostringstream out;
    out << std::boolalpha;
    ((out << ' ' << values), ...);
    return out.str().substr(1);
}

/// Overrides no callback.
struct BareAdapter : chronal::UserAdapter
{
    using UserAdapter::UserAdapter;
};

/// An adapter, and a middleware for it. Notes, in order, the calls that the library makes on the
/// thread that created the desk, also of the functions that Desk.cpp defines in place of the
/// originals. A thread without a desk gets the originals, without debug lines.
struct Desk : fabric::StateHolder, fabric::AbstractApplication, fabric::ServiceInterface
{
    static inline thread_local Desk* current = nullptr;
    using Key = const fabric::MsgMeta&;
    using Handler = const fabric::EventHandler&;

    struct Component : fabric::AbstractComponent
    {
        Component() : AbstractComponent(77) {}
        int addEventHandler(Key key, int flags, Handler handler) override
        {
            return current->add("component", key, flags, handler);
        }
        void removeEventHandler(int id) override
        {
            if (current && (current->handlerIds.erase(id) == 0 || current->handlerIds.empty()))
                note(words("handlers left:", current->handlerIds.size()));
        }
    };

    Desk() : AbstractApplication(static_cast<StateHolder&>(*this)) { current = this; }
    ~Desk() override { current = nullptr; }

    int addEventHandler(Key key, int flags, Handler handler) override
    {
        return add("application", key, flags, handler);
    }
    int add(const char* where, Key key, int flags, Handler handler)
    {
        const std::string identity = words(where, key.resourceId, key.operationId, int(key.kind));
        note(words(identity, "of", key.serviceId, "flags", flags));
        handlers.insert_or_assign(identity, handler);
        handlerIds.insert(nextHandlerId);
        return nextHandlerId++;
    }
    int sendEvent(fabric::MsgIds& id, int flags, fabric::SerializableMessageEvent* event) override
    {
        sent.reset(event);
        const fabric::MsgMeta& meta = event->meta;
        note(words("sendEvent", id.originId, id.messageId++, flags, event->sender.node,
                   event->sender.componentId, int(meta.kind), meta.serviceId, meta.resourceId,
                   meta.operationId, shown(*event->data)));
        return result;
    }
    std::uint32_t getServiceId() override
    {
        note("getServiceId");
        return serviceId++;
    }

    void attach() { adapter->setServiceInterface(this); }
    /// A note that is made while the mutex is locked ends with " (locked)".
    static void note(const std::string& call);

    /// Returns the notes that are made during the action, each as a line.
    template <typename Action>
    std::string during(const Action& action)
    {
        notes.clear();
        action();
        return notes;
    }

    std::string notes;
    std::function<void(const std::string& call)> onNote; ///< may throw
    bool linesWanted = true;                             ///< the answer of the debug check
    bool symbolsKnown = true;                            ///< to backtrace_symbols()
    std::int64_t equalToMarker = 0; ///< if not 0, every time equals this number of seconds
    std::uint32_t serviceId = 500;  ///< another one each time, as after a restart
    int nextHandlerId = -5;         ///< so that a connection has negative ids and 0
    int result = 0;                 ///< of sendEvent()
    fabric::MsgIds ids = {1, 2};    ///< for commands
    std::set<int> handlerIds;       ///< of all that are registered
    std::map<std::string, fabric::EventHandler> handlers; ///< the latest for each identity
    std::unique_ptr<fabric::SerializableMessageEvent> sent;
    Component component;
    std::unique_ptr<chronal::UserAdapter> adapter{new BareAdapter(*this, component)};
};

#endif
