// One scenario, on a desk and with chronal-simd, which has to look the same to an application.

#include <chronal-testing/Desk.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>

#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chronal-sim/Start.h>
#include <gmock/gmock.h>

#include "Recorder.h"

using namespace chronal::testing;

namespace {

/// One step: a word of chronal-simd and the same on a desk, or a command.
struct Step
{
    const char* word;
    std::function<void(Desk& desk)> call;
    std::function<void(Recorder& application)> command;
    const char* last; ///< the beginning of the last thing that it causes
};

std::optional<Scope> fault;

const Step steps[] = {
    {nullptr, {}, {}, "up"},
    {nullptr,
     {},
     [](Recorder& to) {
         fabric::MsgIds ids;
         to.cmdTimezoneFetch(ids);
     },
     "zone"},
    {"advance 1s", [](Desk& desk) { desk.advance(std::chrono::seconds(1)); }, {}, "dst"},
    {nullptr,
     {},
     [](Recorder& to) {
         fabric::MsgIds ids;
         to.cmdRefTimeSubscribe(ids, chronal::referenceTimeRtc);
     },
     "result"},
    {"advance 3500ms",
     [](Desk& desk) { desk.advance(std::chrono::milliseconds(3500)); },
     {},
     "tick '2026-10-25 01:00:03"},
    {"refuse timezone-set -13",
     [](Desk& desk) { fault.emplace(desk.refuse("cmdTimezoneSet", -13)); },
     [](Recorder& to) {
         fabric::MsgIds ids;
         to.cmdTimezoneSet(ids, "Asia/Tokyo");
     },
     "result"},
    {"obey timezone-set", [](Desk&) { fault.reset(); },
     [](Recorder& to) {
         fabric::MsgIds ids;
         to.cmdTimezoneSet(ids, "Asia/Tokyo");
     },
     "deviation"},
    {"time 2030-01-01T00:00:00Z", [](Desk& desk) { desk.setTime(utc("2030-01-01T00:00:00Z")); },
     [](Recorder& to) {
         fabric::MsgIds ids;
         to.cmdTimezoneFetch(ids);
     },
     "zone"},
    {"notify dst 7",
     [](Desk& desk) { desk.notify(chronal::sim::notifyDSTChange, {7}); },
     {},
     "dst"},
    {"drop", [](Desk& desk) { desk.drop(ECONNRESET); }, {}, "up"},
};

using Notes = std::vector<std::vector<std::string>>;

Notes onDesk()
{
    Desk desk("Europe/Berlin", utc("2026-10-25T00:59:59Z"));
    Recorder application(desk.application(), desk.component());
    application.setServiceInterface(&desk.service());
    const Scope attached = desk.attach(application);
    Notes notes;
    for (const Step& step : steps) {
        if (step.call)
            step.call(desk);
        if (step.command)
            step.command(application);
        desk.runUntilIdle();
        notes.push_back(application.notesUpTo(step.last));
    }
    return notes;
}

/// chronal-simd with its standard input and output.
class Service
{
public:
    explicit Service(const std::string& socket)
    {
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0)
            std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, in[1]);
        const char* const arguments[] = {
            CHRONAL_SIMD, "--control",     "--speed",      "0",
            "--zone",     "Europe/Berlin", "--start-time", "2026-10-25T00:59:59Z",
            "--socket",   socket.c_str(),  nullptr};
        EXPECT_EQ(posix_spawn(&process_, CHRONAL_SIMD, &actions, nullptr,
                              const_cast<char**>(arguments), environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        input_ = fdopen(in[1], "w");
        output_ = fdopen(out[0], "r");
        answer(); // it listens
    }
    ~Service()
    {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
        if (input_)
            std::fclose(input_);
        std::fclose(output_);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    std::string obey(const char* word)
    {
        std::fprintf(input_, "%s\n", word);
        std::fflush(input_);
        return answer();
    }

    /// Closes standard input afterwards.
    void writeAll(const std::string& lines)
    {
        std::fputs(lines.c_str(), input_);
        std::fclose(std::exchange(input_, nullptr));
    }

    void waitUntilFull()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        int waiting = 0;
        while (waiting < 60000 && std::chrono::steady_clock::now() < end)
            ioctl(fileno(output_), FIONREAD, &waiting);
    }

    std::string answer()
    {
        char line[200] = "";
        return std::fgets(line, sizeof(line), output_) ? line : "nothing";
    }

private:
    pid_t process_ = 0;
    std::FILE* input_;
    std::FILE* output_;
};

Notes overASocket()
{
    const std::string socket = ::testing::TempDir() + "desk-" + std::to_string(getpid());
    Service service(socket);
    const auto session = chronal::sim::start({socket});
    Recorder application(session->application(), session->component());
    application.setServiceInterface(&session->service());
    const fabric::host::Attachment attached(*session, application);
    session->connect();
    Notes notes;
    for (const Step& step : steps) {
        if (step.word) {
            EXPECT_EQ(service.obey(step.word).substr(0, 2), "ok") << step.word;
        }
        if (step.command)
            step.command(application);
        notes.push_back(application.notesUpTo(step.last));
    }
    return notes;
}

TEST(TwoProcesses, LookToAnApplicationLikeADesk)
{
    const Notes desk = onDesk();
    EXPECT_EQ(overASocket(), desk);
    for (const auto& notes : desk)
        EXPECT_THAT(notes, ::testing::Not(::testing::IsEmpty()));
}

TEST(TwoProcesses, AnswerALateReader)
{
    Service service(::testing::TempDir() + "desk-" + std::to_string(getpid()));
    constexpr int count = 5000; // answers do not fit into a pipe, and lines do
    std::string lines;
    for (int i = 0; i < count; ++i)
        lines += "freeze\n";
    service.writeAll(lines + "unfinished");
    service.waitUntilFull();
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(service.answer().substr(0, 2), "ok") << i;
    EXPECT_EQ(service.answer().substr(0, 19), "error: 'unfinished'");
}

} // namespace
