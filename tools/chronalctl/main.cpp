#include <cstdio>
#include <exception>

#include "CommandLine.h"
#include "Failure.h"
#include "Output.h"
#include "StandardStreams.h"

namespace {

using namespace chronal::ctl;

ExitStatus complain(const CommandLine& commandLine, const Failure& failure)
{
    complain(failure);
    try {
        if (commandLine.wantsJson())
            print(asJson(commandLine.words(), failure));
    } catch (const Failure&) {
        // Standard error has it already.
    }
    return failure.status;
}

ExitStatus run(CommandLine& commandLine, int argc, char** argv)
{
    try {
        if (commandLine.parse(argc, argv))
            commandLine.run();
        return ExitStatus::done;
    } catch (const CLI::ParseError& error) {
        return complain(commandLine, commandLine.badUsage(error));
    } catch (const Failure& failure) {
        return complain(commandLine, failure);
    } catch (const std::exception& error) {
        return complain(commandLine, Failure(ExitStatus::noAnswer, 0, error.what()));
    }
}

} // namespace

int main(int argc, char** argv)
{
    chronal::tools::holdStandardStreams();
    try {
        CommandLine commandLine;
        return static_cast<int>(run(commandLine, argc, argv));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "chronalctl: %s\n", error.what());
        return static_cast<int>(ExitStatus::noAnswer);
    }
}
