#include "SyncClient.h"

#include "Failure.h"

namespace chronal::ctl {

SyncClient::SyncClient(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
                       std::chrono::microseconds timeout, const std::string& socket)
    : Client(app, comp), timeout_(timeout), socket_(socket)
{
}

Report SyncClient::request(const Send& send, const std::string& wanted)
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
    if (answer_ && answer_->result >= 0 && answer_->name != wanted)
        throw wrongAnswer(socket_, answer_->name, wanted);
    if (answer_)
        return *answer_;
    if (losses_ != lossesBefore)
        throw lostBeforeAnswer(socket_, lastReason_.value_or(0));
    if (expected_.messageId == 0)
        throw notSent(socket_, timeout_);
    throw noAnswer(socket_, timeout_);
}

void SyncClient::connected()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    isConnected_ = true;
    changed_.notify_all();
}

void SyncClient::notConnected(int reason)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (isConnected_)
        ++losses_;
    isConnected_ = false;
    lastReason_ = reason;
    changed_.notify_all();
}

void SyncClient::answered(const fabric::MsgIds& ids, const Report& report)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (ids != expected_)
        return;
    answer_ = report;
    changed_.notify_all();
}

void SyncClient::notified(const Report&) {}

} // namespace chronal::ctl
