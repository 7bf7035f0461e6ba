#include "Journal.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <utility>

#include <fabric/Twine.h>
#include <nub/Debug.h>

namespace desk {
namespace {

thread_local Journal* journal = nullptr;

/// The platform's part of a debug chunk that has been checked.
constexpr std::uint32_t checkedFabric = 71;

/// Returns the statement of the adapter's source that covers the given line.
std::string statementAt(int number)
{
    std::ifstream source(ADAPTER_SOURCE);
    std::string statement;
    std::string line;
    while (std::getline(source, line)) {
        statement += line;
        const bool ends = line.find_first_of(";{}") != std::string::npos;
        if (--number <= 0 && ends)
            return statement;
        if (ends)
            statement.clear();
    }
    return "";
}

/// Shortens a debug line to the function and its message, if the rest is right: the source's name,
/// the line number of a statement with this message, the newline.
std::string shortened(const std::string& line, std::string format)
{
    int number = 0;
    int start = 0;
    std::sscanf(line.c_str(), "api-chronal-service-adapter:%d:%n", &number, &start);
    const std::string prefix = "%s:%d:%s(): ";
    if (start == 0 || line.back() != '\n' || format.compare(0, prefix.size(), prefix) != 0)
        return "malformed " + line;
    format = format.substr(prefix.size(), format.size() - prefix.size() - 1);
    if (statementAt(number).find(format + "\\n\"") == std::string::npos)
        return "wrong line number " + line;
    const auto from = static_cast<std::size_t>(start);
    return line.substr(from, line.size() - from - 1);
}

template <typename Function>
Function* original(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

Journal::Journal(pthread_mutex_t* mutex) : mutex_(mutex) { journal = this; }

Journal::~Journal() { journal = nullptr; }

void Journal::note(const std::string& call)
{
    if (!journal)
        return;
    const bool locked = journal->mutex_ && pthread_mutex_trylock(journal->mutex_) != 0;
    if (journal->mutex_ && !locked)
        pthread_mutex_unlock(journal->mutex_);
    journal->notes_.push_back(locked ? call + " (locked)" : call);
    if (journal->onNote)
        journal->onNote(call);
}

std::vector<std::string> Journal::take() { return std::exchange(notes_, {}); }

std::string text(const nubOsalTime_struct& time)
{
    return '{' + std::to_string(time.seconds) + ' ' + std::to_string(time.microseconds) + '}';
}

std::string text(const fabric::MsgMeta& identity)
{
    std::ostringstream out;
    out << identity.resourceId << ' ' << identity.operationId << ' ' << int(identity.kind) << " of "
        << identity.serviceId;
    return out.str();
}

std::string releaseNote(std::uint32_t word, const fabric::MsgMeta& release,
                        const nubEndianTable_t* table, const void* payload)
{
    std::ostringstream out;
    out << "release " << word << ' ' << text(release) << ' ' << table << ' ' << payload;
    return out.str();
}

} // namespace desk

using desk::journal;
using desk::Journal;
using desk::original;
using desk::text;

#define REPLACEMENT __attribute__((visibility("default")))

extern "C" {

// The adapter's empty callbacks, by their mangled names without the class. These definitions take
// precedence, so the virtual tables of the library and of the test's adapters refer to them.
#define DEFAULT_CALLBACK(name)                                                                     \
    REPLACEMENT void _ZN7chronal11UserAdapter##name() { Journal::note("default " #name); }
// clang-format off
DEFAULT_CALLBACK(13onReplyResultERKN6fabric6MsgIdsEi)
DEFAULT_CALLBACK(13onReplyTimeAtERKN6fabric6MsgIdsERK18nubOsalTime_structS7_)
DEFAULT_CALLBACK(16onReplyTimeRefAtERKN6fabric6MsgIdsERK18nubOsalTime_structS7_RKNS_15ReferenceTimeIdE)
DEFAULT_CALLBACK(17onNotifyDSTChangeERKN6fabric6MsgIdsEi)
DEFAULT_CALLBACK(18onReplyTimeRefInfoERKN6fabric6MsgIdsERK18nubOsalTime_structS7_S7_RKNS_15ReferenceTimeIdEbi)
DEFAULT_CALLBACK(19onNotifyCurrentTimeERKN6fabric6MsgIdsERK18nubOsalTime_structS7_S7_ii)
DEFAULT_CALLBACK(19onReplyTimezoneInfoERKN6fabric6MsgIdsERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERK18nubOsalTime_struct)
DEFAULT_CALLBACK(21onNotifyDtvTimeChangeERKN6fabric6MsgIdsERK18nubOsalTime_struct)
DEFAULT_CALLBACK(22onNotifyTimezoneChangeERKN6fabric6MsgIdsERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERK18nubOsalTime_struct)
DEFAULT_CALLBACK(23onNotifyDeviationChangeERKN6fabric6MsgIdsERK18nubOsalTime_structS7_S7_)
DEFAULT_CALLBACK(23onReplyUtcDeviationInfoERKN6fabric6MsgIdsERK18nubOsalTime_structS7_S7_RKNS_15ReferenceTimeIdE)
DEFAULT_CALLBACK(27onReplyDateTimeSettingsInfoERKN6fabric6MsgIdsERK18nubOsalTime_structS7_S7_S7_S7_RKiRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERKbSJ_SJ_)
// clang-format on

REPLACEMENT void tzset() noexcept { Journal::note("tzset"); }

REPLACEMENT char** backtrace_symbols(void* const* addresses, int count) noexcept
{
    if (journal && !journal->symbolsKnown)
        return nullptr;
    return original<char**(void* const*, int)>("backtrace_symbols")(addresses, count);
}

void fabricTwineDeserReleaseMessage(std::uint32_t word, const fabric::MsgMeta* release,
                                    const nubEndianTable_t* table, void* payload)
{
    Journal::note(desk::releaseNote(word, *release, table, payload));
    original<decltype(fabricTwineDeserReleaseMessage)>("fabricTwineDeserReleaseMessage")(
        word, release, table, payload);
}

void nubOsalNormalizeTime(nubOsalTime_struct* time)
{
    Journal::note("normalize " + text(*time));
    original<decltype(nubOsalNormalizeTime)>("nubOsalNormalizeTime")(time);
}

int nubOsalCompareTime(const nubOsalTime_struct* left, const nubOsalTime_struct* right)
{
    Journal::note("compare " + text(*left) + " with " + text(*right));
    if (journal && journal->equalToMarker != 0)
        return right->seconds == journal->equalToMarker ? 0 : 1;
    return original<decltype(nubOsalCompareTime)>("nubOsalCompareTime")(left, right);
}

int nubDebugCheckLevelGetFabricAndChunk(nubDebugChunk_t* chunk)
{
    if (chunk->fabric != 0 || chunk->chunk != 0)
        Journal::note("a chunk that is not {code, 0, 0}");
    if (!journal || !journal->linesWanted)
        return 0;
    chunk->fabric = desk::checkedFabric;
    return -1; // any number but 0 stands for yes
}

void nubDebugOutput0(const nubDebugChunk_t* chunk, const char* format, ...)
{
    char line[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    std::ostringstream out;
    out << (chunk->fabric == desk::checkedFabric ? "" : "unchecked ") << std::hex << chunk->code
        << ' ' << desk::shortened(line, format);
    Journal::note(out.str());
}
}
