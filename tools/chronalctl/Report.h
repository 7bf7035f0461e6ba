#ifndef CHRONALCTL_REPORT_H
#define CHRONALCTL_REPORT_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <nub/Osal.h>

namespace chronal::ctl {

struct Time
{
    nubOsalTime_struct value;
};

struct Span
{
    nubOsalTime_struct value;
};

struct Field
{
    const char* name; ///< in lower case, words separated by underscores
    std::variant<bool, std::int64_t, std::string, Time, Span> value;
};

/// An answer, a notification or a change of the connection: its values by name, in reading order.
struct Report
{
    const char* kind; ///< "answer", "notification" or "connection"
    const char* name;
    std::vector<Field> fields;
    int result = 0; ///< of an answer: negative when the service refused the command

    const Field& field(const std::string& wanted) const
    {
        for (const Field& candidate : fields)
            if (candidate.name == wanted)
                return candidate;
        throw std::logic_error("no " + wanted + " in " + name);
    }
};

} // namespace chronal::ctl

#endif
