#include "Asker.h"

#include "Failure.h"

namespace chronal::ctl {

Asker::Asker(fabric::AbstractApplication& app, fabric::AbstractComponent& comp,
             std::chrono::microseconds longest, const std::string& placeOfService)
    : Client(app, comp), timeout(longest), socket(placeOfService)
{
}

Report Asker::ask(const Send& send, const std::string& wanted)
{
    // Held while sending, so that the answer cannot be looked at before its ids are known.
    std::unique_lock<std::mutex> lock(mutex);
    if (!changed.wait_for(lock, timeout, [&] { return isConnected; }))
        throw noService(socket, timeout, lastReason);
    answer.reset();
    const unsigned lossesBefore = losses;
    send(*this, expected);
    // A connection that takes no command has gone, which is reported a moment later.
    changed.wait_for(lock, timeout, [&] { return answer.has_value() || losses != lossesBefore; });
    if (answer && answer->result >= 0 && answer->name != wanted)
        throw wrongAnswer(socket, answer->name, wanted);
    if (answer)
        return *answer;
    if (losses != lossesBefore)
        throw lostBeforeAnswer(socket, lastReason.value_or(0));
    if (expected.messageId == 0)
        throw notSent(socket, timeout);
    throw noAnswer(socket, timeout);
}

void Asker::connected()
{
    const std::lock_guard<std::mutex> lock(mutex);
    isConnected = true;
    changed.notify_all();
}

void Asker::notConnected(int reason)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (isConnected)
        ++losses;
    isConnected = false;
    lastReason = reason;
    changed.notify_all();
}

void Asker::answered(const fabric::MsgIds& ids, const Report& report)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (ids != expected)
        return;
    answer = report;
    changed.notify_all();
}

void Asker::notified(const Report&) {}

} // namespace chronal::ctl
