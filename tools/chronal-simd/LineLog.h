#ifndef CHRONAL_SIM_LINE_LOG_H
#define CHRONAL_SIM_LINE_LOG_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace chronal::sim {

/// Writes lines without waiting for their reader. Lines that find no room are left out; the next
/// one that is written says how many. For one thread.
class LineLog
{
public:
    using Complain = std::function<void(const std::string& reason)>;

    /// `complain` is called once, when a line cannot be written. A reader that has gone away is not
    /// a reason to complain.
    LineLog(int descriptor, Complain complain);

    /// Appends a line; one for which there is no memory is left out, too. A newline at its end is
    /// not required.
    void write(std::string_view line) noexcept;

    /// Writes the last line, and waits a moment for a slow reader. Returns the number of lines that
    /// were lost without the reader being told.
    std::size_t finish(std::string_view line) noexcept;

private:
    void append(std::string_view line);
    bool flush(int timeout);
    void drop(int error);

    const int output_;
    const Complain complain_;
    bool complained_ = false;
    std::string pending_;     ///< the part of the current line that is still to be written
    bool insideLine_ = false; ///< the output ends in the middle of a line
    // Lines are numbered from 1.
    std::size_t last_ = 0;    ///< the last line that write() got
    std::size_t current_ = 0; ///< the line that is being written
    std::size_t settled_ = 0; ///< all lines up to this one were written or reported as left out
};

} // namespace chronal::sim

#endif
