#ifndef CHRONALCTL_SYNC_CLIENT_H
#define CHRONALCTL_SYNC_CLIENT_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "Client.h"
#include "Failure.h"

namespace chronal::ctl {

/// Sends commands and waits for the answer of each.
class SyncClient final : public Client
{
public:
    using Send = std::function<void(chronal::UserAdapter&, fabric::MsgIds&)>;

    /// `socket` is for error texts.
    SyncClient(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
               std::chrono::microseconds timeout, const std::string& socket)
        : Client(app, comp), timeout_(timeout), socket_(socket)
    {
    }

    /// Waits for the connection, sends one command, and waits for the answer with its ids; for each
    /// no longer than the timeout. Throws Failure when there is none, or one that is neither the
    /// report of this name nor a refusal.
    Report request(const Send& send, const std::string& wanted)
    {
        // Held while sending, so that the answer cannot be looked at before its ids are known.
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, timeout_, [&] { return isConnected_; }))
            throw noService(socket_, timeout_, lastReason_);
        answer_.reset();
        const unsigned lossesBefore = losses_;
        send(*this, expected_);
        // A connection that takes no command has gone, which is reported a moment later.
        changed_.wait_for(lock, timeout_,
                          [&] { return answer_.has_value() || losses_ != lossesBefore; });
        const std::string service = serviceAt(socket_);
        if (answer_ && answer_->result >= 0 && answer_->name != wanted)
            throw noAnswer("the " + service + " answered with " + answer_->name + " instead of " +
                           wanted);
        if (answer_)
            return *answer_;
        if (losses_ != lossesBefore)
            throw noAnswer("the " + service + " went away before it answered",
                           lastReason_.value_or(0));
        if (expected_.messageId == 0)
            throw noAnswer("the " + service + " accepted no command" + within(timeout_));
        throw noAnswer("no answer from the " + service + within(timeout_));
    }

private:
    void connected() override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isConnected_ = true;
        changed_.notify_all();
    }

    void notConnected(int reason) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (isConnected_)
            ++losses_;
        isConnected_ = false;
        lastReason_ = reason;
        changed_.notify_all();
    }

    void answered(const fabric::MsgIds& ids, const Report& report) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ids != expected_)
            return;
        answer_ = report;
        changed_.notify_all();
    }

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
