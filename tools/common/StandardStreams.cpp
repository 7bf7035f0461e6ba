#include "StandardStreams.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include <sys/ioctl.h>

namespace chronal::tools {

namespace {

std::size_t terminalWidth()
{
    const char* const chosen = std::getenv("COLUMNS");
    int columns = chosen ? std::atoi(chosen) : 0;
    winsize size = {};
    if (columns <= 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
        columns = size.ws_col;
    // A serial console knows no width. The least one leaves room for indented text.
    return static_cast<std::size_t>(columns <= 0 ? 80 : std::max(columns, 20));
}

} // namespace

std::string fitted(const std::string& text)
{
    if (!isatty(STDOUT_FILENO))
        return text;
    const std::size_t width = terminalWidth();
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line); result.append(line).append("\n")) {
        const std::size_t start = line.find_first_not_of(' ');
        const std::size_t second = line.find_first_not_of(' ', line.find("  ", start));
        const std::string indent(std::min(second == std::string::npos ? start : second, width / 2),
                                 ' ');
        while (line.size() > width) { // no byte takes more than a column
            std::size_t end = line.rfind(' ', width);
            if (end == std::string::npos || line.find_first_not_of(' ') > end)
                for (end = width; (line[end] & 0xC0) == 0x80;)
                    --end; // to the beginning of a character
            result += line.substr(0, line.find_last_not_of(' ', end - 1) + 1) + '\n';
            line.replace(0, line.find_first_not_of(' ', end), indent);
        }
    }
    return result;
}

} // namespace chronal::tools
