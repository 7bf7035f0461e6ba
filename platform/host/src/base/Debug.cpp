#include "Log.h"

#include <fabric-host/DebugSink.h>
#include <fabric-host/Printable.h>
#include <nub/Debug.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bitset>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "Guarded.h"

namespace fabric::host {
namespace {

constexpr std::uint32_t hostCategory = 204;
constexpr std::uint32_t everyCategory = 0x10000; ///< `*`

/// A category's lines are enabled if their level is below its limit; 0 disables all.
std::atomic<std::uint32_t> limits[everyCategory + 1];

struct Sink
{
    std::mutex mutex;
    DebugSink call;
    std::string line; ///< keeps its memory from line to line
};

/// The sink is never destroyed, since threads may write lines until the process ends.
Sink& sink() noexcept
{
    alignas(Sink) static unsigned char place[sizeof(Sink)];
    static Sink& theSink = *new (place) Sink;
    return theSink;
}

/// A category and its limit.
using Switch = std::pair<std::uint32_t, std::uint32_t>;

/// Reads "CATEGORY:LEVEL", two 16-bit numbers.
std::optional<Switch> readSwitch(std::string_view part) noexcept
{
    const char* const start = part.data();
    const char* const end = start + part.size();
    const bool every = part.substr(0, 1) == "*";
    std::uint16_t category = 0;
    std::uint16_t level = 0;
    const auto name = every ? std::from_chars_result{start + 1, std::errc()}
                            : std::from_chars(start, end, category);
    if (name.ec != std::errc() || name.ptr == end || *name.ptr != ':')
        return std::nullopt;
    const auto rest = std::from_chars(name.ptr + 1, end, level);
    if (rest.ec != std::errc() || rest.ptr != end)
        return std::nullopt;
    return Switch(every ? everyCategory : category, level + 1U);
}

/// Calls `visit` with each entry of `text` as it is and as it was read. Does not allocate, since
/// debug lines also report a lack of memory.
template <typename Visit>
void forEachSwitch(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const std::string_view part = text.substr(0, text.find(','));
        text.remove_prefix(std::min(part.size() + 1, text.size()));
        visit(part, readSwitch(part));
    }
}

/// Ignores invalid entries. The switch of a single category overrides `*`, in any order.
void setLimits(std::string_view switches) noexcept
{
    std::bitset<everyCategory + 1> given;
    forEachSwitch(switches, [&](std::string_view, const std::optional<Switch>& read) {
        if (read) {
            limits[read->first].store(read->second, std::memory_order_relaxed);
            given.set(read->first);
        }
    });
    const std::uint32_t everywhere = given[everyCategory] ? limits[everyCategory].load() : 0;
    for (std::size_t i = 0; i < everyCategory; ++i) // keeps untouched memory untouched
        if (!given[i] && limits[i].load(std::memory_order_relaxed) != everywhere)
            limits[i].store(everywhere, std::memory_order_relaxed);
}

/// Defers thread cancellation: it unwinds the stack, which would terminate a noexcept caller.
class Uncancelled
{
public:
    Uncancelled() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~Uncancelled() { pthread_setcancelstate(before_, nullptr); }

    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

/// Applies NUB_DEBUG on the first call.
void readEnvironment() noexcept
{
    static const bool done = [] {
        const Uncancelled complaining;
        const char* const text = std::getenv("NUB_DEBUG");
        setLimits(text ? text : "");
        forEachSwitch(text ? text : "", [](std::string_view part, const auto& read) {
            const auto complain = [&] {
                std::fprintf(stderr, "NUB_DEBUG: cannot read '%s', expected CATEGORY:LEVEL\n",
                             printable(std::string(part)).c_str());
            };
            if (!read)
                callGuarded(complain, [](const char*) {}); // without memory, stay silent
        });
        return true;
    }();
    static_cast<void>(done);
}

bool wanted(std::uint32_t code) noexcept
{
    readEnvironment();
    return (code & 0xffff) < limits[code >> 16].load(std::memory_order_relaxed);
}

/// Writes to standard error unless a sink accepts the line.
void writePlainLine(std::uint32_t code, std::string_view line)
{
    Sink& target = sink();
    {
        const std::lock_guard<std::mutex> lock(target.mutex);
        const auto deliver = [&] { target.call(code, target.line.assign(line)); };
        if (target.call && callGuarded(deliver, [](const char*) {}))
            return;
    }
    while (!line.empty()) {
        const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // there is nowhere left to report it
        line.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// Escapes untrusted text in the line, such as an application's exception message. Drops the line
/// if there is no memory for that.
void writeLine(std::uint32_t code, std::string_view line)
{
    const std::string_view text = line.substr(0, line.size() - (line.back() == '\n' ? 1 : 0));
    if (std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; }))
        return writePlainLine(code, line);
    callGuarded([&] { writePlainLine(code, printable(std::string(text)) + '\n'); },
                [](const char*) {});
}

/// Writes the whole line, truncating it only if there is no memory for it. Preserves errno.
void format(std::uint32_t code, const char* form, std::va_list arguments)
{
    const Uncancelled writing;
    const int savedError = errno;
    std::va_list again;
    va_copy(again, arguments);
    std::array<char, 512> start;
    const int length = std::vsnprintf(start.data(), start.size(), form, arguments);
    if (length >= static_cast<int>(start.size())) {
        start[start.size() - 2] = '\n';
        char* whole = nullptr;
        const bool complete = ::vasprintf(&whole, form, again) == length;
        writeLine(code, complete ? std::string_view(whole, static_cast<std::size_t>(length))
                                 : std::string_view(start.data(), start.size() - 1));
        if (complete)
            std::free(whole);
    } else if (length > 0) { // it is negative for an invalid format
        writeLine(code, {start.data(), static_cast<std::size_t>(length)});
    }
    va_end(again);
    errno = savedError;
}

} // namespace

void setDebugSink(DebugSink newSink)
{
    Sink& target = sink();
    const std::lock_guard<std::mutex> lock(target.mutex);
    target.line.reserve(512);
    target.call.swap(newSink);
}

void setDebugSwitches(const std::string& switches)
{
    readEnvironment(); // a later first reading would undo this
    forEachSwitch(switches, [](std::string_view part, const auto& read) {
        if (!read)
            throw std::invalid_argument("debug switches: cannot read '" + std::string(part) +
                                        "', expected CATEGORY:LEVEL");
    });
    setLimits(switches);
}

void log(LogLevel level, const char* form, ...) noexcept
{
    const std::uint32_t code = (hostCategory << 16) | level;
    if (!wanted(code))
        return;
    std::va_list arguments;
    va_start(arguments, form);
    format(code, form, arguments);
    va_end(arguments);
}

} // namespace fabric::host

int nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk)
{
    return fabric::host::wanted(chunk->code) ? 1 : 0;
}

void nubDebugOutput0(const nubDebugChunk_t* chunk, const char* form, ...)
{
    std::va_list arguments;
    va_start(arguments, form);
    fabric::host::format(chunk->code, form, arguments);
    va_end(arguments);
}
