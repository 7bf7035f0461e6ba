#include "Control.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <chronal-sim/Messages.h>
#include <fabric-host/Printable.h>

#include "ParsedOption.h"
#include "TimeText.h"
#include "WireTime.h"
#include "api-chronal-record-text.h"

namespace chronal::sim {

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t longestLine = 70000; // a message of the longest text

// With every character escaped, it fits into a pipe that reports room.
constexpr std::size_t longestComplaint = 800;

/// "timezone-set" for "cmdTimezoneSet", "dst" for "notifyDSTChange".
std::string wordOf(std::string name)
{
    name.erase(0, name.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"));
    const std::size_t change = name.rfind("Change");
    if (change != std::string::npos && change + 6 == name.size())
        name.erase(change);
    std::string word;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool begins =
            std::isupper(name[i]) && i > 0 &&
            (std::islower(name[i - 1]) || (i + 1 < name.size() && std::islower(name[i + 1])));
        word += begins ? "-" : "";
        word += static_cast<char>(std::tolower(name[i]));
    }
    return word;
}

/// Returns the place of a word in a list. Throws std::invalid_argument that names the list.
std::size_t placeOf(const std::string& word, const Words& list, const char* what)
{
    const auto found = std::find(list.begin(), list.end(), word);
    if (found == list.end())
        throw std::invalid_argument("'" + word + "' is not a " + what +
                                    "; expected one of: " + tools::join(list, ", "));
    return static_cast<std::size_t>(found - list.begin());
}

const fabric::host::MessageType& typeOf(const std::string& word, std::uint8_t kind,
                                        const char* what)
{
    std::vector<const fabric::host::MessageType*> types;
    Words list;
    for (std::size_t i = 0; i < catalogue().count; ++i)
        if (catalogue().types[i].kind == kind) {
            types.push_back(&catalogue().types[i]);
            list.push_back(wordOf(types.back()->name));
        }
    return *types[placeOf(word, list, what)];
}

/// Composes a message from the texts of its fields; missing ones at the end are zero or empty.
Content contentOf(const fabric::host::MessageType& type, const Words& texts)
{
    Content content = {{catalogue().serviceId, type.resourceId, type.operationId, type.kind},
                       fabric::SerializableMessageData::create(type.table->size, *type.table)};
    const nubEndianEntry_t* entry = type.table->entries;
    for (const std::string& text : texts) {
        if (entry->code == 0)
            throw std::invalid_argument("'" + text + "' is one field too many");
        char* const field = static_cast<char*>(content.data->payload) + (entry->code & 0xFFFF);
        if (entry->code >> 16 != nubEndianRecord)
            *reinterpret_cast<std::int32_t*>(field) = tools::parseWholeNumber<std::int32_t>(text);
        else if (entry->argument.table == &__nub_EndianTable_nubDeserString_t)
            detail::copyText(*reinterpret_cast<nubDeserString_t*>(field), text);
        else
            *reinterpret_cast<nubOsalTime_struct*>(field) =
                text.find_first_of("+-") == 0 ? tools::parseSpan(text) : tools::parseUtc(text);
        ++entry;
    }
    return content;
}

struct Target
{
    FaultInjector& injector;
    SettableClock& clock;
    double speed; ///< of the running clock
};

/// Returns true when it is done, false to be called again after what it caused has been queued.
using Step = std::function<bool(Target)>;

/// Makes a step that is done at once.
template <class Action>
Step once(Action action)
{
    return [action](Target target) {
        action(target);
        return true;
    };
}

Step fault(const std::string& command, const std::optional<Fault>& fault)
{
    return once([name = parseCommand(command), fault](Target target) {
        target.injector.setFault(name, fault);
    });
}

struct Word
{
    const char* name;
    std::size_t least; ///< number of arguments
    std::size_t most;
    const char* arguments;
    bool aboutTime;
    Step (*parse)(const Words& arguments);
};

constexpr std::size_t any = 100;

constexpr Word words[] = {
    {"advance", 1, 1, "DURATION", true,
     [](const Words& arguments) -> Step {
         const Span span = tools::parseDuration(arguments[0]);
         return [span, target = std::optional<Clock::TimePoint>()](Target service) mutable {
             target = target ? *target : service.clock.later(span);
             return service.injector.advance(service.clock, *target);
         };
     }},
    {"time", 0, 1, "[TIME]", true,
     [](const Words& arguments) {
         const std::optional<Utc> time =
             arguments.empty() ? std::nullopt : std::optional<Utc>(parseTime(arguments[0]));
         return once(
             [time](Target target) { target.clock.setUtc(time ? *time : target.clock.utc()); });
     }},
    {"freeze", 0, 0, "", true,
     [](const Words&) { return once([](Target target) { target.clock.setSpeed(0); }); }},
    {"run", 0, 0, "", true,
     [](const Words&) { return once([](Target target) { target.clock.setSpeed(target.speed); }); }},
    {"refuse", 2, 2, "COMMAND NUMBER", false,
     [](const Words& arguments) {
         const int error = tools::parseWholeNumber<std::int32_t>(arguments[1]);
         return fault(arguments[0], Fault{false, refusal(error), {}});
     }},
    {"ignore", 1, 1, "COMMAND", false,
     [](const Words& arguments) { return fault(arguments[0], Fault{}); }},
    {"delay", 2, 2, "COMMAND DURATION", false,
     [](const Words& arguments) {
         return fault(arguments[0], Fault{true, {}, tools::parseDuration(arguments[1])});
     }},
    {"answer", 2, any, "COMMAND REPLY [FIELD...]", false,
     [](const Words& arguments) {
         const auto& type = typeOf(arguments[1], fabric::host::kindReply, "reply");
         return fault(arguments[0],
                      Fault{false, contentOf(type, {arguments.begin() + 2, arguments.end()}), {}});
     }},
    {"obey", 1, 1, "COMMAND", false,
     [](const Words& arguments) { return fault(arguments[0], std::nullopt); }},
    {"notify", 1, any, "NOTIFICATION [FIELD...]", false,
     [](const Words& arguments) {
         const auto& type = typeOf(arguments[0], fabric::host::kindNotification, "notification");
         const Content content = contentOf(type, {arguments.begin() + 1, arguments.end()});
         return once([content](Target target) { target.injector.notify(content); });
     }},
    {"drop", 0, 0, "", false,
     [](const Words&) { return once([](Target target) { target.injector.dropAll(ECONNRESET); }); }},
};

Words split(const std::string& line)
{
    Words parts;
    for (std::size_t begin = 0;
         (begin = line.find_first_not_of(" \t\r", begin)) != std::string::npos;) {
        const std::size_t end = std::min(line.find_first_of(" \t\r", begin), line.size());
        parts.push_back(line.substr(begin, end - begin));
        begin = end;
    }
    return parts;
}

const Word& wordNamed(const std::string& name)
{
    Words names;
    for (const Word& word : words)
        names.emplace_back(word.name);
    return words[placeOf(name, names, "control word")];
}

} // namespace

std::string parseCommand(const std::string& text)
{
    const Words names = commandNames();
    if (std::find(names.begin(), names.end(), text) != names.end())
        return text;
    Words list;
    std::transform(names.begin(), names.end(), std::back_inserter(list), wordOf);
    return names[placeOf(text, list, "command")];
}

Utc parseTime(const std::string& text)
{
    if (const std::optional<Utc> time = readUtc(tools::parseUtc(text)))
        return *time;
    throw std::invalid_argument("'" + text + "' is not within the years 1970 to 9999");
}

std::string controlWords()
{
    Words list;
    for (const Word& word : words)
        list.push_back(word.name + std::string(*word.arguments ? " " : "") + word.arguments);
    return tools::join(list, "; ");
}

Control::Control(fabric::host::ServiceHost& host, FaultInjector& injector, SettableClock& clock,
                 std::function<void(const std::string& line)> answer)
    : host_(host),
      injector_(injector),
      clock_(clock),
      speed_(clock.speed() == 0 ? 1 : clock.speed()),
      answer_(std::move(answer))
{
    if (::pipe(ended_) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot create a pipe");
    std::string input;
    input.reserve(longestLine + 1);
    thread_ = std::thread([this, input = std::move(input)]() mutable { read(input); });
}

Control::~Control()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
    }
    changed_.notify_one();
    ::close(ended_[1]);
    thread_.join();
    ::close(ended_[0]);
}

/// `input` has room for the longest line.
void Control::read(std::string& input)
{
    char bytes[4096];
    pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {ended_[0], POLLIN, 0}};
    while (::poll(sources, std::size(sources), -1) >= 0 || errno == EINTR) {
        if (sources[1].revents != 0)
            return;
        const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof(bytes));
        if (count <= 0)
            return answer(input);
        for (const char* next = bytes; next != bytes + count; ++next) {
            if (*next != '\n') {
                if (input.size() <= longestLine)
                    input += *next; // which has room for it
                continue;
            }
            answer(input);
            input.clear();
        }
    }
}

/// Waits until standard output has room for an answer, or until the host has stopped: a line
/// without room is left out.
void Control::waitForRoom() const
{
    pollfd sources[] = {{STDOUT_FILENO, POLLOUT, 0}, {ended_[0], POLLIN, 0}};
    while (::poll(sources, std::size(sources), -1) < 0 && errno == EINTR) {
    }
}

/// Answers a line that is not empty, as soon as there is memory for it.
void Control::answer(const std::string& line) noexcept
{
    pollfd ended = {ended_[0], POLLIN, 0};
    do {
        try {
            const Words parts = split(line);
            if (parts.empty())
                return;
            waitForRoom();
            try {
                if (line.size() > longestLine)
                    throw std::invalid_argument("the line is longer than 70000 characters");
                return obey(parts);
            } catch (const std::bad_alloc&) {
                throw;
            } catch (const std::exception& error) {
                const std::string what =
                    fabric::host::printable(std::string(error.what()).substr(0, longestComplaint));
                return post([&] {
                    answer_("error: " + what);
                    return true;
                });
            }
        } catch (const std::bad_alloc&) {
        }
    } while (::poll(&ended, 1, 100) == 0);
}

void Control::obey(const Words& parts)
{
    const Word& word = wordNamed(parts[0]);
    const Words arguments(parts.begin() + 1, parts.end());
    if (arguments.size() < word.least || arguments.size() > word.most)
        throw std::invalid_argument(std::string("expected: ") + word.name + ' ' + word.arguments);
    const Step step = word.parse(arguments);
    post([&] {
        if (!step({injector_, clock_, speed_}))
            return false;
        answer_(word.aboutTime ? "ok " + tools::formatUtc(wireTime(clock_.utc())) : "ok");
        return true;
    });
}

/// Calls `step` on the service's thread until it returns true, or until the host has stopped.
void Control::post(const std::function<bool()>& step)
{
    std::unique_lock<std::mutex> lock(mutex_);
    for (bool done = false; !done && !stopped_;) {
        bool called = false;
        host_.post([&, this] {
            const std::lock_guard<std::mutex> calling(mutex_);
            called = done = true;
            changed_.notify_one();
            try {
                done = step();
            } catch (const std::exception& error) {
                answer_(std::string("error: ") + error.what());
            }
        });
        changed_.wait(lock, [&] { return called || stopped_; });
    }
}

} // namespace chronal::sim
