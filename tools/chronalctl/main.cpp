#include <cstdio>
#include <exception>

#include "CommandLine.h"
#include "Failure.h"

namespace {

using chronal::ctl::ExitStatus;

int complain(const std::string& text, ExitStatus status)
{
    std::fprintf(stderr, "chronalctl: %s\n", text.c_str());
    return static_cast<int>(status);
}

int run(int argc, char** argv)
{
    chronal::ctl::CommandLine commandLine;
    try {
        commandLine.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and its like end here, too.
        return error.get_exit_code() == 0
                   ? commandLine.exit(error)
                   : complain(commandLine.explain(error), ExitStatus::badUsage);
    }
    commandLine.run();
    return static_cast<int>(ExitStatus::done);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const chronal::ctl::Failure& failure) {
        return complain(failure.what(), failure.status);
    } catch (const std::exception& error) {
        return complain(error.what(), ExitStatus::noAnswer);
    }
}
