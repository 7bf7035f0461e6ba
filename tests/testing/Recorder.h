#ifndef TESTS_TESTING_RECORDER_H
#define TESTS_TESTING_RECORDER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <chronal-testing/Command.h>
#include <chronal/UserAdapter.h>

/// Notes some of the reports and callbacks, whatever thread makes them.
class Recorder : public chronal::UserAdapter
{
public:
    using UserAdapter::UserAdapter;
    using Ids = fabric::MsgIds;
    using Time = nubOsalTime_struct;

    void onServiceConnected() override
    {
        UserAdapter::onServiceConnected();
        note("up");
    }
    void onServiceConnectionFailed(int reason) override { note("failed ", reason); }
    void onServiceDisconnected(int reason) override
    {
        UserAdapter::onServiceDisconnected(reason);
        note("down ", reason);
    }
    void onReplyResult(const Ids&, int result) override { note("result ", result); }
    void onReplyTimezoneInfo(const Ids&, const std::string& zone, const Time& time) override
    {
        note("zone ", zone, " ", chronal::testing::Time(time));
    }
    void onNotifyTimezoneChange(const Ids&, const std::string& zone, const Time&) override
    {
        note("new zone ", zone);
    }
    void onNotifyDSTChange(const Ids&, int dst) override { note("dst ", dst); }
    void onNotifyDeviationChange(const Ids&, const Time& deviation, const Time&,
                                 const Time&) override
    {
        note("deviation ", chronal::testing::Time(deviation));
    }
    void onNotifyCurrentTime(const Ids&, const Time&, const Time& utc, const Time&, int,
                             int) override
    {
        note("tick ", chronal::testing::Time(utc));
    }

    /// Returns what was noted since the last call.
    std::vector<std::string> notes()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(notes_, {});
    }

    /// The same, once a note that begins with `last` is among it.
    std::vector<std::string> notesUpTo(const std::string& last)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        const auto isThere = [&] {
            for (const std::string& note : notes_)
                if (note.find(last) == 0)
                    return true;
            return false;
        };
        changed_.wait_for(lock, std::chrono::seconds(20), isThere);
        return std::exchange(notes_, {});
    }

    std::function<void()> onNote; ///< called for each note, by the thread that makes it

private:
    template <class... Parts>
    void note(const Parts&... parts)
    {
        std::ostringstream line;
        (void)(line << ... << parts);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            notes_.push_back(line.str());
            changed_.notify_one();
        }
        if (onNote)
            onNote();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> notes_;
};

#endif
