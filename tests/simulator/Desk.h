#ifndef CHRONAL_TESTS_SIMULATOR_DESK_H
#define CHRONAL_TESTS_SIMULATOR_DESK_H

#include <cstring>
#include <iomanip>
#include <sstream>

#include <absl/time/time.h>
#include <gmock/gmock.h>

#include "FaultInjector.h"
#include "TimeService.h"
#include "WireTime.h"

namespace chronal::sim {

using fabric::host::ClientId;

/// Reads a time like "2026-03-29T01:00:59" or a span like "-3600", with or without "/MICROSECONDS".
inline nubOsalTime_struct at(const std::string& text)
{
    const std::size_t slash = std::min(text.find('/'), text.size());
    const std::int32_t microseconds = std::atoi(text.substr(slash).erase(0, 1).c_str());
    absl::CivilSecond civil;
    if (absl::ParseLenientCivilTime(text.substr(0, slash), &civil) && text.find('-', 1) < slash)
        return {civil - absl::CivilSecond(), microseconds};
    return {std::strtoll(text.c_str(), nullptr, 10), microseconds};
}

inline Utc utc(const std::string& text)
{
    return Utc(std::chrono::seconds(at(text).seconds) + Span(at(text).microseconds));
}

/// Returns the shortest text that at() reads, a time near 1970 as a span; shows each field's sign.
inline std::string text(const nubOsalTime_struct& time)
{
    const absl::CivilSecond civil = absl::CivilSecond() + time.seconds;
    std::string text = civil == absl::CivilDay(civil) ? absl::FormatCivilTime(absl::CivilDay(civil))
                       : civil == absl::CivilMinute(civil)
                           ? absl::FormatCivilTime(absl::CivilMinute(civil))
                           : absl::FormatCivilTime(civil);
    if (time.seconds < 400000 || civil.year() > 9999)
        text = (time.seconds < 0 ? "" : "+") + std::to_string(time.seconds);
    return time.microseconds == 0 ? text : text + "/" + std::to_string(time.microseconds);
}

/// Calls `visit` with the table (null for a word) and the address of each field of a record.
template <class Visit>
void forEachField(const fabric::SerializableMessageData& data, Visit visit)
{
    for (const nubEndianEntry_t* entry = data.endianTable->entries; entry->code != 0; ++entry)
        visit(entry->code >> 16 == nubEndianRecord ? entry->argument.table : nullptr,
              static_cast<char*>(data.payload) + (entry->code & 0xFFFF));
}

/// Makes a message from its name and its fields in the order of its table. Fields at the end may be
/// missing; "*300" is a string of 300 characters.
inline fabric::SerializableMessageEvent message(const std::string& text)
{
    std::istringstream words(text);
    std::string word;
    words >> word;
    const fabric::host::MessageType* type = catalogue().types;
    while (type->name != word && type != &catalogue().types[catalogue().count - 1])
        ++type;
    EXPECT_EQ(type->name, word);
    const auto data = fabric::SerializableMessageData::create(type->table->size, *type->table);
    forEachField(*data, [&](const nubEndianTable_t* table, void* field) {
        if (!(words >> std::quoted(word)))
            return;
        if (table == &__nub_EndianTable_nubOsalTime_t)
            *static_cast<nubOsalTime_struct*>(field) = at(word);
        else if (table)
            copyText(*static_cast<nubDeserString_t*>(field),
                     word[0] == '*' ? std::string(std::stoul(&word[1]), 'x') : word);
        else
            *static_cast<std::int32_t*>(field) = std::atoi(word.c_str());
    });
    const fabric::MsgMeta meta = {catalogue().serviceId, type->resourceId, type->operationId,
                                  type->kind};
    return {meta, {-1, 7}, data};
}

/// Returns what message() reads, but "done" or the error's name for a result.
inline std::string text(const fabric::SerializableMessageEvent& event)
{
    std::string all = typeOf(event)->name;
    forEachField(*event.data, [&](const nubEndianTable_t* table, const void* field) {
        const auto string = static_cast<const nubDeserString_t*>(field);
        if (table == &__nub_EndianTable_nubOsalTime_t)
            all += " " + text(*static_cast<const nubOsalTime_struct*>(field));
        else if (table)
            all += " " +
                   (string->length < 99 ? readText(*string) : "*" + std::to_string(string->length));
        else
            all += " " + std::to_string(*static_cast<const std::int32_t*>(field));
    });
    const auto result = static_cast<const chronalMsgReplyResult_t*>(event.data->payload)->result;
    return all.rfind("replyResult ", 0) != 0 ? all : result ? strerrorname_np(-result) : "done";
}

/// A service in Berlin on 2026-01-01 at 12:30 local time, with clients 1 and 2.
struct Desk : fabric::host::ClientSender
{
    explicit Desk(std::size_t dropAfter = 0, const std::vector<std::string>& refused = {},
                  const FaultInjector::Log& log = nullptr)
        : service(timeService, clock, log, dropAfter)
    {
        for (const std::string& command : refused)
            service.setFault(command, Fault{false, refusal(-EACCES), {}});
        service.start(*this);
        service.clientConnected(1);
        service.clientConnected(2);
        advance(Span(0));
    }
    virtual ~Desk() = default;

    /// Compares what the steps in each line of a script do: "STEP[; STEP...] -> [CLIENTS
    /// MESSAGE...]"
    void play(const std::string& script)
    {
        std::istringstream lines(script);
        std::string expected, found;
        for (std::string line; std::getline(lines, line);) {
            line.erase(0, line.find_first_not_of(' '));
            const std::string steps = line.substr(0, line.find(" -> "));
            expected += line + '\n';
            found += (steps == line ? line : steps + " -> " + run(steps)) + '\n';
        }
        EXPECT_EQ(found, expected);
    }

    std::string run(const std::string& script)
    {
        sent.clear();
        std::istringstream steps(script);
        for (std::string step; std::getline(steps >> std::ws, step, ';');)
            std::isdigit(static_cast<unsigned char>(step[0]))
                ? perform(step.substr(2), static_cast<ClientId>(step[0] - '0'))
                : perform(step, 1);
        std::string all;
        for (const auto& [clients, text] : sent)
            all += (all.empty() ? "" : ", ") + clients + " " + text;
        return all.empty() ? "nothing" : all;
    }

    /// Carries out "cmd...", "connect", "drop", "wait SPAN", "until TIME" or "due".
    void perform(const std::string& step, ClientId client)
    {
        const Utc argument = utc(step.substr(step.find(' ') + 1));
        if (step == "connect")
            service.clientConnected(client);
        else if (step == "drop")
            service.clientDisconnected(client);
        else if (step == "due")
            note("in", due < std::chrono::hours(900000) ? text(wireSpan(due)) : "never");
        else if (step.rfind("wait", 0) == 0)
            advance(argument.time_since_epoch());
        else if (step.rfind("until", 0) == 0)
            while (clock.utc() + due <= argument)
                advance(due);
        else
            ask(step, client);
    }

    void ask(const std::string& command, ClientId client = 1)
    {
        fabric::SerializableMessageEvent event = message(command);
        event.ids = {client, 99};
        service.commandReceived(client, event);
        advance(Span(0));
    }

    void advance(Span span)
    {
        clock.advanceTo(clock.steady() + span);
        service.advance(clock, clock.steady());
        due = std::chrono::floor<Span>(timeService.runDue() - clock.steady());
    }

    void send(ClientId client, std::unique_ptr<fabric::SerializableMessageEvent> event) override
    {
        EXPECT_TRUE(event->meta.serviceId == 29032007 && event->sender.node == -1);
        note(std::to_string(client), text(*event));
    }

    void drop(ClientId client, int) override { note(std::to_string(client), "dropped"); }

    void note(const std::string& client, const std::string& text)
    {
        if (sent.empty() || sent.back().second != text)
            sent.emplace_back("", text);
        if (sent.back().first.find(client) == std::string::npos)
            sent.back().first += client;
    }

    SettableClock clock{utc("2026-01-01T11:30:00"), 0};
    TimeService timeService{{"Europe/Berlin"}, clock};
    FaultInjector service;
    /// In the current line, with the clients that got it one after the other.
    std::vector<std::pair<std::string, std::string>> sent;
    Span due; ///< from now
};

} // namespace chronal::sim

#endif
