#ifndef CHRONAL_SIM_CONTROL_H
#define CHRONAL_SIM_CONTROL_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fabric-host/ServiceHost.h>

#include "Clock.h"
#include "FaultInjector.h"

namespace chronal::sim {

/// Returns the words with their arguments.
std::string controlWords();

/// Reads the name of a command, or its short form, such as "timezone-set" for cmdTimezoneSet.
/// Throws std::invalid_argument that says what was wrong and what is expected, like parseTime().
std::string parseCommand(const std::string& text);

Utc parseTime(const std::string& text);

/// Reads words from standard input, a line each, and has the service obey them. Each line is
/// answered with one line: "ok", with the service's time if the word is about time, or "error: "
/// and what was wrong.
class Control
{
public:
    /// Everything must outlive this object. `answer` is called on the service's thread.
    Control(fabric::host::ServiceHost& host, FaultInjector& injector, SettableClock& clock,
            std::function<void(const std::string& line)> answer);

    /// Call it after the host has stopped.
    ~Control();

    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

private:
    void read(std::string& input);
    void answer(const std::string& line) noexcept;
    void waitForRoom() const;
    void obey(const std::vector<std::string>& parts);
    void post(const std::function<bool()>& step);

    fabric::host::ServiceHost& host_;
    FaultInjector& injector_;
    SettableClock& clock_;
    const double speed_; // of the running clock
    const std::function<void(const std::string& line)> answer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopped_ = false; // guarded by mutex_
    int ended_[2];         // a pipe; closing the second end makes the thread return
    std::thread thread_;   // last: it uses everything above
};

} // namespace chronal::sim

#endif
