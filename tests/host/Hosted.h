#ifndef TESTS_HOST_HOSTED_H
#define TESTS_HOST_HOSTED_H

#include "Sample.h"

#include <fabric-host/ServiceHost.h>

namespace sample {

using namespace fabric::host;

/// Notes its calls; the test decides how it handles a command.
struct ScriptedService : Service
{
    explicit ScriptedService(Journal& target) : journal(target) {}

    const MessageCatalogue& catalogue() const override { return sample::catalogue; }
    void start(ClientSender& out) override { outlet = &out; }
    void clientConnected(ClientId) override {}
    void clientDisconnected(ClientId id) override { journal.note("gone " + std::to_string(id)); }

    void commandReceived(ClientId client, const Message& command) override
    {
        journal.note(std::to_string(recordOf(command).number));
        onCommand(*outlet, client, command);
    }

    TimePoint runDue() override
    {
        if (TimePoint::clock::now() >= due)
            journal.note("due"), due = TimePoint::max();
        return due;
    }

    std::function<void(ClientSender&, ClientId, const Message&)> onCommand;
    TimePoint due = TimePoint::max();

    Journal& journal;
    ClientSender* outlet = nullptr;
};

/// A connected session that notes the reports of its client.
struct Application
{
    explicit Application(std::unique_ptr<fabric::host::Link> link)
        : session(std::make_unique<Session>(std::move(link), catalogue))
    {
        session->attach(client);
        session->connect();
        journal.await(1);
    }

    int send(std::uint32_t number, const std::string& text = "")
    {
        MsgIds ids;
        const int result =
            session->application().sendEvent(ids, 0, message(ask, number, text).release());
        EXPECT_EQ(result == 0, ids != MsgIds());
        return result;
    }

    Journal journal;
    Client client{journal};
    std::unique_ptr<Session> session;
};

} // namespace sample

#endif
