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
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "Guarded.h"

namespace fabric {
namespace host {
namespace {

constexpr std::uint32_t hostCategory = 204;
constexpr std::size_t categories = 0x10000;

/// One word for each category: lines of a lower level are wanted. So 0 is off, and a check needs
/// one load.
std::atomic<std::uint32_t> limits[categories];

struct Switch
{
    bool everyCategory;
    std::uint32_t category;
    std::uint32_t limit;
};

struct Sink
{
    std::mutex mutex;
    DebugSink call;
};

/// Never destroyed, since threads may write lines until the process ends.
Sink& sink()
{
    static Sink& theSink = *new Sink;
    return theSink;
}

/// Reads a decimal number of 16 bits.
bool readNumber(std::string_view text, std::uint32_t& number) noexcept
{
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && number <= 0xffff;
}

bool readSwitch(std::string_view part, Switch& result) noexcept
{
    const std::size_t colon = part.find(':');
    std::uint32_t level = 0;
    if (colon == std::string_view::npos || !readNumber(part.substr(colon + 1), level))
        return false;
    const std::string_view category = part.substr(0, colon);
    result = {category == "*", 0, level + 1};
    return result.everyCategory || readNumber(category, result.category);
}

/// Takes `text` apart, without memory: debug lines are asked for where none may be had. Calls
/// `take` with each switch, and `unreadable` with a part that is not one.
template <typename Take, typename Unreadable>
void forEachSwitch(std::string_view text, Take take, Unreadable unreadable)
{
    while (!text.empty()) {
        const std::string_view part = text.substr(0, text.find(','));
        text.remove_prefix(std::min(part.size() + 1, text.size()));
        Switch read = {};
        if (readSwitch(part, read))
            take(read);
        else
            unreadable(part);
    }
}

/// The switches of single categories count more than `*`, wherever they stand; what cannot be read
/// is left out.
void apply(std::string_view switches) noexcept
{
    const auto ignore = [](std::string_view) {};
    std::uint32_t everywhere = 0;
    forEachSwitch(
        switches,
        [&](const Switch& each) { everywhere = each.everyCategory ? each.limit : everywhere; },
        ignore);
    for (std::atomic<std::uint32_t>& limit : limits)
        limit.store(everywhere, std::memory_order_relaxed);
    forEachSwitch(
        switches,
        [](const Switch& each) {
            if (!each.everyCategory)
                limits[each.category].store(each.limit, std::memory_order_relaxed);
        },
        ignore);
}

/// Keeps a thread that is being cancelled from being so inside: who writes a line may be noexcept.
class Uncancelled
{
public:
    Uncancelled() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~Uncancelled() { pthread_setcancelstate(before, nullptr); }

    Uncancelled(const Uncancelled&) = delete;
    Uncancelled& operator=(const Uncancelled&) = delete;

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

/// Reads NUB_DEBUG, once.
void readEnvironment() noexcept
{
    static const bool done = [] {
        const Uncancelled complaining;
        const char* const text = std::getenv("NUB_DEBUG");
        if (!text || !*text)
            return true;
        apply(text);
        forEachSwitch(
            text, [](const Switch&) {},
            [](std::string_view part) {
                callGuarded(
                    [&] {
                        std::fprintf(stderr,
                                     "NUB_DEBUG: cannot read '%s', CATEGORY:LEVEL expected\n",
                                     printable(std::string(part)).c_str());
                    },
                    [](const char*) {}); // without memory to show it, it is ignored in silence
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

/// True when a sink has taken the line.
bool writeToSink(std::uint32_t code, const char* line, std::size_t length)
{
    Sink& target = sink();
    const std::lock_guard<std::mutex> lock(target.mutex);
    return target.call &&
           callGuarded([&] { target.call(code, std::string(line, length)); }, [](const char*) {});
}

void writePlainLine(std::uint32_t code, const char* line, std::size_t length)
{
    if (writeToSink(code, line, length))
        return;
    while (length > 0) {
        const ssize_t written = ::write(STDERR_FILENO, line, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // there is nowhere left to complain
        line += written;
        length -= static_cast<std::size_t>(written);
    }
}

/// A line may hold foreign text, such as that of an application's exception. Without memory to make
/// that printable, the line is left out.
void writeLine(std::uint32_t code, const char* line, std::size_t length)
{
    const char* const end = line + length - (line[length - 1] == '\n' ? 1 : 0);
    if (std::all_of(line, end, [](char c) { return c >= ' ' && c <= '~'; }))
        return writePlainLine(code, line, length);
    callGuarded(
        [&] {
            const std::string shown = printable(std::string(line, end)) + '\n';
            writePlainLine(code, shown.data(), shown.size());
        },
        [](const char*) {});
}

/// The line in full, whatever its length; cut only if there is no memory for it. `again` is a
/// second list of the same arguments, for a line that turns out to be long.
void format(std::uint32_t code, const char* form, std::va_list arguments, std::va_list again)
{
    const Uncancelled writing;
    std::array<char, 512> shortLine;
    const int needed = std::vsnprintf(shortLine.data(), shortLine.size(), form, arguments);
    if (needed <= 0)
        return; // nothing to write, or no valid format
    const std::size_t length = static_cast<std::size_t>(needed);
    if (length < shortLine.size()) {
        writeLine(code, shortLine.data(), length);
    } else if (char* const longLine = static_cast<char*>(std::malloc(length + 1))) {
        std::vsnprintf(longLine, length + 1, form, again);
        writeLine(code, longLine, length);
        std::free(longLine);
    } else {
        shortLine[shortLine.size() - 2] = '\n';
        writeLine(code, shortLine.data(), shortLine.size() - 1);
    }
}

} // namespace

void setDebugSink(DebugSink newSink)
{
    Sink& target = sink();
    const std::lock_guard<std::mutex> lock(target.mutex);
    target.call.swap(newSink);
}

void setDebugSwitches(const std::string& switches)
{
    readEnvironment(); // which must not come later and undo this
    forEachSwitch(
        switches, [](const Switch&) {},
        [](std::string_view part) {
            throw std::invalid_argument("debug switches: cannot read '" + std::string(part) +
                                        "', CATEGORY:LEVEL expected");
        });
    apply(switches);
}

void log(LogLevel level, const char* form, ...) noexcept
{
    const std::uint32_t code = (hostCategory << 16) | level;
    if (!wanted(code))
        return;
    const int savedError = errno;
    std::va_list arguments;
    std::va_list again;
    va_start(arguments, form);
    va_copy(again, arguments);
    format(code, form, arguments, again);
    va_end(again);
    va_end(arguments);
    errno = savedError;
}

} // namespace host
} // namespace fabric

int nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk)
{
    return fabric::host::wanted(chunk->code) ? 1 : 0;
}

void nubDebugOutput0(const nubDebugChunk_t* chunk, const char* form, ...)
{
    const int savedError = errno;
    std::va_list arguments;
    std::va_list again;
    va_start(arguments, form);
    va_copy(again, arguments);
    fabric::host::format(chunk->code, form, arguments, again);
    va_end(again);
    va_end(arguments);
    errno = savedError;
}
