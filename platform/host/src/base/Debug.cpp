#include "Log.h"

#include <fabric-host/DebugSink.h>
#include <fabric-host/Printable.h>
#include <nub/Debug.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "Guarded.h"

namespace fabric::host {
namespace {

constexpr std::uint32_t hostCategory = 204;
constexpr std::size_t categories = 0x10000;

/// A category's lines are enabled if their level is below its limit; 0 disables all.
std::atomic<std::uint32_t> limits[categories];

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

/// Reads a decimal 16-bit number. Returns false if `text` is not one.
bool readNumber(std::string_view text, std::uint32_t& number) noexcept
{
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && number <= 0xffff;
}

/// Calls `take` with the category, which may be `*`, and the limit of each switch in `text`, and
/// `unreadable` with each invalid entry. Does not allocate, since debug lines also report a lack
/// of memory.
template <typename Take, typename Unreadable>
void forEachSwitch(std::string_view text, Take take, Unreadable unreadable)
{
    while (!text.empty()) {
        const std::string_view part = text.substr(0, text.find(','));
        text.remove_prefix(std::min(part.size() + 1, text.size()));
        const std::string_view category = part.substr(0, part.find(':'));
        std::uint32_t level = 0;
        std::uint32_t ignored = 0;
        if (category.size() < part.size() && readNumber(part.substr(category.size() + 1), level) &&
            (category == "*" || readNumber(category, ignored)))
            take(category, level + 1);
        else
            unreadable(part);
    }
}

/// Lets the switch of a single category override `*`, in any order.
template <typename Unreadable>
void setLimits(std::string_view switches, Unreadable unreadable)
{
    std::uint32_t everywhere = 0;
    forEachSwitch(
        switches,
        [&](std::string_view category, std::uint32_t limit) {
            if (category == "*")
                everywhere = limit;
        },
        unreadable);
    for (std::atomic<std::uint32_t>& each : limits)
        if (each.load(std::memory_order_relaxed) != everywhere) // keeps untouched memory untouched
            each.store(everywhere, std::memory_order_relaxed);
    forEachSwitch(
        switches,
        [](std::string_view category, std::uint32_t limit) {
            std::uint32_t number = 0;
            if (readNumber(category, number))
                limits[number].store(limit, std::memory_order_relaxed);
        },
        [](std::string_view) {});
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
        setLimits(text ? text : "", [](std::string_view part) {
            const auto complain = [&] {
                std::fprintf(stderr, "NUB_DEBUG: cannot read '%s', expected CATEGORY:LEVEL\n",
                             printable(std::string(part)).c_str());
            };
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

/// Returns true if a sink accepted the line.
bool writeToSink(std::uint32_t code, std::string_view line)
{
    Sink& target = sink();
    const std::lock_guard<std::mutex> lock(target.mutex);
    return target.call &&
           callGuarded([&] { target.call(code, target.line.assign(line)); }, [](const char*) {});
}

void writePlainLine(std::uint32_t code, std::string_view line)
{
    if (writeToSink(code, line))
        return;
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
    std::array<char, 512> shortLine;
    const int needed = std::vsnprintf(shortLine.data(), shortLine.size(), form, arguments);
    const std::size_t length =
        static_cast<std::size_t>(std::max(needed, 0)); // negative for an invalid format
    if (length >= shortLine.size()) {
        if (char* const longLine = static_cast<char*>(std::malloc(length + 1))) {
            std::vsnprintf(longLine, length + 1, form, again);
            writeLine(code, {longLine, length});
            std::free(longLine);
        } else {
            shortLine[shortLine.size() - 2] = '\n';
            writeLine(code, {shortLine.data(), shortLine.size() - 1});
        }
    } else if (length > 0) {
        writeLine(code, {shortLine.data(), length});
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
    setLimits(switches, [](std::string_view part) {
        throw std::invalid_argument("debug switches: cannot read '" + std::string(part) +
                                    "', expected CATEGORY:LEVEL");
    });
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
