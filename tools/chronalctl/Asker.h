#ifndef CHRONALCTL_ASKER_H
#define CHRONALCTL_ASKER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "Client.h"

namespace chronal::ctl {

/// Sends commands and waits for the answer of each.
class Asker final : public Client
{
public:
    using Send = std::function<void(chronal::UserAdapter&, fabric::MsgIds&)>;

    /// `socket` is for error texts.
    Asker(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
          std::chrono::microseconds timeout, const std::string& socket);

    /// Waits for the connection, sends one command, and waits for the answer that bears its ids;
    /// each no longer than the timeout. Throws Failure when there is none, or one that is neither
    /// the report of this name nor a refusal.
    Report ask(const Send& send, const std::string& wanted);

private:
    void connected() override;
    void notConnected(int reason) override;
    void answered(const fabric::MsgIds& ids, const Report& report) override;
    void notified(const Report& notification) override;

    const std::chrono::microseconds timeout;
    const std::string socket;
    std::mutex mutex;
    std::condition_variable changed;
    bool isConnected = false;
    unsigned losses = 0;           ///< of the connection, which may come back before anybody looks
    std::optional<int> lastReason; ///< why there is no connection
    fabric::MsgIds expected = {};
    std::optional<Report> answer;
};

} // namespace chronal::ctl

#endif
