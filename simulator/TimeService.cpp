#include "TimeService.h"

#include <chronal/Helpers.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "WireTime.h"

namespace chronal::sim {

namespace {

/// Reading a zone takes a hundred times as long as setting a known one. More than this many are
/// rarely in use at a time, and each takes up to 8 KiB.
constexpr std::size_t mostKnownZones = 16;

chronalMsgReplyTime_t times(referenceTimeId_enum id, Utc utc, Span deviation)
{
    chronalMsgReplyTime_t record = {};
    record.refTimeId = id;
    record.utcTime = wireTime(utc);
    record.utcDeviation = wireSpan(deviation);
    record.localTime = wireTime(Local(utc.time_since_epoch() + deviation));
    return record;
}

chronalMsgReplyTime_t noTimes(referenceTimeId_enum id, const nubOsalTime_struct& marker)
{
    chronalMsgReplyTime_t record = {};
    record.refTimeId = id;
    record.utcDeviation = marker;
    return record;
}

Content compose(const Message<chronalMsgReplyTime_t>& message, const chronalMsgReplyTime_t& times)
{
    return compose(message, [&](chronalMsgReplyTime_t& record) { record = times; });
}

Content compose(const Message<chronalMsgTimezone_t>& message, const Zone& zone, Utc utc)
{
    return compose(message, [&](chronalMsgTimezone_t& record) {
        copyText(record.timezone, zone.name());
        record.time = wireTime(utc);
    });
}

std::optional<Utc> readLocalAsUtc(const nubOsalTime_struct& time, std::optional<Span> announced,
                                  const DeviationRule& rule)
{
    const std::optional<Local> local = readLocal(time);
    if (!local)
        return std::nullopt;
    const std::optional<Utc> utc =
        announced ? Utc(local->time_since_epoch() - *announced) : rule.toUtc(*local);
    const bool inCalendar = utc >= Utc() && utc < calendarEnd;
    return inCalendar ? utc : std::nullopt;
}

bool isServerAcceptable(const nubDeserString_t& server, bool used)
{
    return server.length <= longestText && (server.length > 0 || !used);
}

std::shared_ptr<const Zone> checkedZone(const std::string& name)
{
    if (auto zone = findZone(name))
        return zone;
    throw std::invalid_argument("zone: unknown time zone \"" + name + "\"");
}

Span checkedPeriod(std::chrono::milliseconds period)
{
    if (period <= std::chrono::milliseconds::zero() || period > std::chrono::hours(24))
        throw std::invalid_argument("notificationPeriod: not between 1 ms and a day");
    return period;
}

bool isBroadcast(referenceTimeId_enum id)
{
    return id == referenceTimeDvb || id == referenceTimeAtsc;
}

} // namespace

struct TimeService::Handler
{
    std::uint32_t resourceId;
    std::uint32_t operationId;
    Content (*handle)(TimeService& service, ClientId client, const void* payload);

    template <auto Method, class Record>
    static constexpr Handler of(const Message<Record>& command)
    {
        return {command.resourceId, command.operationId, call<Method, Record>};
    }

    template <auto Method, class Record>
    static Content call(TimeService& service, ClientId client, const void* payload)
    {
        const Record& record = *static_cast<const Record*>(payload);
        if constexpr (std::is_invocable_v<decltype(Method), TimeService&, const Record&>)
            return (service.*Method)(record);
        else
            return (service.*Method)(client, record);
    }
};

const TimeService::Handler TimeService::handlers[] = {
    Handler::of<&TimeService::refTimeSet>(cmdRefTimeSet),
    Handler::of<&TimeService::refLocalTimeSet>(cmdRefLocalTimeSet),
    Handler::of<&TimeService::refTimeFetch>(cmdRefTimeFetch),
    Handler::of<&TimeService::nextTimeDeviationChangeSet>(cmdNextTimeDeviationChangeSet),
    Handler::of<&TimeService::sendDaylightsavingInfo>(cmdSendDaylightsavingInfo),
    Handler::of<&TimeService::nextTimeDeviationChangeFetch>(cmdNextTimeDeviationChangeFetch),
    Handler::of<&TimeService::refTimeSubscribe>(cmdRefTimeSubscribe),
    Handler::of<&TimeService::refTimeUnsubscribe>(cmdRefTimeUnsubscribe),
    Handler::of<&TimeService::refTimeLock>(cmdRefTimeLock),
    Handler::of<&TimeService::refTimeUnlock>(cmdRefTimeUnlock),
    Handler::of<&TimeService::refTimeAt>(cmdRefTimeAt),
    Handler::of<&TimeService::timeAt>(cmdTimeAt),
    Handler::of<&TimeService::dateTimeSettingsSet>(cmdDateTimeSettingsSet),
    Handler::of<&TimeService::timezoneSyncEnableSet>(cmdTimezoneSyncEnableSet),
    Handler::of<&TimeService::dateTimeNtpSet>(cmdDateTimeNtpSet),
    Handler::of<&TimeService::dateTimeNtpStart>(cmdDateTimeNtpStart),
    Handler::of<&TimeService::dateTimeAutoTimeSet>(cmdDateTimeAutoTimeSet),
    Handler::of<&TimeService::dateTimeSettingsFetch>(cmdDateTimeSettingsFetch),
    Handler::of<&TimeService::timezoneSet>(cmdTimezoneSet),
    Handler::of<&TimeService::timezoneFetch>(cmdTimezoneFetch),
    Handler::of<&TimeService::timeInit>(cmdTimeInit),
};

TimeService::TimeService(const Options& options, const Clock& clock)
    : clock_(clock),
      period_(checkedPeriod(options.notificationPeriod)),
      zone_(checkedZone(options.zone)),
      settings_(),
      outlet_(nullptr),
      lastNotification_(0)
{
    startSources();
    told_ = sources_.at(referenceTimeRtc).rule.periodAt(rtcUtc());
}

const fabric::host::MessageCatalogue& TimeService::catalogue() const { return sim::catalogue(); }

void TimeService::start(fabric::host::ClientSender& outlet) { outlet_ = &outlet; }

void TimeService::clientConnected(ClientId client) { clients_.insert(client); }

void TimeService::clientDisconnected(ClientId client)
{
    clients_.erase(client);
    const auto first = subscriptions_.lower_bound({client, referenceTimeInvalid});
    const auto last = std::find_if(first, subscriptions_.end(),
                                   [&](const auto& entry) { return entry.first.first != client; });
    subscriptions_.erase(first, last);
}

void TimeService::commandReceived(ClientId client, const fabric::SerializableMessageEvent& command)
{
    const auto handler =
        std::find_if(std::begin(handlers), std::end(handlers), [&](const Handler& candidate) {
            return candidate.resourceId == command.meta.resourceId &&
                   candidate.operationId == command.meta.operationId;
        });
    // The catalogue also has replies and notifications, some with a command's ids.
    if (command.meta.kind != fabric::host::kindCommand || handler == std::end(handlers))
        return;
    // The answer is allocated before anything changes, so that every change is answered.
    afterAnswer_.clear();
    if (!result_.data)
        result_ = compose(replyResult, [](chronalMsgReplyResult_t&) {});
    auto answer = newEvent({command.meta, nullptr}, command.ids);
    const Content content = handler->handle(*this, client, command.data->payload);
    answer->meta = content.meta;
    answer->data = content.data;
    outlet_->send(client, std::move(answer));
    for (const Content& notification : afterAnswer_)
        notifyAll(notification);
    notifyDeviation();
}

TimeService::TimePoint TimeService::runDue()
{
    notifyDeviation();

    const TimePoint now = clock_.steady();
    if (firstDue_ <= now)
        notifySubscribers(now);
    return told_.end < calendarEnd ? std::min(firstDue_, clock_.steadyAfter(told_.end - rtcUtc()))
                                   : firstDue_;
}

void TimeService::notifySubscribers(TimePoint now)
{
    firstDue_ = TimePoint::max();
    for (auto& [subscription, due] : subscriptions_) {
        const auto [client, id] = subscription;
        if (due <= now) {
            ++lastNotification_;
            due += period_ * ((now - due) / period_ + 1);
            notify(client, [&, id = id] { return compose(notifyCurrentTime, timesOf(id)); });
        }
        firstDue_ = std::min(firstDue_, due);
    }
}

Content TimeService::refTimeSet(const chronalMsgCmdRefTimeData_t& command)
{
    return setTime(command, false);
}

Content TimeService::refLocalTimeSet(const chronalMsgCmdRefTimeData_t& command)
{
    return setTime(command, true);
}

Content TimeService::refTimeFetch(const chronalMsgCmdRefTimeId_t& command)
{
    if (!find(command.refTimeId))
        return result(-EINVAL);
    return compose(replyTimeRefInfo, timesOf(command.refTimeId));
}

Content TimeService::nextTimeDeviationChangeSet(const chronalMsgCmdRefTimeData_t& command)
{
    Source* const source = find(command.refTimeId);
    if (const int refusal = refusalToSet(source))
        return result(refusal);
    const std::optional<Utc> at = readUtc(command.time1);
    const std::optional<Span> deviation = readDeviation(command.time2);
    if (!at || !deviation)
        return result(-EINVAL);
    source->rule.announce({{*at, *deviation, std::nullopt}}, utcOf(*source));
    return result(0);
}

Content TimeService::sendDaylightsavingInfo(const chronalMsgCmdRefTimeData_t& command)
{
    Source* const source = find(command.refTimeId);
    if (const int refusal = refusalToSet(source))
        return result(refusal);
    const std::optional<Utc> begin = readUtc(command.time1);
    const std::optional<Utc> end = readUtc(command.time2);
    const std::optional<Span> standard = readDeviation(command.time3);
    const std::optional<Span> daylightSaving = readDeviation(command.time4);
    if (!begin || !end || !standard || !daylightSaving || *begin >= *end)
        return result(-EINVAL);
    source->rule.announce({{*begin, *daylightSaving, true}, {*end, *standard, false}},
                          utcOf(*source));
    return result(0);
}

Content TimeService::nextTimeDeviationChangeFetch(const chronalMsgCmdRefTimeId_t& command)
{
    const Source* const source = find(command.refTimeId);
    if (!source)
        return result(-EINVAL);
    const std::optional<Utc> now = utcOf(*source);
    if (!now)
        return compose(replyUtcDeviationInfo,
                       noTimes(command.refTimeId, Helpers::deviationUnknown));
    const std::optional<Period> next = source->rule.nextChange(*now);
    return compose(replyUtcDeviationInfo,
                   next ? times(command.refTimeId, next->begin, next->deviation)
                        : noTimes(command.refTimeId, Helpers::deviationInvalid));
}

Content TimeService::refTimeSubscribe(ClientId client, const chronalMsgCmdRefTimeId_t& command)
{
    if (!find(command.refTimeId))
        return result(-EINVAL);
    const TimePoint due = clock_.steady() + period_;
    subscriptions_.try_emplace({client, command.refTimeId}, due);
    firstDue_ = std::min(firstDue_, due);
    return result(0);
}

Content TimeService::refTimeUnsubscribe(ClientId client, const chronalMsgCmdRefTimeId_t& command)
{
    if (!find(command.refTimeId))
        return result(-EINVAL);
    subscriptions_.erase({client, command.refTimeId});
    return result(0);
}

Content TimeService::refTimeLock(const chronalMsgCmdRefTimeId_t& command)
{
    return setLocked(command.refTimeId, true);
}

Content TimeService::refTimeUnlock(const chronalMsgCmdRefTimeId_t& command)
{
    return setLocked(command.refTimeId, false);
}

Content TimeService::refTimeAt(const chronalMsgCmdRefTimeData_t& command)
{
    const Source* const source = find(command.refTimeId);
    const std::optional<Utc> utc = readUtc(command.time1);
    if (!source || !utc)
        return result(-EINVAL);
    return compose(replyTimeRefAt,
                   times(command.refTimeId, *utc, source->rule.periodAt(*utc).deviation));
}

Content TimeService::timeAt(const chronalMsgCmdTimeAtData_t& command)
{
    const DeviationRule rule(zone_);
    const std::optional<Utc> utc =
        command.isUtc ? readUtc(command.time) : readLocalAsUtc(command.time, std::nullopt, rule);
    if (!utc)
        return result(-EINVAL);
    return compose(replyTimeAt, times(referenceTimeInvalid, *utc, rule.periodAt(*utc).deviation));
}

Content TimeService::dateTimeSettingsSet(const chronalMsgDateTime_t& command)
{
    const auto switched = [](std::int32_t flag, bool before) {
        return flag == -1 ? before : flag != 0;
    };
    const bool ntpUsed = switched(command.flag2, settings_.ntpUsed);
    if (!isServerAcceptable(command.text, ntpUsed))
        return result(-EINVAL);
    settings_.ntpServer = readText(command.text);
    settings_.ntpUsed = ntpUsed;
    settings_.times = {command.time1, command.time2, command.time3, command.time4};
    settings_.value = command.value;
    settings_.automaticTime = switched(command.flag1, settings_.automaticTime);
    return result(0);
}

Content TimeService::timezoneSyncEnableSet(const chronalMsgDateTime_t& command)
{
    settings_.timezoneSyncEnable = command.timezoneSyncEnable;
    return result(0);
}

Content TimeService::dateTimeNtpSet(const chronalMsgNtpData_t& command)
{
    const bool used = command.flag != 0;
    if (!isServerAcceptable(command.text, used))
        return result(-EINVAL);
    settings_.ntpServer = readText(command.text);
    settings_.ntpUsed = used;
    return result(0);
}

Content TimeService::dateTimeNtpStart(const chronalCmdDummy_t&)
{
    if (!settings_.ntpUsed)
        return result(-EPERM);
    Source& ntp = sources_.at(referenceTimeNtp);
    if (const int refusal = refusalToSet(&ntp))
        return result(refusal);
    setUtc(ntp, clock_.utc());
    return result(0);
}

Content TimeService::dateTimeAutoTimeSet(const chronalMsgAutoTime_t& command)
{
    settings_.automaticTime = command.autoTime != 0;
    return result(0);
}

Content TimeService::dateTimeSettingsFetch(const chronalMsgReplyResult_t&)
{
    return compose(replyDateTimeSettingsInfo, [this](chronalMsgDateTime_t& record) {
        copyText(record.text, settings_.ntpServer);
        record.time0 = wireTime(rtcUtc());
        record.time1 = settings_.times[0];
        record.time2 = settings_.times[1];
        record.time3 = settings_.times[2];
        record.time4 = settings_.times[3];
        record.value = settings_.value;
        record.flag1 = settings_.automaticTime;
        record.flag2 = settings_.ntpUsed;
        record.timezoneSyncEnable = settings_.timezoneSyncEnable;
    });
}

Content TimeService::timezoneSet(const chronalMsgTimezone_t& command)
{
    if (command.timezone.length > longestText)
        return result(-EINVAL);
    const std::shared_ptr<const Zone> found = knownZone(readText(command.timezone));
    if (!found)
        return result(-ENOENT);
    if (found->name() != zone_->name())
        afterAnswer_.push_back(compose(notifyTimezoneChange, *found, rtcUtc()));
    zone_ = found;
    for (auto& [id, source] : sources_)
        source.rule = DeviationRule(zone_);
    return result(0);
}

/// Returns null for a zone that does not exist. Keeps the most recently used zone first.
std::shared_ptr<const Zone> TimeService::knownZone(const std::string& name)
{
    const auto known = std::find_if(knownZones_.begin(), knownZones_.end(),
                                    [&](const auto& each) { return each->name() == name; });
    if (known != knownZones_.end()) {
        std::rotate(knownZones_.begin(), known, known + 1);
        return knownZones_.front();
    }
    std::shared_ptr<const Zone> found = findZone(name);
    if (found)
        knownZones_.insert(knownZones_.begin(), found);
    if (knownZones_.size() > mostKnownZones)
        knownZones_.pop_back();
    return found;
}

Content TimeService::timezoneFetch(const chronalMsgReplyResult_t&)
{
    return compose(replyTimezoneInfo, *zone_, rtcUtc());
}

Content TimeService::timeInit(const chronalMsgAutoTime_t&)
{
    for (const auto& [id, source] : sources_)
        if (source.locked)
            return result(-EBUSY);
    startSources();
    settings_.automaticTime = false;
    return result(0);
}

TimeService::Source* TimeService::find(referenceTimeId_enum id)
{
    const auto found = sources_.find(id);
    return found == sources_.end() ? nullptr : &found->second;
}

int TimeService::refusalToSet(const Source* source)
{
    if (!source)
        return -EINVAL;
    return source->locked ? -EBUSY : 0;
}

std::optional<Utc> TimeService::utcOf(const Source& source) const
{
    return source.ahead ? std::optional<Utc>(wrapped(clock_.utc() + *source.ahead)) : std::nullopt;
}

Utc TimeService::rtcUtc() const
{
    return *utcOf(sources_.at(referenceTimeRtc)); // RTC always has a time
}

chronalMsgReplyTime_t TimeService::timesOf(referenceTimeId_enum id) const
{
    const Source& source = sources_.at(id);
    const std::optional<Utc> utc = utcOf(source);
    chronalMsgReplyTime_t record = utc ? times(id, *utc, source.rule.periodAt(*utc).deviation)
                                       : noTimes(id, Helpers::deviationUnknown);
    record.flag = utc.has_value();
    record.value = source.value;
    return record;
}

Content TimeService::setTime(const chronalMsgCmdRefTimeData_t& command, bool isLocal)
{
    Source* const source = find(command.refTimeId);
    if (const int refusal = refusalToSet(source))
        return result(refusal);
    const bool announced = isAnnounced(command.time2);
    const std::optional<Span> deviation = announced ? readDeviation(command.time2) : std::nullopt;
    const std::optional<Utc> utc =
        isLocal ? readLocalAsUtc(command.time1, deviation, source->rule) : readUtc(command.time1);
    if (!utc || deviation.has_value() != announced)
        return result(-EINVAL);

    if (isBroadcast(command.refTimeId))
        afterAnswer_.push_back(compose(notifyDtvTimeChange, [&](chronalMsgDtvTime_t& record) {
            record.dtvTime = wireTime(*utc);
        }));
    if (deviation)
        source->rule.setCurrent(*deviation, *utc);
    setUtc(*source, *utc);
    source->value = command.value;
    return result(0);
}

Content TimeService::setLocked(referenceTimeId_enum id, bool locked)
{
    Source* const source = find(id);
    if (!source)
        return result(-EINVAL);
    source->locked = locked;
    return result(0);
}

void TimeService::setUtc(Source& source, Utc utc)
{
    source.ahead = utc - clock_.utc();
    Source& rtc = sources_.at(referenceTimeRtc);
    if (settings_.automaticTime && !rtc.locked)
        rtc.ahead = source.ahead;
}

void TimeService::startSources()
{
    const Source valid = {Span::zero(), 0, false, DeviationRule(zone_)};
    const Source timeless = {std::nullopt, 0, false, DeviationRule(zone_)};
    sources_ = decltype(sources_){{referenceTimeRtc, valid},
                                  {referenceTimeNtp, valid},
                                  {referenceTimeDvb, timeless},
                                  {referenceTimeTeletext, timeless},
                                  {referenceTimeAtsc, timeless}};
}

/// Does not throw: commandReceived() has allocated the record.
Content TimeService::result(int code)
{
    static_cast<chronalMsgReplyResult_t*>(result_.data->payload)->result = code;
    return std::exchange(result_, Content());
}

/// Disconnects the client if there is no memory to notify it; other clients are still notified.
template <class Make>
void TimeService::notify(ClientId client, Make content)
{
    try {
        outlet_->send(client, newEvent(content(), {0, lastNotification_}));
    } catch (const std::bad_alloc&) {
        outlet_->drop(client, ENOMEM);
    }
}

void TimeService::notifyAll(const Content& content)
{
    ++lastNotification_;
    for (const ClientId client : clients_)
        notify(client, [&] { return content; });
}

/// If it throws std::bad_alloc, the next call tries again.
void TimeService::notifyDeviation()
{
    const Period current = sources_.at(referenceTimeRtc).rule.periodAt(rtcUtc());
    std::vector<Content> notifications;
    if (current.deviation != told_.deviation)
        notifications.push_back(compose(notifyDeviationChange, timesOf(referenceTimeRtc)));
    if (current.daylightSaving != told_.daylightSaving)
        notifications.push_back(compose(notifyDSTChange, [&](chronalMsgDST_t& record) {
            record.dst = current.daylightSaving;
        }));
    told_ = current;
    for (const Content& notification : notifications)
        notifyAll(notification);
}

} // namespace chronal::sim
