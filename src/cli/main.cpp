// corvane: the command. Reads the words, and hands them to one command.
#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/Completion.h"
#include "cli/ExitCodes.h"
#include "cli/GuardedMain.h"
#include "cli/Output.h"
#include "platform/kernel/HostTime.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <string_view>

namespace {

int Run(int argc, char** argv)
{
    using namespace cli;
    CLI::App app("Records what applications play, aligned to the sample.", "corvane");
    app.set_version_flag("--version", "corvane " CORVANE_VERSION);
    app.require_subcommand(1);
    Words words;
    words.mRecord.mStartNanos = mach_absolute_time();
    AddSoundCommands(app, words);
    AddDeviceCommands(app, words);
    // Not a subcommand: its arguments are another command's, options among them.
    if (argc > 1 && std::string_view(argv[1]) == "complete") return PrintCandidates(app, {argv + 2, argv + argc});
    if (argc > 1 && std::string_view(argv[1]) == "help") {  // "help list apps" is "list apps --help"
        std::rotate(argv + 1, argv + 2, argv + argc);
        argv[argc - 1] = const_cast<char*>("--help");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return Complain(DescribeUsageError(app, {argv + 1, argv + argc}, error.what()), kExitUsage);
    }
    return words.mResult;
}

}  // namespace

int main(int argc, char** argv)
{
    return cli::GuardedMain(Run, argc, argv);
}
