#ifndef CHRONAL_SIM_LINE_LOG_H
#define CHRONAL_SIM_LINE_LOG_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace chronal::sim {

/// Lines for a reader who must not hold up the service: those that there is no room for are left
/// out and counted. For one thread.
class LineLog
{
public:
    using Complain = std::function<void(const std::string& why)>;

    /// `failed` is called once, when a line cannot be written at all. That the reader has left is
    /// no reason to complain.
    LineLog(int descriptor, Complain failed);

    /// Appends a line. One that there is no memory for is left out, too.
    void write(std::string_view line) noexcept;

    /// Writes the last line, and waits a moment for a reader who is late. Returns how many lines
    /// nobody got, without having been told.
    std::size_t finish(std::string_view line) noexcept;

private:
    void append(std::string_view line);
    bool flush(int wait);
    void lose(int error);

    const int output;
    const Complain complain;
    bool complained = false;
    std::string unwritten;    ///< of the last line
    std::size_t underWay = 0; ///< lines that `unwritten` holds or tells of
    std::size_t leftOut = 0;  ///< lines since then
    bool insideLine = false;  ///< what has been written ends there
};

} // namespace chronal::sim

#endif
