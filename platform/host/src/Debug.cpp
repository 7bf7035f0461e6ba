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
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Contained.h"

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
bool readNumber(const std::string& text, std::uint32_t& number)
{
    const bool digits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (text.empty() || !digits || text.size() > 5)
        return false;
    number = static_cast<std::uint32_t>(std::stoul(text));
    return number <= std::numeric_limits<std::uint16_t>::max();
}

bool readSwitch(const std::string& part, Switch& result)
{
    const std::size_t colon = part.find(':');
    if (colon == std::string::npos)
        return false;
    const std::string category = part.substr(0, colon);
    std::uint32_t level = 0;
    if (!readNumber(part.substr(colon + 1), level))
        return false;
    result = {category == "*", 0, level + 1};
    return result.everyCategory || readNumber(category, result.category);
}

/// Takes `text` apart; a part that cannot be read goes to `unreadable`.
template <typename Unreadable>
std::vector<Switch> readSwitches(const std::string& text, Unreadable unreadable)
{
    std::vector<Switch> switches;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string part = text.substr(begin, end - begin);
        Switch read = {};
        if (readSwitch(part, read))
            switches.push_back(read);
        else
            unreadable(part);
        begin = end + 1;
    }
    return switches;
}

/// The switches of single categories count more than `*`, wherever they stand.
void apply(const std::vector<Switch>& switches) noexcept
{
    std::uint32_t everywhere = 0;
    for (const Switch& each : switches)
        everywhere = each.everyCategory ? each.limit : everywhere;
    for (std::atomic<std::uint32_t>& limit : limits)
        limit.store(everywhere, std::memory_order_relaxed);
    for (const Switch& each : switches)
        if (!each.everyCategory)
            limits[each.category].store(each.limit, std::memory_order_relaxed);
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
        if (text && *text)
            apply(readSwitches(text, [](const std::string& part) {
                std::fprintf(stderr, "NUB_DEBUG: cannot read '%s', CATEGORY:LEVEL expected\n",
                             printable(part).c_str());
            }));
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
           contained([&] { target.call(code, std::string(line, length)); }, [](const char*) {});
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
    contained(
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
    apply(readSwitches(switches, [](const std::string& part) {
        throw std::invalid_argument("debug switches: cannot read '" + part +
                                    "', CATEGORY:LEVEL expected");
    }));
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
