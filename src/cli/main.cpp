// corvane: the command. Reads the words, and hands them to one command.
#include "cli/Commands.h"
#include "cli/Completion.h"
#include "cli/ExitCodes.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <string_view>

int main(int argc, char** argv)
{
    using namespace cli;
    CLI::App app("Records what applications play, aligned to the sample.", "corvane");
    app.set_version_flag("--version", "corvane " CORVANE_VERSION);
    app.require_subcommand(1);
    Words words;
    AddSoundCommands(app, words);
    AddDeviceCommands(app, words);
    // Not a subcommand: its arguments are another command's, options among them.
    if (argc > 1 && std::string_view(argv[1]) == "complete") return PrintCandidates(app, {argv + 2, argv + argc});
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        fmt::print(stderr,
                   "corvane: {}; see corvane --help, for example corvane record --source app:firefox -d 10 talk.wav\n",
                   error.what());
        return kExitUsage;
    }
    return words.mResult;
}
