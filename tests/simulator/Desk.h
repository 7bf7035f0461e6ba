#ifndef CHRONAL_TESTS_SIMULATOR_DESK_H
#define CHRONAL_TESTS_SIMULATOR_DESK_H

#include <cstdio>
#include <type_traits>

#include <absl/time/time.h>
#include <gmock/gmock.h>

#include "TimeService.h"
#include "WireTime.h"

namespace chronal::sim {

using fabric::host::ClientId;

/// Reads a time like "2026-03-29 01:00:00", optionally with a fraction of six digits.
template <class Time>
Time parsed(const std::string& text)
{
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, micros = 0;
    EXPECT_GE(std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d.%6d", &year, &month, &day, &hour,
                          &minute, &second, &micros),
              6)
        << text;
    const absl::CivilSecond civil(year, month, day, hour, minute, second);
    return Time(std::chrono::seconds(civil - absl::CivilSecond()) + Span(micros));
}

inline Utc utc(const std::string& text) { return parsed<Utc>(text); }

inline nubOsalTime_struct at(const std::string& text) { return wireTime(utc(text)); }

inline nubOsalTime_struct span(std::int64_t seconds, std::int32_t microseconds = 0)
{
    return {seconds, microseconds};
}

/// Formats a time like "2026-03-29 01:00:00", or a span like "+3600"; shows each field's sign.
inline std::string text(const nubOsalTime_struct& time)
{
    const bool isSpan = time.seconds < 400000 || time.seconds > 253402300800;
    return (isSpan ? (time.seconds < 0 ? "" : "+") + std::to_string(time.seconds)
                   : absl::FormatTime("%F %T", absl::FromUnixSeconds(time.seconds),
                                      absl::UTCTimeZone())) +
           (time.microseconds == 0 ? "" : "." + std::to_string(time.microseconds));
}

/// Calls `visit` with the table (null for a word) and the address of each field of a record.
template <class Visit>
void forEachField(const nubEndianTable_t& table, char* record, Visit visit)
{
    for (const nubEndianEntry_t* entry = table.entries; entry->code != 0; ++entry) {
        const bool isRecord = entry->code >> 16 == nubEndianRecord;
        visit(isRecord ? entry->argument.table : nullptr, record + (entry->code & 0xFFFF));
    }
}

/// Returns the name and the fields of a message.
inline std::string text(const fabric::SerializableMessageEvent& event)
{
    const fabric::host::MessageType* const type =
        catalogue().find(event.meta.resourceId, event.meta.operationId, event.meta.kind);
    std::string all = type ? type->name : "not in the catalogue";
    const auto add = [&](const nubEndianTable_t* table, const char* field) {
        if (!table)
            all += " " + std::to_string(*reinterpret_cast<const std::int32_t*>(field));
        else if (table == &__nub_EndianTable_nubOsalTime_t)
            all += " " + text(*reinterpret_cast<const nubOsalTime_struct*>(field));
        else
            all += " " + readText(*reinterpret_cast<const nubDeserString_t*>(field));
    };
    forEachField(*event.data->endianTable, static_cast<char*>(event.data->payload), add);
    return all;
}

/// Moves only when the test moves it, both times alike.
struct ManualClock : Clock
{
    Utc utc() const override { return now; }
    TimePoint steady() const override { return steadyNow; }
    TimePoint steadyAfter(Span wait) const override
    {
        return steadyNow + std::min<Span>(wait, std::chrono::hours(24 * 36525));
    }

    Utc now = sim::utc("2026-01-01 11:30:00");
    TimePoint steadyNow;
};

template <class Record>
Content command(const Message<Record>& message, const std::common_type_t<Record>& record = {})
{
    return compose(message, [&](Record& target) { target = record; });
}

inline Content about(const Message<chronalMsgCmdRefTimeId_t>& message, std::int32_t id)
{
    return command(message, {static_cast<referenceTimeId_enum>(id)});
}

inline Content about(const Message<chronalMsgCmdRefTimeData_t>& message, std::int32_t id,
                     const nubOsalTime_struct& time1, const nubOsalTime_struct& time2 = {},
                     const nubOsalTime_struct& time3 = {}, const nubOsalTime_struct& time4 = {},
                     std::int32_t value = 0)
{
    return command(message,
                   {static_cast<referenceTimeId_enum>(id), time1, value, time2, time3, time4});
}

inline nubDeserString_t string(const std::string& characters)
{
    nubDeserString_t string;
    copyText(string, characters);
    return string;
}

inline Content zoneSet(const std::string& zone)
{
    return command(cmdTimezoneSet, {string(zone), {}});
}

inline Content ntpSet(const std::string& server, std::int32_t used)
{
    return command(cmdDateTimeNtpSet, {string(server), used});
}

inline Content settingsSet(const std::string& server, std::int32_t flag1, std::int32_t flag2)
{
    return command(cmdDateTimeSettingsSet,
                   {{}, {1, -1}, {-2, 0}, {3, 0}, {4, 0}, -5, string(server), flag1, flag2, 1});
}

typedef std::vector<std::string> Texts;

/// A service in Berlin on 2026-01-01 at 12:30 local time, with clients 1 and 2.
struct Desk : fabric::host::ClientSender
{
    Desk()
    {
        service.start(*this);
        service.clientConnected(1);
        service.clientConnected(2);
        advance(Span(0));
    }
    virtual ~Desk() = default;

    /// Sends a client's command and returns the messages that this client gets.
    Texts ask(const Content& command, ClientId client = 1)
    {
        sent.clear();
        fabric::SerializableMessageEvent event(command.meta, {-1, 7}, command.data);
        event.ids = {client, 99};
        service.commandReceived(client, event);
        runDue();
        return sentTo(client);
    }

    Texts sentTo(ClientId client) const
    {
        Texts texts;
        for (const auto& [receiver, ids, text] : sent)
            if (receiver == client)
                texts.push_back(text);
        return texts;
    }

    void runDue() { due = std::chrono::ceil<Span>(service.runDue() - clock.steady()); }

    /// Lets time pass and returns the messages that client 2 gets.
    Texts advance(Span span)
    {
        sent.clear();
        clock.now += span;
        clock.steadyNow += span;
        runDue();
        return sentTo(2);
    }

    void send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event) override
    {
        sent.emplace_back(client, event->ids, text(*event));
    }

    void drop(ClientId, int) override {}

    ManualClock clock;
    TimeService service{{"Europe/Berlin"}, clock};
    std::vector<std::tuple<ClientId, fabric::MsgIds, std::string>> sent;
    Span due; ///< from now
};

} // namespace chronal::sim

#endif
