#ifndef CHRONALCTL_SYNC_CLIENT_H
#define CHRONALCTL_SYNC_CLIENT_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "Client.h"

namespace chronal::ctl {

/// Sends commands and waits for the answer of each.
class SyncClient final : public Client
{
public:
    using Send = std::function<void(chronal::UserAdapter&, fabric::MsgIds&)>;

    /// `socket` is for error texts.
    SyncClient(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
               std::chrono::microseconds timeout, const std::string& socket);

    /// Waits for the connection, sends one command, and waits for the answer with its ids; for each
    /// no longer than the timeout. Throws Failure when there is none, or one that is neither the
    /// report of this name nor a refusal.
    Report request(const Send& send, const std::string& wanted);

private:
    void connected() override;
    void notConnected(int reason) override;
    void answered(const fabric::MsgIds& ids, const Report& report) override;
    void notified(const Report& notification) override;

    const std::chrono::microseconds timeout_;
    const std::string socket_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isConnected_ = false;
    unsigned losses_ = 0; ///< a lost connection may be back before the waiting thread runs
    std::optional<int> lastReason_; ///< why there is no connection
    fabric::MsgIds expected_ = {};
    std::optional<Report> answer_;
};

} // namespace chronal::ctl

#endif
