#include "CommandRows.h"
#include "Desk.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <fabric-host/ServiceHost.h>
#include <fabric-host/Session.h>

namespace {

using fabric::SerializableMessageEvent;
using fabric::host::ClientId;
using fabric::host::MessageType;
using fabric::host::Session;

// The identities of the rows' commands, and the one answer.
std::vector<MessageType> typesOfRows()
{
    std::vector<MessageType> types = {
        {"result", 31032007, 26032014, 2, &__nub_EndianTable_chronalMsgReplyResult_t}};
    for (const CommandRow& row : commandRows)
        types.push_back({row.name, row.resourceId, row.operationId, 0, row.table});
    return types;
}

const std::vector<MessageType> types = typesOfRows();
const fabric::host::MessageCatalogue rowCatalogue = {77, types.data(), types.size()};

/// Answers each command with a result.
class AnsweringService : public fabric::host::Service
{
public:
    const fabric::host::MessageCatalogue& catalogue() const override { return rowCatalogue; }
    void start(fabric::host::ClientSender& serviceOutlet) override { outlet = &serviceOutlet; }
    void clientConnected(ClientId) override {}
    void clientDisconnected(ClientId) override {}
    void commandReceived(ClientId client, const SerializableMessageEvent& command) override
    {
        const auto data = fabric::SerializableMessageData::create(
            sizeof(chronalMsgReplyResult_t), __nub_EndianTable_chronalMsgReplyResult_t);
        auto reply = std::make_unique<SerializableMessageEvent>(
            fabric::MsgMeta{77, 31032007, 26032014, 2}, fabric::EndpointId{-1, 0}, data);
        reply->ids = command.ids;
        outlet->send(client, std::move(reply));
    }
    TimePoint runDue() override { return TimePoint::max(); }

private:
    fabric::host::ClientSender* outlet = nullptr;
};

/// Counts the answers, and sends commands from inside the callback.
class AskingAdapter : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;

    std::atomic<int> answers{0};
    std::atomic<int> connections{0};

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        ++connections;
    }

protected:
    void onReplyResult(const fabric::MsgIds& ids, int) override
    {
        EXPECT_NE(ids.messageId, 0U);
        if (++answers % 16 == 0) {
            fabric::MsgIds own = {};
            cmdTimezoneSet(own, "Europe/Berlin");
        }
    }
};

TEST(Threads, SendWhileTheConnectionComesAndGoes)
{
    AnsweringService service;
    const auto host = std::make_shared<fabric::host::ServiceHost>(service);
    host->start();
    Session session(fabric::host::newMemoryLink(host), rowCatalogue);
    AskingAdapter adapter(session.application(), session.component());
    adapter.setServiceInterface(&session.service());
    const fabric::host::Attachment attachment(session, adapter);

    std::atomic<bool> done{false};
    std::vector<std::thread> senders;
    for (int i = 0; i < 3; ++i)
        senders.emplace_back([&] {
            while (!done)
                for (const CommandRow& row : commandRows) {
                    fabric::MsgIds ids = {};
                    row.send(adapter, ids);
                }
        });
    // Each round waits until answers have come over the new connection.
    for (int round = 1; round <= 20; ++round) {
        const int before = adapter.answers;
        session.connect();
        const auto answered = [&] {
            return adapter.connections >= round && adapter.answers > before;
        };
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!answered() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        EXPECT_TRUE(answered()) << round;
        session.disconnect();
    }
    done = true;
    for (std::thread& sender : senders)
        sender.join();
    EXPECT_EQ(session.counters().framesRefused, 0U);
    EXPECT_EQ(session.counters().exceptionsCaught, 0U);
}

} // namespace
