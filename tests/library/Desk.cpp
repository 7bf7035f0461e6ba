#include "Desk.h"
#include "CommandRows.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <regex>

#include <fabric/Twine.h>
#include <nub/Debug.h>

namespace {

/// The platform's part of a debug chunk that has been checked.
constexpr std::uint32_t checkedFabric = 71;

/// Shortens a debug line to the function and its message, if the rest is right: the source's name,
/// the line number of a statement with this format, the newline.
std::string shortened(const std::string& line, const std::string& format)
{
    std::smatch parts;
    if (!std::regex_match(line, parts, std::regex("api-chronal-service-adapter:(\\d+):(.*)\n")))
        return "malformed " + line;
    std::ifstream file(ADAPTER_SOURCE);
    const std::string source(std::istreambuf_iterator<char>(file), {});
    std::size_t at = 0;
    for (int number = std::stoi(parts[1]); number > 1; --number)
        at = source.find('\n', at) + 1;
    const std::size_t start = source.find_last_of(";{}", at);
    const std::string statement = source.substr(start, source.find_first_of(";{}", at) - start);
    const bool found = statement.find(format.substr(0, format.size() - 1)) != std::string::npos;
    return (found ? "" : "wrong line number ") + parts[2].str();
}

} // namespace

#define ORIGINAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define REPLACEMENT __attribute__((visibility("default")))

extern "C" {

// One of the adapter's empty callbacks, by its mangled name. This definition takes precedence, so
// the virtual tables of the library and of the test's adapters refer to it.
REPLACEMENT void _ZN7chronal11UserAdapter13onReplyResultERKN6fabric6MsgIdsEi()
{
    Desk::note("default");
}

REPLACEMENT void tzset() noexcept { Desk::note("tzset"); }

REPLACEMENT char** backtrace_symbols(void* const* addresses, int count) noexcept
{
    if (Desk::current && !Desk::current->symbolsKnown)
        return nullptr;
    return ORIGINAL(backtrace_symbols)(addresses, count);
}

void fabricTwineDeserReleaseMessage(std::uint32_t word, const fabric::MsgMeta* release,
                                    const nubEndianTable_t* table, void* payload)
{
    Desk::note(words("release", word, release->serviceId, release->resourceId, release->operationId,
                     int(release->kind), table, payload));
    ORIGINAL(fabricTwineDeserReleaseMessage)(word, release, table, payload);
}

void nubOsalNormalizeTime(nubOsalTime_struct* time)
{
    Desk::note(words("normalize", *time));
    ORIGINAL(nubOsalNormalizeTime)(time);
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    Desk::note(words("compare", *left, "with", *right));
    if (Desk::current && Desk::current->equalToMarker != 0)
        return right->seconds == Desk::current->equalToMarker ? 0 : 1;
    return ORIGINAL(nubOsalCompareTime)(left, right);
}

int nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk)
{
    if (chunk->fabric != 0 || chunk->chunk != 0)
        Desk::note("a chunk that is not {code, 0, 0}");
    chunk->fabric = checkedFabric;
    return Desk::current && Desk::current->linesWanted ? -1 : 0; // any number but 0 stands for yes
}

void nubDebugOutput0(const nubDebugChunk_t* chunk, const char* format, ...)
{
    char line[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    const bool checked = chunk->fabric == checkedFabric;
    Desk::note(words(checked ? "line" : "unchecked line", chunk->code, shortened(line, format)));
}
}

std::ostream& operator<<(std::ostream& out, const nubOsalTime_struct& time)
{
    return out << '{' << time.seconds << ' ' << time.microseconds << '}';
}

std::string shown(std::string characters)
{
    std::replace(characters.begin(), characters.end(), '\0', '.');
    return std::to_string(characters.size()) + ':' + characters;
}

std::string shown(const fabric::SerializableMessageData& data)
{
    Dl_info table = {};
    dladdr(data.endianTable, &table);
    const std::regex common("__nub_EndianTable_chronal|_t$");
    std::string values = words(data.releaseWord, std::regex_replace(table.dli_sname, common, ""));
    std::string bytes(static_cast<const char*>(data.payload), data.endianTable->size);
    for (const nubEndianEntry_t* entry = data.endianTable->entries; entry->code != 0; ++entry) {
        const auto take = [&](auto value) {
            char* const member = &bytes[entry->code & 0xffff];
            std::memcpy(&value, member, sizeof(value));
            std::memset(member, 0, sizeof(value));
            return value;
        };
        if (entry->code >> 16 == nubEndianWord32) {
            values += words("", take(0));
        } else if (entry->argument.table == &__nub_EndianTable_nubOsalTime_t) {
            const CallersTime time = take(CallersTime());
            const bool copied = time.words.padding == (time.words.seconds ? 0xA5A5A5A5U : 0);
            values += words("", time.time) + (copied ? "" : " with other padding");
        } else {
            const nubDeserString_t text = take(nubDeserString_t());
            values += text.chars ? words("", text.length, shown({text.chars, text.length + 1U}))
                                 : " null";
        }
    }
    return values + (bytes.find_first_not_of('\0') == std::string::npos ? "" : " and padding");
}

void Desk::note(const std::string& call)
{
    if (!current)
        return;
    const bool locked = pthread_mutex_trylock(&current->mutex) != 0;
    if (!locked)
        pthread_mutex_unlock(&current->mutex);
    current->notes += call + (locked ? " (locked)\n" : "\n");
    if (current->onNote)
        current->onNote(call);
}
